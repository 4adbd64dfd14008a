#!/usr/bin/env node
'use strict';
// `npm run chaos`: two groups of two servers, a bounded mixed load from
// JavaScript through the exact layer (test/chaos/load.js, a child process),
// while this controller kills (SIGKILL, then a restart on the same port),
// pauses (SIGSTOP, then SIGCONT) and restarts (SIGTERM, start again) servers at
// random. At the end every server is brought back, the load child runs
// kl_dirty on every key it wrote, and the invariants are checked (see
// docs/reliability.md for their exact wording).
//   node test/chaos/run.js [--seconds N] [--seed N] [--build-dir DIR]
//                          [--timeout-ms N] [--margin-ms N] [--sanitize]
const { fork } = require('node:child_process');
const path = require('node:path');
const { startRedis } = require('../../scripts/local-redis');
const { dump } = require('./resp');
const { Rng } = require('../fuzz/rng');
const { sanitizerEnv } = require('../helpers/sanitizer');
const { defaultBuildDir } = require('../../scripts/build');

process.setMaxListeners(100); // local-redis adds one exit listener per server start
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

function parseArgs(argv) {
  const opt = (name, def) => {
    const i = argv.indexOf(`--${name}`);
    return i >= 0 ? argv[i + 1] : def;
  };
  const sanitize = argv.includes('--sanitize');
  return {
    seconds: Number(opt('seconds', '20')),
    seed: Number(opt('seed', String(Math.floor(Math.random() * 2 ** 31)))) >>> 0,
    buildDir: path.resolve(opt('build-dir', process.env.KEYLOOM_BUILD_DIR || defaultBuildDir(sanitize))),
    timeoutMs: Number(opt('timeout-ms', '200')),
    marginMs: Number(opt('margin-ms', '300')),
    sanitize,
  };
}

async function chaos(options, log = console.log) {
  const o = { ...parseArgs([]), ...options };
  const rng = new Rng(o.seed);
  log(`chaos: seed ${o.seed}, ${o.seconds} s, time-out ${o.timeoutMs} ms, margin ${o.marginMs} ms, build ${o.buildDir}`);
  // servers[i]: { port, proc (current redis process or null), state, group }
  const servers = [];
  const events = []; // { t, port, what }
  const failures = [];
  let child;
  try {
    for (let i = 0; i < 4; i++) {
      const proc = await startRedis();
      servers.push({ port: proc.port, proc, state: 'up', group: i < 2 ? 0 : 1, lastLoss: 0 });
    }
    const cfg = {
      seed: o.seed,
      groups: [[servers[0].port, servers[1].port], [servers[2].port, servers[3].port]],
      timeoutMs: o.timeoutMs,
      reconnectMs: 100,
      maxWrites: 200000,
    };
    const env = { ...process.env, ...(o.sanitize ? sanitizerEnv(['detect_leaks=0']) : {}), KEYLOOM_BUILD_DIR: o.buildDir };
    child = fork(path.join(__dirname, 'load.js'), [JSON.stringify(cfg)], { env, stdio: ['ignore', 'inherit', 'pipe', 'ipc'] });
    let stderr = '';
    child.stderr.on('data', (d) => { stderr = (stderr + d).slice(-20000); });
    const result = new Promise((resolve) => {
      let msg = null;
      child.on('message', (m) => { msg = m; });
      child.on('exit', (code, signal) => resolve({ msg, code, signal }));
    });

    // the controller: one disturbance at a time per server, bounded in time
    const end = Date.now() + o.seconds * 1000;
    const pending = [];
    while (Date.now() < end) {
      await sleep(rng.int(150, 600));
      const s = rng.pick(servers);
      if (s.state !== 'up') continue;
      const what = rng.pick(['kill', 'pause', 'pause', 'restart']);
      const t = Date.now();
      events.push({ t, port: s.port, what });
      if (what === 'pause') {
        s.state = 'paused';
        s.proc.kill('SIGSTOP');
        pending.push(sleep(rng.int(100, 700)).then(() => {
          s.proc.kill('SIGCONT');
          events.push({ t: Date.now(), port: s.port, what: 'resume' });
          s.state = 'up';
        }));
      } else {
        s.state = 'down';
        s.lastLoss = t;
        if (what === 'kill') s.proc.kill('SIGKILL');
        const old = s.proc;
        pending.push((async () => {
          await old.stop(); // SIGTERM for a restart; reaps a killed one
          // A server keeps answering for a while after SIGTERM (until its next
          // cron tick), so its data is lost when it exits, not when signalled.
          events.push({ t: Date.now(), port: s.port, what: 'gone' });
          await sleep(rng.int(100, 800));
          s.proc = await startRedis({ port: s.port });
          events.push({ t: Date.now(), port: s.port, what: 'back' });
          s.state = 'up';
        })());
      }
    }
    await Promise.all(pending);
    log(`chaos: ${events.filter((e) => ['kill', 'pause', 'restart'].includes(e.what)).length} disturbances; every server is back`);
    child.send('repair');
    const { msg, code, signal } = await result;
    if (code !== 0 || !msg) {
      failures.push(`the load process ended with code ${code} signal ${signal}\n${stderr}`);
      return { ok: false, failures, events };
    }

    // 1. time bound
    const bound = 2 * o.timeoutMs + o.marginMs;
    if (msg.maxMs > bound) failures.push(`a call took ${msg.maxMs.toFixed(0)} ms (${msg.maxOp}), more than connect + reply time-out + margin = ${bound} ms`);
    if (msg.wrongValues) failures.push(`${msg.wrongValues} reads returned a value other than the one written`);

    // 2. contents of every group, read from the servers directly
    const groups = [new Map(), new Map()];
    for (const s of servers) {
      for (const [key, value] of await dump(s.port)) groups[s.group].set(key, value);
    }
    const lossAfter = (g, t) => servers.some((s) => s.group === g && events.some((e) => e.port === s.port && (e.what === 'kill' || e.what === 'restart' || e.what === 'gone') && e.t >= t));
    let clean = 0; let dirty = 0; let failedWrites = 0; let excused = 0;
    const writtenKeys = new Set();
    for (const [key, value, code, t0] of msg.writes) {
      writtenKeys.add(key);
      const base = code & ~128;
      const isDirty = (code & 128) !== 0;
      for (const g of [0, 1]) {
        if (groups[g].has(key) && groups[g].get(key) !== value) failures.push(`group ${g} holds ${key} = ${groups[g].get(key)}, written ${value}`);
      }
      if (base !== 0) { failedWrites++; continue; }
      if (!isDirty) {
        clean++;
        for (const g of [0, 1]) {
          if (!groups[g].has(key)) {
            if (lossAfter(g, t0)) excused++;
            else failures.push(`acknowledged write of ${key} (t=${t0}) is missing from group ${g}, which lost no server since`);
          }
        }
      } else {
        dirty++;
        if (!groups[0].has(key) && !groups[1].has(key)) {
          if (lossAfter(0, t0) || lossAfter(1, t0)) { excused++; continue; }
          failures.push(`dirty write of ${key} (t=${t0}) is in no group`);
        }
      }
    }
    // 3. after kl_dirty the groups agree on every key written
    let unequal = 0;
    for (const key of writtenKeys) {
      const a = groups[0].get(key);
      const b = groups[1].get(key);
      if (a !== b) {
        unequal++;
        if (unequal <= 10) failures.push(`after kl_dirty the groups differ for ${key}: ${a} / ${b}`);
      }
    }
    if (msg.failedRepairs) failures.push(`${msg.failedRepairs} kl_dirty calls did not succeed: ${JSON.stringify(msg.repairFailed)}`);
    for (const key of [...groups[0].keys(), ...groups[1].keys()]) {
      if (key.startsWith(`chaos:${o.seed}:`) && !key.includes(':counter:') && !writtenKeys.has(key)) failures.push(`unknown key ${key}`);
    }
    const summary = `chaos: ${msg.calls} calls, ${msg.writes.length} writes (${clean} clean, ${dirty} dirty, ${failedWrites} failed; ${excused} clean copies excused by a server loss), ${msg.reads} reads, ${msg.repaired} group copies repaired, slowest call ${msg.maxMs.toFixed(0)} ms (${msg.maxOp}) of ${bound} allowed`;
    log(summary);
    return { ok: failures.length === 0, failures, events, summary, stats: { clean, dirty, failedWrites, excused, maxMs: msg.maxMs } };
  } finally {
    if (child && child.exitCode === null) child.kill('SIGKILL');
    for (const s of servers) {
      if (s.proc) { s.proc.kill('SIGCONT'); await s.proc.stop(); }
    }
  }
}

module.exports = { chaos, parseArgs };

if (require.main === module) {
  const o = parseArgs(process.argv.slice(2));
  chaos(o).then((r) => {
    console.log(`chaos: ${r.ok ? 'held' : 'FAILED'} (seed ${o.seed})`);
    for (const f of r.failures.slice(0, 30)) console.log(`  ${f}`);
    process.exitCode = r.ok ? 0 : 1;
  }, (e) => { console.error(e); process.exitCode = 1; });
}
