'use strict';
// Memory sampling for the leak tests: run a bounded loop (by count and by a time
// cap), sample rss and external memory after full collections, and compare a late
// window with an early one taken after warm-up.
const v8 = require('node:v8');
const vm = require('node:vm');

v8.setFlagsFromString('--expose-gc');
const gc = globalThis.gc ?? vm.runInNewContext('gc');

function sample() {
  gc();
  gc();
  const m = process.memoryUsage();
  return { rss: m.rss, external: m.external };
}

// The largest rss growth the leak tests allow, in MB. AddressSanitizer holds
// freed blocks in its quarantine for a while, so rss keeps rising under it
// whatever the code does.
const RSS_LIMIT_MB = /libasan/.test(process.env.LD_PRELOAD || '') ? 64 : 16;

const mean = (xs) => xs.reduce((a, b) => a + b, 0) / xs.length;

/**
 * Calls step(i) for i = 0 .. total-1 (awaiting it when it returns a Promise),
 * stopping early at capMs; samples memory
 * every `every` steps. Resolves to { done, early, late, samples } where early and
 * late are the mean rss/external over the samples of 50-70 % and of the last
 * fifth of the steps done. The first half is warm-up: Node.js 26's V8 keeps
 * memory of its own (outside the heap it reports) for loops that make many
 * proxies, about 25 MB over the first 600,000 such calls, flat after that
 * (measured with the heap's physical size subtracted from rss).
 */
async function measure({ total, capMs, every }, step) {
  const samples = [];
  const start = Date.now();
  let done = 0;
  while (done < total && Date.now() - start < capMs) {
    const end = Math.min(total, done + every);
    for (; done < end; done++) {
      const pending = step(done);
      if (pending) await pending;
    }
    samples.push({ at: done, ...sample() });
    await new Promise((r) => setImmediate(r)); // let the test runner breathe
  }
  const window = (from, to) => {
    const picked = samples.filter((s) => s.at > from * done && s.at <= to * done);
    return { rss: mean(picked.map((s) => s.rss)), external: mean(picked.map((s) => s.external)), n: picked.length };
  };
  return { done, early: window(0.5, 0.7), late: window(0.8, 1), samples };
}

const MB = 1024 * 1024;

module.exports = { RSS_LIMIT_MB, measure, MB };
