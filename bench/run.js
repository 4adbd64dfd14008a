#!/usr/bin/env node
'use strict';
// keyloom benchmarks: the exact layer and the idiomatic client side by side with
// the limit (a C loop on hiredis) and the peers (ioredis, node-redis, koffi), in
// one run, with the same placement for every contender: every redis-server main
// thread pinned to CPU 0 and every client run under `taskset -c 0`.
//
//   npm run bench                       full run (bounded, about 10 minutes)
//   npm run bench -- --quick            short rounds, a first look in about 3 minutes
//   npm run bench -- --filter mget      only workloads whose id matches (a regular expression)
//   options: --rounds N  --duration MS  --cpu N  --build-dir DIR  --no-build  --no-write
//   npm run bench -- --report-only      rewrite RESULTS.md from the last run (bench/.work/last-run.json)
//
// Contenders run in turn and interleaved (A B C, then B C A, ...), one process
// per measurement; the tables quote the median of the rounds. The run writes
// bench/RESULTS.md (unless --no-write, or a --filter run) and the raw samples to
// bench/.work/last-run.json.
const { execFile, execFileSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { startRedis } = require('../scripts/local-redis');
const { build } = require('../scripts/build');
const { workloads, SWEEP_SIZES, SWEEP_KEYS, CONTINUUM_SIZES, MAX_SERVERS } = require('./workloads');
const { targets } = require('./targets');
const { median } = require('./lib/stats');
const { send } = require('./lib/fill');
const K = require('./lib/keys');
const report = require('./lib/report');

const root = path.resolve(__dirname, '..');
const work = path.join(__dirname, '.work');

function parseArgs(argv) {
  const o = { quick: false, filter: null, rounds: null, duration: null, cpu: 0, build: true, write: true,
    buildDir: path.join(root, 'build-bench') };
  for (let i = 0; i < argv.length; i++) {
    const a = argv[i];
    const next = () => {
      if (i + 1 >= argv.length) throw new Error(`${a} needs a value`);
      return argv[++i];
    };
    if (a === '--quick') o.quick = true;
    else if (a === '--filter') o.filter = new RegExp(next());
    else if (a === '--rounds') o.rounds = Number(next());
    else if (a === '--duration') o.duration = Number(next());
    else if (a === '--cpu') o.cpu = Number(next());
    else if (a === '--build-dir') o.buildDir = path.resolve(next());
    else if (a === '--no-build') o.build = false;
    else if (a === '--no-write') o.write = false;
    else if (a === '--report-only') o.reportOnly = true;
    else if (a === '--help' || a === '-h') {
      process.stdout.write(fs.readFileSync(__filename, 'utf8').split('\n').slice(6, 12).map((l) => l.slice(3)).join('\n') + '\n');
      process.exit(0);
    } else throw new Error(`unknown option ${a}`);
  }
  const q = o.quick;
  o.rounds = o.rounds || (q ? 3 : 5);
  o.duration = o.duration || (q ? 300 : 1000);        // per measurement, ms
  o.warmup = q ? 300 : 2000;                           // round trips before timing
  o.calls = q ? 2e6 : 1e7;                             // calls per call-overhead measurement
  o.callWarmup = q ? 2e5 : 1e6;
  o.memOps = q ? 1e5 : 1e6;                            // operations of the memory run
  o.memCapMs = q ? 30000 : 150000;
  o.continuumRepeats = 3;
  return o;
}

const log = (...a) => process.stderr.write(`${a.join(' ')}\n`);

// ---- building ---------------------------------------------------------------

function cmakeTargets(dir, names) {
  const built = {};
  for (const name of names) {
    try {
      execFileSync('cmake', ['--build', dir, '--target', name, '-j', String(os.availableParallelism())],
        { stdio: ['ignore', 'ignore', 'pipe'] });
      built[name] = true;
    } catch (err) {
      built[name] = false;
      log(`  (target ${name} did not build: ${String(err.stderr || err.message).split('\n').find((l) => /error/i.test(l)) || 'see cmake'})`);
    }
  }
  return built;
}

// The project's build (the addon and the library), then the benchmark programs.
// When the project does not build, the programs are built on their own so that
// the limit and the peers can still be measured.
function buildEverything(o) {
  const paths = { buildDir: o.buildDir, benchDir: path.join(o.buildDir, 'bench') };
  if (!o.build) return paths;
  log(`building the project in ${path.relative(root, o.buildDir)} ...`);
  let projectOk = true;
  try {
    build({ buildDir: o.buildDir, bench: true, quiet: true });
  } catch {
    projectOk = false;
    log('  the project did not build completely; keyloom contenders may be skipped');
  }
  const cache = fs.existsSync(path.join(o.buildDir, 'CMakeCache.txt'));
  if (cache) {
    const ok = cmakeTargets(o.buildDir, ['hiredis_limit', 'empty_callback', 'continuum_build']);
    if (ok.hiredis_limit && ok.empty_callback) return paths;
  }
  const alone = path.join(work, 'standalone');
  execFileSync('cmake', ['-S', __dirname, '-B', alone, '-DCMAKE_BUILD_TYPE=Release',
    `-DNODE_INCLUDE_DIR=${require('../scripts/build').nodeIncludeDir()}`], { stdio: 'ignore' });
  cmakeTargets(alone, ['hiredis_limit', 'empty_callback']);
  if (!projectOk) log('  benchmark programs built on their own in bench/.work/standalone');
  return { ...paths, benchDir: path.join(alone, 'bench'), continuumDir: paths.benchDir };
}

// ---- servers and data ---------------------------------------------------------

async function startServers(n, cpu) {
  const servers = [];
  for (let i = 0; i < n; i++) {
    const s = await startRedis({ args: ['--io-threads', '1'] });
    servers.push(s);
    execFileSync('taskset', ['-pc', String(cpu), String(s.pid)], { stdio: 'ignore' });
  }
  return servers;
}

async function fillAll(servers) {
  const x = (n) => K.valueOf(n);
  const common = [['FLUSHALL']];
  for (const size of [3, 1024]) {
    for (let i = 0; i < 1000; i++) common.push(['SET', K.strKey(size) + i, x(size)]);
  }
  for (let i = 0; i < K.HASH_FIELDS; i++) common.push(['HSET', K.HASH_KEY, `field:${i}`, x(16)]);
  for (let i = 0; i < K.ZSET_MEMBERS; i++) common.push(['ZADD', K.ZSET_KEY, String(i * 1.5), `member:${i}`]);
  // every key on every server, so that every contender finds it wherever it routes
  await Promise.all(servers.map((s) => send(s.port, common)));
  const sweep = [];
  for (const size of SWEEP_SIZES) {
    for (let i = 0; i < SWEEP_KEYS; i++) sweep.push(['SET', K.strKey(size) + i, x(size)]);
  }
  await send(servers[0].port, sweep);
}

// ---- one measurement -----------------------------------------------------------

function spawnJson(cmd, args, timeoutMs) {
  return new Promise((resolve) => {
    execFile(cmd, args, { timeout: timeoutMs, killSignal: 'SIGKILL', maxBuffer: 16 << 20 }, (err, stdout, stderr) => {
      const line = String(stdout).trim().split('\n').pop();
      try {
        const r = JSON.parse(line);
        if (err && !r.error && !r.skipped) r.error = String(stderr || err.message).trim().split('\n').slice(-3).join(' | ');
        resolve(r);
      } catch {
        const why = err && err.killed ? `timed out after ${timeoutMs} ms` : String(stderr || (err && err.message) || 'no output');
        resolve({ error: why.trim().split('\n').slice(-3).join(' | ') });
      }
    });
  });
}

function cArgs(w, ports, limits, c = {}) {
  const mode = c.kind || w.kind;
  const head = [mode, ports.join(','), String(limits.durationMs), String(limits.maxOps), String(limits.warmupOps)];
  if (mode.endsWith('-pipelined')) return [...head, w.prefix, String(w.nkeys), String(w.size), String(c.depth)];
  if (mode === 'get') return [...head, w.prefix, String(w.nkeys)];
  if (mode === 'set') return [...head, w.prefix, String(w.nkeys), String(w.size)];
  if (mode === 'mget' || mode === 'mempeak') return [...head, w.prefix, String(w.count)];
  if (mode === 'mset') return [...head, w.prefix, String(w.count), String(w.size)];
  return [...head, w.key];
}

function limitsFor(w, o) {
  if (w.unit === 'ns/call') return { durationMs: 20000, maxOps: o.calls, warmupOps: o.callWarmup };
  // fewer warm-up operations for large calls: about the same warm-up time for every workload
  const perCall = (w.count || w.depth || 1) * Math.max(1, (w.size || 0) / 4096);
  return { durationMs: o.duration, maxOps: 1e7, warmupOps: Math.max(20, Math.ceil(o.warmup / Math.sqrt(perCall))) };
}

// Clients share the servers' CPU, unless the workload gives them one of
// their own (and the machine has one to give).
function clientCpu(w, o) {
  if (!w.ownCpu || os.availableParallelism() < 2) return o.cpu;
  return o.cpu === 0 ? 1 : 0;
}

async function runOne(c, w, ctx) {
  const limits = limitsFor(w, ctx.o);
  const ports = ctx.servers.slice(0, w.servers).map((s) => s.port);
  const timeout = limits.durationMs + 60000;
  const pin = ['-c', String(clientCpu(w, ctx.o))];
  if (c.runner === 'c') {
    return spawnJson('taskset', [...pin, path.join(ctx.paths.benchDir, 'hiredis_limit'), ...cArgs(w, ports, limits, c)], timeout);
  }
  const task = { contender: c.contender, variant: c.variant, depth: c.depth,
    workload: { ...w, kind: c.kind || w.kind, contenders: undefined },
    ports, buildDir: ctx.paths.buildDir, benchDir: ctx.paths.benchDir, ...limits };
  return spawnJson('taskset', [...pin, process.execPath, '--expose-gc', path.join(__dirname, 'worker.js'),
    JSON.stringify(task)], timeout);
}

// The figure a sample stands for: throughput, or nanoseconds per call.
function figure(r, w) {
  if (!r || r.error || r.skipped || !(r.seconds > 0) || !(r.ops > 0)) return NaN;
  return w.unit === 'ns/call' ? (r.seconds / r.ops) * 1e9 : r.items / r.seconds;
}

async function runWorkload(w, ctx) {
  const out = { title: w.title, group: w.group, unit: w.unit, contenders: {} };
  for (const c of w.contenders) out.contenders[c.name] = { samples: [], note: null };
  for (let round = 0; round < ctx.o.rounds; round++) {
    const n = w.contenders.length;
    const order = w.contenders.map((_, i) => w.contenders[(i + round) % n]); // rotate: A B C, B C A, ...
    for (const c of order) {
      const slot = out.contenders[c.name];
      if (slot.note) continue; // skipped or failed in an earlier round
      const r = await runOne(c, w, ctx);
      if (r.skipped) slot.note = `skipped: ${r.skipped}`;
      else if (r.error) slot.note = `error: ${r.error.slice(0, 300)}`;
      else slot.samples.push(figure(r, w));
    }
  }
  for (const slot of Object.values(out.contenders)) slot.median = median(slot.samples);
  return out;
}

// ---- continuum and memory --------------------------------------------------------

async function runContinuum(ctx) {
  const rows = [];
  const dir = ctx.paths.continuumDir || ctx.paths.benchDir;
  const driver = path.join(dir, 'continuum_build');
  for (const n of CONTINUUM_SIZES) {
    const row = { servers: n };
    for (const dist of ['consistent', 'ketama', 'modula']) {
      if (!fs.existsSync(driver)) { row[dist] = { error: 'continuum_build not built' }; continue; }
      const r = await spawnJson('taskset', ['-c', String(ctx.o.cpu), driver, dist, String(n), String(ctx.o.continuumRepeats)], 120000);
      row[dist] = r.error ? r : { ms: r.seconds * 1000 };
    }
    const task = { contender: 'exact', workload: { kind: 'continuum', count: n }, ports: [],
      buildDir: ctx.paths.buildDir, durationMs: 2000, maxOps: ctx.o.continuumRepeats, warmupOps: 1 };
    const r = await spawnJson('taskset', ['-c', String(ctx.o.cpu), process.execPath, path.join(__dirname, 'worker.js'),
      JSON.stringify(task)], 180000);
    row.js = r.error || r.skipped ? { error: r.error || r.skipped } : { ms: (r.seconds / r.ops) * 1000 };
    rows.push(row);
    log(`  continuum ${n} servers: ${JSON.stringify(row)}`);
  }
  return rows;
}

async function runMemory(ctx) {
  const memory = {};
  const worker = (task, timeout) => spawnJson('taskset', ['-c', String(ctx.o.cpu), process.execPath, '--expose-gc',
    path.join(__dirname, 'worker.js'), JSON.stringify({ contender: 'exact', buildDir: ctx.paths.buildDir, ...task })], timeout);
  const one = [ctx.servers[0].port];
  log(`  memory over ${ctx.o.memOps.toLocaleString('en-US')} operations ...`);
  memory.flat = await worker({ workload: { kind: 'memflat' }, ports: one, maxOps: ctx.o.memOps,
    durationMs: ctx.o.memCapMs }, ctx.o.memCapMs + 60000);
  const w = { kind: 'mempeak', prefix: K.strKey(1024), count: 1000 };
  const peaks = [];
  const cPeaks = [];
  for (let i = 0; i < 3; i++) {
    peaks.push(await worker({ workload: w, ports: one }, 60000));
    cPeaks.push(await spawnJson('taskset', ['-c', String(ctx.o.cpu), path.join(ctx.paths.benchDir, 'hiredis_limit'),
      ...cArgs(w, one, { durationMs: 0, maxOps: 1, warmupOps: 0 })], 60000));
  }
  const pick = (list) => {
    const ok = list.filter((p) => Number.isFinite(p.peakBytes));
    if (ok.length === 0) return list[0];
    const mid = median(ok.map((p) => p.peakBytes));
    return ok.find((p) => p.peakBytes === mid) || { ...ok[0], peakBytes: mid };
  };
  memory.peak = pick(peaks);
  memory.peakC = pick(cPeaks);
  log(`  promise client: memory over ${ctx.o.memOps.toLocaleString('en-US')} commands, 1,000 in flight ...`);
  memory.flatPromises = await worker({ workload: { kind: 'memflat-promises' }, ports: one, maxOps: ctx.o.memOps,
    durationMs: ctx.o.memCapMs }, ctx.o.memCapMs + 60000);
  return memory;
}

// The event loop's delay while a server is paused (a server of its own, so
// that a run stopped halfway leaves the shared ones running).
async function runLoopDelay(ctx) {
  const s = await startRedis({ args: ['--io-threads', '1'] });
  try {
    log('  event-loop delay with a paused server ...');
    return await spawnJson('taskset', ['-c', String(ctx.o.cpu), process.execPath, '--expose-gc',
      path.join(__dirname, 'worker.js'), JSON.stringify({ contender: 'promises', buildDir: ctx.paths.buildDir,
        workload: { kind: 'loopdelay' }, ports: [s.port], pausePid: s.pid, durationMs: 3000 })], 60000);
  } finally {
    await s.stop();
  }
}

// ---- the run ---------------------------------------------------------------------

function machine() {
  const cpu = (fs.readFileSync('/proc/cpuinfo', 'utf8').match(/^model name\s*:\s*(.*)$/m) || [])[1] || os.cpus()[0]?.model;
  const redis = (execFileSync('redis-server', ['--version']).toString().match(/v=(\S+)/) || [])[1];
  const pkg = (name) => { try { return JSON.parse(fs.readFileSync(path.join(root, 'node_modules', name, 'package.json'), 'utf8')).version; } catch { return 'absent'; } };
  return { date: new Date().toISOString(), nproc: os.availableParallelism(), cpu, kernel: os.release(),
    redis, node: process.version, ioredis: pkg('ioredis'), nodeRedis: pkg('redis'), koffi: pkg('koffi'),
    hiredis: (() => { try { return execFileSync('dpkg-query', ['-W', '-f=${Version}', 'libhiredis-dev']).toString(); } catch { return 'unknown'; } })(),
    load: os.loadavg().map((x) => x.toFixed(2)).join(' ') };
}

async function main() {
  const o = parseArgs(process.argv.slice(2));
  fs.mkdirSync(work, { recursive: true });
  if (o.reportOnly) {
    const R = JSON.parse(fs.readFileSync(path.join(work, 'last-run.json'), 'utf8'));
    R.targets = targets().map((t) => ({ id: t.id, text: t.text, reason: t.reason, ...t.compute(R) }));
    fs.writeFileSync(path.join(__dirname, R.options.filter ? '.work/RESULTS.partial.md' : 'RESULTS.md'), report.markdown(R));
    process.stdout.write(`${report.console(R)}\n`);
    return;
  }
  const paths = buildEverything(o);
  const wanted = workloads().filter((w) => !o.filter || o.filter.test(w.id));
  const extras = { continuum: !o.filter || o.filter.test('continuum'), memory: !o.filter || o.filter.test('memory'),
    loopDelay: !o.filter || o.filter.test('loop-delay') };
  const t0 = Date.now();
  const servers = await startServers(MAX_SERVERS, o.cpu);
  const stop = () => Promise.all(servers.map((s) => s.stop()));
  process.once('SIGINT', () => { stop().finally(() => process.exit(130)); });
  const R = { machine: machine(), options: { quick: o.quick, rounds: o.rounds, durationMs: o.duration, cpu: o.cpu,
    filter: o.filter && String(o.filter) }, workloads: {}, continuum: null, memory: null, loopDelay: null };
  try {
    log(`${servers.length} redis-server processes, main threads pinned to CPU ${o.cpu}; loading data ...`);
    await fillAll(servers);
    const ctx = { o, paths, servers };
    for (const w of wanted) {
      const started = Date.now();
      R.workloads[w.id] = await runWorkload(w, ctx);
      log(report.progressLine(w, R.workloads[w.id], Date.now() - started));
    }
    if (extras.continuum) { log('continuum build ...'); R.continuum = await runContinuum(ctx); }
    if (extras.memory) { log('memory ...'); R.memory = await runMemory(ctx); }
    if (extras.loopDelay) R.loopDelay = await runLoopDelay(ctx);
  } finally {
    await stop();
  }
  R.seconds = (Date.now() - t0) / 1000;
  R.targets = targets().map((t) => ({ id: t.id, text: t.text, reason: t.reason, ...t.compute(R) }));
  fs.writeFileSync(path.join(work, 'last-run.json'), JSON.stringify(R, null, 1));
  const md = report.markdown(R);
  process.stdout.write(`${report.console(R)}\n`);
  if (o.write && !o.filter) {
    fs.writeFileSync(path.join(__dirname, 'RESULTS.md'), md);
    log('wrote bench/RESULTS.md');
  } else {
    fs.writeFileSync(path.join(work, 'RESULTS.partial.md'), md);
    log('wrote bench/.work/RESULTS.partial.md (a filtered run does not replace RESULTS.md)');
  }
}

main().catch((err) => {
  log(err && err.stack || String(err));
  process.exitCode = 1;
});
