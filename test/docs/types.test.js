'use strict';
// The declarations: index.d.ts declares exactly the exports of the built addon, and
// test/docs/typed-example.ts (both layers, with deliberate mistakes marked
// @ts-expect-error) passes `tsc --noEmit`.
const test = require('node:test');
const assert = require('node:assert/strict');
const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');
const paths = require('../helpers/paths.js');
const { documentedCounts } = require('../addon/signatures');

// The TypeScript of the lock file's 5.x line and the current major (typescript7).
for (const compiler of ['typescript', 'typescript7']) {
  const tsc = path.join(paths.root, 'node_modules', compiler, 'bin', 'tsc');
  const check = (config) => spawnSync(process.execPath, [tsc, '--noEmit', '-p', path.join(__dirname, config)],
    { cwd: paths.root, encoding: 'utf8' });

  test(`typed-example.ts type-checks against both layers' declarations (${compiler})`, () => {
    const r = check('tsconfig.json');
    assert.equal(r.status, 0, r.stdout + r.stderr);
  });

  test(`a project that names no types of its own type-checks too (${compiler})`, () => {
    const r = check('tsconfig.user.json');
    assert.equal(r.status, 0, r.stdout + r.stderr);
  });
}

test('index.d.ts declares every export of keyloom.node and nothing else', () => {
  const dts = fs.readFileSync(path.join(paths.root, 'js', 'exact', 'index.d.ts'), 'utf8');
  const declared = [...dts.matchAll(/^export declare (?:const|function) (\w+)/gm)].map((m) => m[1]);
  const exported = Object.keys(require(paths.addonPath));
  assert.equal(exported.length, documentedCounts.exports);
  assert.deepEqual([...declared].sort(), [...exported].sort());
});

test('the constants in index.d.ts have the values the addon exports', () => {
  const dts = fs.readFileSync(path.join(paths.root, 'js', 'exact', 'index.d.ts'), 'utf8');
  const kl = require(paths.addonPath);
  const constants = [...dts.matchAll(/^export declare const (\w+): (-?\d+);/gm)];
  assert.equal(constants.length, documentedCounts.constants);
  for (const [, name, value] of constants) assert.equal(kl[name], Number(value), name);
});

// The declarations of a client's members: the commands both clients share
// (Commands<M> in index.d.ts) and the class's own.
function declaredMembers(file) {
  const client = fs.readFileSync(path.join(paths.root, 'js', 'client', 'index.d.ts'), 'utf8');
  const own = fs.readFileSync(path.join(paths.root, 'js', 'client', file), 'utf8');
  return client.slice(client.indexOf('export interface Commands<M extends Mode>'), client.indexOf('export interface KeyloomClient')) +
    own.slice(own.indexOf('export declare class KeyloomClient'));
}

for (const [module, file] of [['keyloom/client', 'index.d.ts'], ['keyloom/promises', 'promises.d.ts']]) {
  test(`${file} declares every public method of ${module}`, () => {
    process.env.KEYLOOM_BUILD_DIR = paths.buildDir;
    const { KeyloomClient } = require(module);
    const body = declaredMembers(file);
    const methods = Object.getOwnPropertyNames(KeyloomClient.prototype).filter((n) => n !== 'constructor');
    for (const m of methods) assert.match(body, new RegExp(`\\n  (readonly )?${m}[<(:?]`), `${file} lacks ${m}`);
  });
}

test('the README and the types say what quit() and close() each do, and to keep one client per process', () => {
  const readme = fs.readFileSync(path.join(paths.root, 'README.md'), 'utf8');
  assert.match(readme, /One client per process/);
  assert.match(readme, /`quit\(\)` closes the connections only: the client stays usable/);
  assert.match(readme, /`close\(\)` ends the client for good/);
  const dts = fs.readFileSync(path.join(paths.root, 'js', 'client', 'index.d.ts'), 'utf8');
  assert.match(dts, /Closes the connections only \(QUIT\): the client stays usable[^]*?\*\/\n\s+quit\(\): Out<M, true>;/);
  assert.match(dts, /Ends the client for good[^]*?\*\/\n\s+close\(\): void;/);
});
