'use strict';
// An install that could not build, or did not run its build, says what to do
// in one line instead of a stack trace.
const test = require('node:test');
const assert = require('node:assert/strict');
const { spawnSync } = require('node:child_process');
const path = require('node:path');
const paths = require('../helpers/paths.js');

const run = (args, env) => spawnSync(process.execPath, args, { cwd: paths.root, env, encoding: 'utf8', timeout: 60000 });

test('require without a built addon says how to build it', () => {
  for (const entry of ['keyloom', 'keyloom/client']) {
    const r = run(['-e', `require(${JSON.stringify(entry)})`], { ...process.env, KEYLOOM_BUILD_DIR: path.join(paths.root, 'no-such-build') });
    assert.notEqual(r.status, 0);
    assert.match(r.stderr, /keyloom: addon not built: run `npm rebuild keyloom`/, entry);
  }
});

test('the build names the missing tools and the command that installs them, in one line', () => {
  const r = run([path.join(paths.root, 'scripts', 'build.js'), '--build-dir', path.join(paths.root, 'no-such-build')],
    { ...process.env, PATH: path.join(paths.root, 'no-such-dir') });
  assert.equal(r.status, 1);
  assert.equal(r.stderr.trim().split('\n').length, 1, r.stderr);
  assert.match(r.stderr, /^keyloom: cannot build the addon: cmake, a C\+\+ compiler missing; install with: sudo apt-get install cmake g\+\+$/m);
  assert.doesNotMatch(r.stderr, /\n\s+at /);
});

test('each build setting has a folder of its own, so switching between them never rebuilds the other', () => {
  const { defaultBuildDir } = require('../../scripts/build.js');
  const folders = [defaultBuildDir(false, false), defaultBuildDir(false, true), defaultBuildDir(true, false)];
  assert.deepEqual(folders.map((f) => path.basename(f)), ['build', 'build-strict', 'build-asan']);
  assert.equal(path.basename(paths.buildDir) === 'build' || !!process.env.KEYLOOM_BUILD_DIR, true);
});
