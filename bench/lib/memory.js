'use strict';
// Memory probes: resident set size from /proc, and its peak since a reset
// (writing 5 to /proc/self/clear_refs resets VmHWM to the current VmRSS).
const fs = require('node:fs');

function statusBytes(field) {
  const m = new RegExp(`^${field}:\\s+(\\d+) kB`, 'm').exec(fs.readFileSync('/proc/self/status', 'utf8'));
  return m ? Number(m[1]) * 1024 : NaN;
}

const rss = () => statusBytes('VmRSS');
const peak = () => statusBytes('VmHWM');

function resetPeak() {
  try {
    fs.writeFileSync('/proc/self/clear_refs', '5');
    return true;
  } catch {
    return false;
  }
}

const collect = () => { if (global.gc) { global.gc(); global.gc(); } };

module.exports = { rss, peak, resetPeak, collect };
