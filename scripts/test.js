#!/usr/bin/env node
'use strict';
// `npm test`: installs what is missing, builds what is stale, runs every suite and
// prints one closing line with the totals.
//   node scripts/test.js [--sanitize] [--build-dir DIR] [suite-name ...]
const { spawnSync, execFileSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { build } = require('./build');
const { sanitizerEnv } = require('../test/helpers/sanitizer.js');

const root = path.resolve(__dirname, '..');
const args = process.argv.slice(2);
const sanitize = args.includes('--sanitize');
const dirIndex = args.indexOf('--build-dir');
const requestedBuildDir = dirIndex >= 0 ? path.resolve(args[dirIndex + 1]) : undefined;
const only = args.filter((a, i) => !a.startsWith('--') && (dirIndex < 0 || i !== dirIndex + 1));

execFileSync('bash', [path.join(__dirname, 'install-deps.sh')], { stdio: 'inherit' });
const buildDir = build({ sanitize, werror: true, buildDir: requestedBuildDir });

// Every suite: a folder of node:test files, or the C++ tests under CTest.
// `double: true` suites run the addon against the test double of the library.
const suites = [
  { name: 'library', ctest: true },
  { name: 'addon', dir: 'test/addon', double: true },
  { name: 'e2e', dir: 'test/e2e' },
  { name: 'client', dir: 'test/client' },
  { name: 'reliability', dir: 'test/reliability' },
  { name: 'docs', dir: 'test/docs' },
];

function testFiles(dir) {
  const abs = path.join(root, dir);
  if (!fs.existsSync(abs)) return [];
  return fs.readdirSync(abs).filter((f) => f.endsWith('.test.js')).sort().map((f) => path.join(abs, f));
}

// allocator_may_return_null: calloc of an impossible count returns null, as
// new_*_array relies on, instead of aborting. No leak check at exit: a cell or
// array still held by a script is referenced from the engine's heap, which
// LeakSanitizer does not scan, so every one would be reported.
// test/addon/95-memory.test.js checks leaks precisely instead (a child that
// frees what it makes), and the library's own tests run with the check on.
const sanitizedEnv = () => (sanitize ? sanitizerEnv(['detect_leaks=0', 'allocator_may_return_null=1']) : {});

function runNodeSuite(suite) {
  const files = testFiles(suite.dir);
  if (files.length === 0) return null;
  const tap = path.join(os.tmpdir(), `keyloom-${suite.name}-${process.pid}.tap`);
  const env = { ...process.env, ...sanitizedEnv(), KEYLOOM_BUILD_DIR: buildDir };
  if (suite.double) env.LD_LIBRARY_PATH = path.join(buildDir, 'double');
  const result = spawnSync(process.execPath, [
    '--expose-gc', '--test', '--test-timeout=600000',
    '--test-reporter=spec', '--test-reporter-destination=stdout',
    '--test-reporter=tap', `--test-reporter-destination=${tap}`,
    ...files,
  ], { cwd: root, env, stdio: 'inherit' });
  const text = fs.existsSync(tap) ? fs.readFileSync(tap, 'utf8') : '';
  fs.rmSync(tap, { force: true });
  const count = (word) => Number((text.match(new RegExp(`^# ${word} (\\d+)$`, 'm')) || [0, 0])[1]);
  return { passed: count('pass'), failed: count('fail') + (result.status === 0 ? 0 : count('fail') === 0 ? 1 : 0) };
}

function runCtest() {
  if (!fs.existsSync(path.join(buildDir, 'CTestTestfile.cmake'))) return null;
  const result = spawnSync('ctest', ['--test-dir', buildDir, '--output-on-failure', '-j', '2'],
    { cwd: root, env: { ...process.env }, encoding: 'utf8' });
  process.stdout.write(result.stdout);
  process.stderr.write(result.stderr);
  const m = result.stdout.match(/(\d+)% tests passed, (\d+) tests failed out of (\d+)/);
  if (!m) return { passed: 0, failed: result.status === 0 ? 0 : 1 };
  return { passed: Number(m[3]) - Number(m[2]), failed: Number(m[2]) };
}

let passed = 0;
let failed = 0;
for (const suite of suites) {
  if (only.length && !only.includes(suite.name)) continue;
  console.log(`\n=== ${suite.name} ===`);
  const r = suite.ctest ? runCtest() : runNodeSuite(suite);
  if (!r) { console.log('(no tests)'); continue; }
  console.log(`=== ${suite.name}: ${r.passed} passed, ${r.failed} failed ===`);
  passed += r.passed;
  failed += r.failed;
}
console.log(`\nkeyloom: ${passed} passed, ${failed} failed`);
process.exit(failed === 0 && passed > 0 ? 0 : 1);
