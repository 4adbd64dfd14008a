#!/usr/bin/env node
'use strict';
// `npm run fuzz`: random calls of every exported function with random
// argument lists, in batches, each batch in a child process (test/fuzz/worker.js).
//   node test/fuzz/run.js [--seconds N] [--seed N] [--mode probe|real|both]
//                         [--sanitize] [--build-dir DIR] [--calls N]
// --seconds bounds the whole run (default 20), --seed makes it repeatable
// (default: random; printed). probe mode runs the addon against the library's
// test double, real mode against libkeyloom.so.1 with two live servers.
// --sanitize preloads libasan/libubsan into the children (use a build made
// with --sanitize). A crash is reported with the batch seed and the last call;
// exit status 0 only when every batch held.
const { spawn } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { sanitizerEnv } = require('../helpers/sanitizer');
const { defaultBuildDir } = require('../../scripts/build');

const root = path.resolve(__dirname, '..', '..');

function parseArgs(argv) {
  const opt = (name, def) => {
    const i = argv.indexOf(`--${name}`);
    return i >= 0 ? argv[i + 1] : def;
  };
  const sanitize = argv.includes('--sanitize');
  const envDir = process.env.KEYLOOM_BUILD_DIR;
  return {
    seconds: Number(opt('seconds', '20')),
    seed: Number(opt('seed', String(Math.floor(Math.random() * 2 ** 31)))) >>> 0,
    mode: opt('mode', 'both'),
    sanitize,
    buildDir: path.resolve(opt('build-dir', envDir || defaultBuildDir(sanitize))),
    calls: Number(opt('calls', '4000')),
  };
}

// Runs one batch; resolves to { ok, summary, last, stderr, code, signal }.
function runBatch({ buildDir, mode, seed, calls, seconds, env }) {
  return new Promise((resolve) => {
    const child = spawn(process.execPath, [path.join(__dirname, 'worker.js'),
      '--seed', String(seed), '--calls', String(calls), '--seconds', String(seconds), '--mode', mode],
    { env: { ...process.env, ...env, KEYLOOM_BUILD_DIR: buildDir }, stdio: ['ignore', 'pipe', 'pipe', 'pipe'] });
    let out = '';
    let err = '';
    let lastLines = ['', ''];
    let partial = '';
    child.stdout.on('data', (d) => { out += d; });
    child.stderr.on('data', (d) => { err = (err + d).slice(-20000); });
    child.stdio[3].on('data', (d) => {
      const text = partial + d;
      const lines = text.split('\n');
      partial = lines.pop();
      for (const l of lines) { lastLines = [lastLines[1], l]; }
    });
    // a batch that hangs is a failure too
    const timer = setTimeout(() => { try { child.kill('SIGKILL'); } catch {} }, (seconds + 60) * 1000);
    child.on('close', (code, signal) => {
      clearTimeout(timer);
      let summary = null;
      try { summary = JSON.parse(out.trim().split('\n').pop()); } catch {}
      const ok = code === 0 && summary !== null;
      resolve({ ok, summary, last: lastLines[1] || lastLines[0], stderr: err, code, signal });
    });
  });
}

async function startServers() {
  const { startRedis } = require(path.join(root, 'scripts', 'local-redis.js'));
  const args = ['--rename-command', 'SHUTDOWN', '""'];
  const a = await startRedis({ args });
  let b;
  try { b = await startRedis({ args }); } catch (e) { await a.stop(); throw e; }
  return [a, b];
}

// Runs the fuzzer; returns { ok, batches, calls, report[] }.
async function fuzz(options, log = console.log) {
  const o = { ...parseArgs([]), ...options };
  const modes = o.mode === 'both' ? ['probe', 'real'] : [o.mode];
  const addon = path.join(o.buildDir, 'Release', 'keyloom.node');
  if (!fs.existsSync(addon)) throw new Error(`no addon at ${addon}: build first (node scripts/build.js --build-dir ${o.buildDir})`);
  log(`fuzz: seed ${o.seed}, ${o.seconds} s, modes ${modes.join('+')}, build ${o.buildDir}${o.sanitize ? ', sanitizer' : ''}`);
  // leaks are the memory test's business: the fuzzer leaves cells behind on purpose
  const baseEnv = o.sanitize ? sanitizerEnv(['detect_leaks=0', 'allocator_may_return_null=1', 'abort_on_error=0', 'halt_on_error=1']) : {};
  let servers = [];
  if (modes.includes('real')) servers = await startServers();
  const probeLog = path.join(os.tmpdir(), `keyloom-fuzz-probe-${process.pid}.jsonl`);
  const deadline = Date.now() + o.seconds * 1000;
  const report = [];
  let batches = 0;
  let calls = 0;
  let ok = true;
  try {
    while (Date.now() < deadline && ok) {
      const mode = modes[batches % modes.length];
      const seed = (o.seed + Math.imul(batches, 0x9e3779b1)) >>> 0;
      const env = { ...baseEnv };
      if (mode === 'probe') {
        env.LD_LIBRARY_PATH = path.join(o.buildDir, 'double');
        env.KEYLOOM_PROBE_LOG = probeLog;
        fs.writeFileSync(probeLog, '');
      } else {
        env.KEYLOOM_FUZZ_SERVERS = servers.map((s) => s.port).join(',');
      }
      const left = Math.max(1, Math.min(15, (deadline - Date.now()) / 1000));
      const r = await runBatch({ buildDir: o.buildDir, mode, seed, calls: o.calls, seconds: left, env });
      batches++;
      if (r.summary) calls += r.summary.calls;
      if (!r.ok) {
        ok = false;
        report.push(`batch ${batches} (${mode}, batch seed ${seed}) FAILED: exit ${r.code} signal ${r.signal}`);
        report.push(`  replay: node test/fuzz/worker.js --seed ${seed} --calls ${o.calls} --mode ${mode}`);
        report.push(`  last call: ${r.last}`);
        if (r.summary) for (const f of r.summary.failures) report.push(`  assertion: ${f}`);
        if (r.stderr) report.push(`  stderr (tail):\n${r.stderr.split('\n').slice(-40).join('\n')}`);
      }
      // a probe log grows with every call: keep it from filling the disk
      if (mode === 'probe') fs.writeFileSync(probeLog, '');
      // servers must stay up for the next batch (a batch may have shut one down)
      for (const s of servers) {
        if (!s.running) { report.push(`server ${s.port} exited during batch ${batches}`); ok = false; }
      }
    }
  } finally {
    fs.rmSync(probeLog, { force: true });
    for (const s of servers) await s.stop();
  }
  const line = `fuzz: ${ok ? 'held' : 'FAILED'}: ${batches} batches, ${calls} calls, seed ${o.seed}`;
  log(line);
  for (const l of report) log(l);
  return { ok, batches, calls, report };
}

module.exports = { fuzz, parseArgs };

if (require.main === module) {
  fuzz(parseArgs(process.argv.slice(2))).then((r) => { process.exitCode = r.ok ? 0 : 1; },
    (e) => { console.error(e); process.exitCode = 1; });
}
