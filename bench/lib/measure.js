'use strict';
// The timing loops every JavaScript contender runs through, so that all of them
// pay the same loop overhead. A contender hands over { mode, op, items, every }:
//   mode 'sync'      op(i) returns when the operation is done
//   mode 'async'     await op(i), one operation in flight
//   mode 'inflight'  `depth` workers each awaiting op(i) in turn
// Every loop is bounded by a count (maxOps) and by time (durationMs).
const { performance } = require('node:perf_hooks');

function measureSync(op, { durationMs, maxOps, warmupOps, every = 1 }) {
  for (let i = 0; i < warmupOps; i++) op(i);
  const t0 = performance.now();
  const end = t0 + durationMs;
  let n = 0;
  let i = warmupOps;
  while (n < maxOps) {
    op(i++);
    n++;
    if (n % every === 0 && performance.now() >= end) break;
  }
  return { ops: n, seconds: (performance.now() - t0) / 1000 };
}

async function measureAsync(op, { durationMs, maxOps, warmupOps }) {
  for (let i = 0; i < warmupOps; i++) await op(i);
  const t0 = performance.now();
  const end = t0 + durationMs;
  let n = 0;
  let i = warmupOps;
  while (n < maxOps) {
    await op(i++);
    n++;
    if (performance.now() >= end) break;
  }
  return { ops: n, seconds: (performance.now() - t0) / 1000 };
}

async function measureInflight(op, { durationMs, maxOps, warmupOps, depth = 100 }) {
  const run = async (limit, deadline) => {
    let next = 0;
    let done = 0;
    const worker = async () => {
      while (next < limit && performance.now() < deadline) {
        await op(next++);
        done++;
      }
    };
    await Promise.all(Array.from({ length: depth }, worker));
    return done;
  };
  await run(warmupOps, Infinity);
  const t0 = performance.now();
  const ops = await run(maxOps, t0 + durationMs);
  return { ops, seconds: (performance.now() - t0) / 1000 };
}

async function measure(impl, limits) {
  const opts = { ...limits, every: impl.every || 1, depth: impl.depth || 100 };
  if (impl.mode === 'sync') return measureSync(impl.op, opts);
  if (impl.mode === 'async') return measureAsync(impl.op, opts);
  if (impl.mode === 'inflight') return measureInflight(impl.op, opts);
  throw new Error(`unknown mode ${impl.mode}`);
}

module.exports = { measure };
