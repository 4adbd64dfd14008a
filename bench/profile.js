#!/usr/bin/env node
'use strict';
// Instruction profile of one contender on one workload, with valgrind's
// callgrind (repeatable, unlike timings on a shared machine). Starts its own
// redis-server, loads the same data as run.js, runs bench/worker.js under
// callgrind for a fixed count, prints the top functions.
//   node bench/profile.js WORKLOAD_ID [CONTENDER] [OPS] [--cpu N] [--build-dir DIR]
//   e.g. node bench/profile.js mget-100-s1 exact 2000
const { execFileSync } = require('node:child_process');
const path = require('node:path');
const { startRedis } = require('../scripts/local-redis');
const { workloads } = require('./workloads');
const { send } = require('./lib/fill');
const K = require('./lib/keys');

async function main() {
  const args = process.argv.slice(2);
  const opt = (name, dflt) => { const i = args.indexOf(name); return i >= 0 ? args.splice(i, 2)[1] : dflt; };
  const cpu = opt('--cpu', '1');
  const buildDir = path.resolve(opt('--build-dir', path.join(__dirname, '..', 'build-bench')));
  const [id, contender = 'exact', ops = '2000'] = args;
  const w = workloads().find((x) => x.id === id);
  if (!w) throw new Error(`no workload ${id}`);
  const servers = [];
  try {
    for (let i = 0; i < w.servers; i++) {
      const s = await startRedis();
      servers.push(s);
      execFileSync('taskset', ['-pc', cpu, String(s.pid)], { stdio: 'ignore' });
    }
    const data = [];
    for (const size of [3, 1024]) for (let i = 0; i < 1000; i++) data.push(['SET', K.strKey(size) + i, K.valueOf(size)]);
    for (let i = 0; i < K.HASH_FIELDS; i++) data.push(['HSET', K.HASH_KEY, `field:${i}`, K.valueOf(16)]);
    for (let i = 0; i < K.ZSET_MEMBERS; i++) data.push(['ZADD', K.ZSET_KEY, String(i * 1.5), `member:${i}`]);
    await Promise.all(servers.map((s) => send(s.port, data)));
    const c = w.contenders.find((x) => x.contender === contender) || { contender };
    const task = { contender: c.contender, variant: c.variant, workload: { ...w, kind: c.kind || w.kind, contenders: undefined },
      ports: servers.map((s) => s.port), buildDir, benchDir: path.join(buildDir, 'bench'),
      durationMs: 600000, maxOps: Number(ops), warmupOps: 100 };
    const out = path.join(__dirname, '.work', `callgrind.${id}.${contender}.out`);
    execFileSync('taskset', ['-c', cpu, 'valgrind', '--tool=callgrind', `--callgrind-out-file=${out}`,
      process.execPath, path.join(__dirname, 'worker.js'), JSON.stringify(task)], { stdio: ['ignore', 'inherit', 'ignore'], timeout: 600000 });
    const top = execFileSync('callgrind_annotate', ['--inclusive=no', out], { maxBuffer: 64 << 20 }).toString()
      .split('\n').filter((l) => /^\s*[\d,]+ \(/.test(l)).slice(0, 30);
    process.stdout.write(`${top.map((l) => l.slice(0, 200)).join('\n')}\n(${out}; divide by ${Number(ops) + 100} for per-operation counts)\n`);
  } finally {
    await Promise.all(servers.map((s) => s.stop()));
  }
}

main().catch((err) => { process.stderr.write(`${err.stack || err}\n`); process.exitCode = 1; });
