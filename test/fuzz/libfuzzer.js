#!/usr/bin/env node
'use strict';
// Builds the libFuzzer targets of test/fuzz/targets with clang in a build
// directory of their own and runs each for a bounded time.
//   node test/fuzz/libfuzzer.js [--seconds N] [--build-dir DIR] [--seed N] [target ...]
// --seconds is per target (default 10). Without clang it prints a message and
// exits 0 (nothing to run). A target that finds a crash leaves its reproducer
// (crash-*) in <build-dir>/fuzz/artifacts and fails the run.
const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');

const root = path.resolve(__dirname, '..', '..');
const TARGETS = ['fuzz_hash', 'fuzz_reply', 'fuzz_server_add', 'fuzz_cidr', 'fuzz_hostile_server'];

// A few well-formed inputs to start each corpus from.
const SEEDS = {
  fuzz_hash: ['\x00\x01\x02\x09localhost\x00\x00key', '\x01\x02\x03\x0a10.0.0.1:1key-1', '\x08\x00\x01'],
  fuzz_reply: ['\x00+OK\r\n', '\x03$3\r\nabc\r\n', '\x00*3\r\n$1\r\na\r\n$-1\r\n:42\r\n', '\x00-ERR x\r\n',
    '\x05*2\r\n*1\r\n+x\r\n$0\r\n\r\n', '\x00:-9223372036854775808\r\n'],
  fuzz_server_add: ['\x00\x01\x00\xeb\x18127.0.0.1\xffa', '\x02\x02\x06\x00\x00\xff\xff', '\x09\x05\x01\xff\xffhost\xffg'],
  fuzz_cidr: ['10.0.0.0/8|10.1.2.3', '::ffff:0:0/96|::ffff:1.2.3.4', '2001:db8::/32|2001:db8::1', '1.2.3.4',
    '0.0.0.0/0|255.255.255.255', 'fe80::1%eth0/64|fe80::1'],
  // a command number, then what the server answers
  fuzz_hostile_server: ['\x00$3\r\nabc\r\n', '\x03*3\r\n$1\r\na\r\n$-1\r\n$1\r\nc\r\n',
    '\x08*3\r\n$1\r\na\r\n$1\r\nb\r\n$1\r\nc\r\n', '\x0c*4\r\n$1\r\na\r\n$1\r\n1\r\n$1\r\nb\r\n$1\r\n2\r\n',
    '\x0d:5\r\n', '\x12$5\r\nhello\r\n', '\x0b*2\r\n*2\r\n$1\r\nm\r\n$1\r\nv\r\n$-1\r\n'],
};

function have(cmd) {
  return spawnSync('sh', ['-c', `command -v ${cmd}`]).status === 0;
}

function configure(buildDir, log) {
  const r = spawnSync('cmake', ['-S', root, '-B', buildDir, '-DCMAKE_BUILD_TYPE=RelWithDebInfo',
    '-DCMAKE_C_COMPILER=clang', '-DCMAKE_CXX_COMPILER=clang++', '-DKEYLOOM_LIBFUZZER=ON',
    '-DKEYLOOM_TESTS=ON', '-DNODE_INCLUDE_DIR=',
    // the library itself is instrumented for coverage and checked by ASan/UBSan
    '-DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer',
    '-DCMAKE_C_FLAGS=-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer'],
  { encoding: 'utf8' });
  if (r.status !== 0) log(r.stdout + r.stderr);
  return r.status === 0;
}

function libfuzzer({ seconds = 10, buildDir = path.join(root, 'build-fuzz'), seed = 1, only = [] } = {}, log = console.log) {
  if (!have('clang++')) {
    log('libfuzzer: clang++ not found: the libFuzzer targets are skipped');
    return { ok: true, skipped: true, results: [] };
  }
  if (!configure(buildDir, log)) return { ok: false, results: [{ target: 'configure', ok: false }] };
  const results = [];
  for (const target of TARGETS.filter((t) => only.length === 0 || only.includes(t))) {
    if (!fs.existsSync(path.join(__dirname, 'targets', `${target}.cc`))) continue;
    const b = spawnSync('cmake', ['--build', buildDir, '--target', target, '-j', '2'], { encoding: 'utf8' });
    if (b.status !== 0) {
      const why = (b.stdout + b.stderr).split('\n').filter((l) => /error/i.test(l)).slice(0, 5).join('\n');
      log(`libfuzzer: ${target}: does not build\n${why}`);
      results.push({ target, ok: false, why });
      continue;
    }
    const corpus = path.join(buildDir, 'fuzz', 'corpus', target);
    const artifacts = path.join(buildDir, 'fuzz', 'artifacts') + path.sep;
    fs.mkdirSync(corpus, { recursive: true });
    fs.mkdirSync(artifacts, { recursive: true });
    (SEEDS[target] || []).forEach((s, i) => fs.writeFileSync(path.join(corpus, `seed-${i}`), Buffer.from(s, 'latin1')));
    const r = spawnSync(path.join(buildDir, 'fuzz', target), [corpus, `-max_total_time=${seconds}`,
      `-seed=${seed}`, '-rss_limit_mb=1024', '-timeout=10', `-artifact_prefix=${artifacts}`, '-print_final_stats=1'],
    { encoding: 'utf8', env: { ...process.env, ASAN_OPTIONS: 'detect_leaks=1', UBSAN_OPTIONS: 'print_stacktrace=1:halt_on_error=1' },
      timeout: (seconds + 60) * 1000 });
    const text = `${r.stdout}${r.stderr}`;
    const runs = (text.match(/stat::number_of_executed_units:\s*(\d+)/) || [])[1];
    const ok = r.status === 0;
    results.push({ target, ok, runs: Number(runs || 0) });
    log(`libfuzzer: ${target}: ${ok ? 'held' : 'FAILED'}, ${runs || '?'} runs in ${seconds} s`);
    if (!ok) log(text.split('\n').slice(-60).join('\n'));
  }
  return { ok: results.every((r) => r.ok), results };
}

module.exports = { libfuzzer };

if (require.main === module) {
  const argv = process.argv.slice(2);
  const opt = (name, def) => {
    const i = argv.indexOf(`--${name}`);
    return i >= 0 ? argv[i + 1] : def;
  };
  const valued = new Set(['--seconds', '--build-dir', '--seed']);
  const only = argv.filter((a, i) => !a.startsWith('--') && !valued.has(argv[i - 1]));
  const r = libfuzzer({ seconds: Number(opt('seconds', '10')), seed: Number(opt('seed', '1')),
    buildDir: path.resolve(opt('build-dir', path.join(root, 'build-fuzz'))), only });
  process.exitCode = r.ok ? 0 : 1;
}
