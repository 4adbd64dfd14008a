'use strict';
// Medians and number formatting for the tables.
function median(xs) {
  const s = xs.filter((x) => Number.isFinite(x)).sort((a, b) => a - b);
  if (s.length === 0) return NaN;
  const m = s.length >> 1;
  return s.length % 2 ? s[m] : (s[m - 1] + s[m]) / 2;
}

function fmt(x, unit) {
  if (!Number.isFinite(x)) return 'n/a';
  if (unit === 'ns/call') return x.toFixed(1);
  if (unit === 'bytes') return `${(x / 1048576).toFixed(2)} MiB`;
  if (unit === 'ms') return x < 1 ? x.toFixed(3) : x < 100 ? x.toFixed(2) : x.toFixed(0);
  return Math.round(x).toLocaleString('en-US');
}

const ratio = (x) => (Number.isFinite(x) ? `${x.toFixed(2)}x` : 'n/a');

module.exports = { median, fmt, ratio };
