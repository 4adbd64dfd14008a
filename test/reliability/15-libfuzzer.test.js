'use strict';
// The libFuzzer targets of test/fuzz/targets, a few seconds each, when clang is
// installed (skipped with a message otherwise). The first run configures and
// builds build-fuzz/ (KEYLOOM_LIBFUZZER_DIR overrides), which takes a while.
const test = require('node:test');
const assert = require('node:assert/strict');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { libfuzzer } = require('../fuzz/libfuzzer');
const { root } = require('../helpers/paths');

const haveClang = spawnSync('sh', ['-c', 'command -v clang++']).status === 0;

test('libFuzzer targets: hashing, routing, address parsing, replies, kl_server_add, a hostile server', {
  skip: haveClang ? false : 'clang++ is not installed: libFuzzer targets skipped',
  timeout: 900000,
}, () => {
  const lines = [];
  const r = libfuzzer({ seconds: Number(process.env.KEYLOOM_LIBFUZZER_SECONDS || 4),
    buildDir: process.env.KEYLOOM_LIBFUZZER_DIR || path.join(root, 'build-fuzz') }, (l) => { lines.push(l); console.log(l); });
  assert.ok(r.ok, lines.join('\n'));
  // Every target builds and runs: a target that stopped compiling fails here.
  assert.deepEqual(r.results.map((x) => x.target).sort(), ['fuzz_cidr', 'fuzz_hash', 'fuzz_hostile_server', 'fuzz_reply', 'fuzz_server_add']);
});
