#!/usr/bin/env node
'use strict';
// Runs one contender on one workload in this process and prints one JSON line:
// { ops, seconds, items, ... } or { skipped: reason }. Started by run.js
// (under taskset, with --expose-gc) with the task as JSON in argv[2].
const { measure } = require('./lib/measure');
const mem = require('./lib/memory');
const K = require('./lib/keys');

const contenders = {
  exact: () => require('./contenders/exact'),
  idiomatic: () => require('./contenders/idiomatic'),
  promises: () => require('./contenders/promises'),
  ioredis: () => require('./contenders/ioredis'),
  'node-redis': () => require('./contenders/node-redis'),
  calls: () => require('./contenders/calls'),
};

// Process memory over many operations: the exact layer's mix of SET, GET,
// MGET (arrays built per call) and HGETALL, sampled after a full collection.
async function memFlat(task) {
  const exact = contenders.exact();
  const kl = exact.load(task.buildDir);
  const client = exact.connect(kl, task.ports);
  const mix = [
    exact.ops(kl, client, { kind: 'set', prefix: K.setKey(16), nkeys: 1000, size: 16 }),
    exact.ops(kl, client, { kind: 'get', prefix: K.strKey(3), nkeys: 1000 }),
    exact.ops(kl, client, { kind: 'mget-build', prefix: K.strKey(3), count: 10 }),
    exact.ops(kl, client, { kind: 'hgetall', key: K.HASH_KEY }),
  ];
  const total = task.maxOps;
  const samples = 20;
  const step = Math.ceil(total / samples);
  const series = [];
  const t0 = Date.now();
  for (let done = 0; done < total;) {
    const until = Math.min(total, done + step);
    for (; done < until; done++) mix[done & 3](done);
    mem.collect();
    series.push({ ops: done, rss: mem.rss(), external: process.memoryUsage().external,
      heapUsed: process.memoryUsage().heapUsed });
    if (Date.now() - t0 > task.durationMs) break;
  }
  kl.kl_client_destroy(client);
  const warm = series[Math.min(1, series.length - 1)]; // after the first tenth
  const last = series[series.length - 1];
  return { ops: last.ops, seconds: (Date.now() - t0) / 1000, warmOps: warm.ops, warmRss: warm.rss, lastRss: last.rss,
    maxRss: Math.max(...series.slice(1).map((s) => s.rss)), growth: last.rss - warm.rss,
    externalGrowth: last.external - warm.external, series };
}

// Peak resident memory of one 1,000-key multi-get, against its payload.
async function memPeak(task) {
  const exact = contenders.exact();
  const kl = exact.load(task.buildDir);
  const client = exact.connect(kl, task.ports);
  const w = task.workload;
  const names = K.keyNames(w.prefix, w.count);
  // warm the code paths and the connections with a small call
  exact.ops(kl, client, { kind: 'mget-build', prefix: w.prefix, count: 10 })();
  const { keys, lens } = exact.keyArrays(kl, names);
  const values = kl.new_charppp();
  const count = kl.new_ulongp();
  const vlens = kl.new_ulongpp();
  mem.collect();
  if (!mem.resetPeak()) return { skipped: 'cannot reset the peak (/proc/self/clear_refs)' };
  const base = mem.rss();
  const ext0 = process.memoryUsage().external;
  exact.check(kl, kl.kl_mget_whole(client, keys, names.length, lens, values, count, vlens, '', 0, kl.KL_NULL_ON_FAIL),
    'kl_mget_whole');
  const peakCall = mem.peak() - base;
  const ext1 = process.memoryUsage().external;
  const n = kl.ulongp_value(count);
  const strings = [];
  let payload = 0;
  for (let i = 0; i < n; i++) {
    const s = kl.charppp_value(values, vlens, i);
    strings.push(s);
    payload += s === null ? 0 : s.length;
  }
  const peakRead = mem.peak() - base;
  kl.kl_free_php_reply_pp(values, n);
  kl.kl_free_php_reply_p(kl.ulongpp_to_charpp(vlens));
  const afterRelease = mem.rss() - base;
  kl.kl_client_destroy(client);
  return { ops: 1, seconds: 0, items: n, payload, peakBytes: peakCall, peakWithReadBytes: peakRead,
    externalDelta: ext1 - ext0, retainedAfterRelease: afterRelease, strings: strings.length };
}

// The event loop's delay while a server is paused: a promise client keeps 100
// commands in flight to it (each with a 200 ms budget, made again as it fails)
// while a histogram samples the loop every millisecond.
async function loopDelay(task) {
  const { monitorEventLoopDelay } = require('node:perf_hooks');
  process.env.KEYLOOM_BUILD_DIR = task.buildDir;
  const { createClient } = require('keyloom/promises');
  const client = createClient({ servers: task.ports.map((p) => `127.0.0.1:${p}`), connectTimeoutMs: 1000 });
  await client.set('loop-delay', 'v');
  const histogram = monitorEventLoopDelay({ resolution: 1 });
  let failed = 0;
  let answered = 0;
  const t0 = Date.now();
  process.kill(task.pausePid, 'SIGSTOP');
  try {
    histogram.enable();
    const loop = async () => {
      while (Date.now() - t0 < task.durationMs) {
        try {
          await client.get('loop-delay', { timeoutMs: 200 });
          answered++;
        } catch {
          failed++;
        }
      }
    };
    await Promise.all(Array.from({ length: 100 }, loop));
    histogram.disable();
  } finally {
    process.kill(task.pausePid, 'SIGCONT');
  }
  await client.close();
  return { ops: failed + answered, seconds: (Date.now() - t0) / 1000, failed, answered,
    p99Ms: histogram.percentile(99) / 1e6, maxMs: histogram.max / 1e6, meanMs: histogram.mean / 1e6 };
}

// Process memory over a million commands (GET, SET, INCR, HSET, HGET) with
// 1,000 in flight through the promise client, sampled after full collections.
async function memFlatPromises(task) {
  const { workloadOp } = require('./lib/workload-op');
  process.env.KEYLOOM_BUILD_DIR = task.buildDir;
  const { createClient } = require('keyloom/promises');
  const client = createClient({ servers: task.ports.map((p) => `127.0.0.1:${p}`) });
  const op = workloadOp({ kind: 'mixed' }, contenders.promises().commands(client));
  const inFlight = 1000;
  const total = task.maxOps;
  const step = Math.ceil(total / 20);
  const series = [];
  const t0 = Date.now();
  let done = 0;
  while (done < total && Date.now() - t0 < task.durationMs) {
    const until = Math.min(total, done + step);
    while (done < until) {
      const batch = [];
      for (let j = 0; j < inFlight && done < until; j++) batch.push(op(done++));
      await Promise.all(batch);
    }
    mem.collect();
    series.push({ ops: done, rss: mem.rss(), external: process.memoryUsage().external });
  }
  await client.close();
  const warm = series[Math.min(1, series.length - 1)];
  const last = series[series.length - 1];
  return { ops: last.ops, seconds: (Date.now() - t0) / 1000, warmOps: warm.ops, growth: last.rss - warm.rss,
    externalGrowth: last.external - warm.external, series };
}

async function main() {
  const task = JSON.parse(process.argv[2]);
  const w = task.workload;
  let result;
  if (w.kind === 'memflat') result = await memFlat(task);
  else if (w.kind === 'memflat-promises') result = await memFlatPromises(task);
  else if (w.kind === 'loopdelay') result = await loopDelay(task);
  else if (w.kind === 'mempeak') result = await memPeak(task);
  else {
    const impl = await contenders[task.contender]().prepare(task);
    if (!impl) {
      result = { skipped: 'not applicable' };
    } else {
      const r = await measure(impl, task);
      result = { ...r, items: r.ops * (impl.items || 1) };
      if (impl.close) await impl.close();
    }
  }
  process.stdout.write(`${JSON.stringify(result)}\n`);
}

main().then(() => process.exit(0), (err) => {
  const skip = err && err.code === 'MODULE_NOT_FOUND';
  process.stdout.write(`${JSON.stringify(skip ? { skipped: `not available: ${err.message.split('\n')[0]}` }
    : { error: String(err && err.stack || err) })}\n`);
  process.exit(skip ? 0 : 1);
});
