'use strict';
// A short run of the JavaScript fuzzer (test/fuzz/run.js): random calls of all
// exported functions against the library's test double and against the real library
// with two live servers, each batch in a child process. KEYLOOM_FUZZ_SEED and
// KEYLOOM_FUZZ_SECONDS override the seed and the length.
const test = require('node:test');
const assert = require('node:assert/strict');
const { fuzz } = require('../fuzz/run');
const { buildDir } = require('../helpers/paths');

const { underSanitizer } = require('../helpers/sanitizer');

test('the fuzzer finds no crash and no wrong exception or result', { timeout: 300000 }, async () => {
  const seed = process.env.KEYLOOM_FUZZ_SEED !== undefined ? Number(process.env.KEYLOOM_FUZZ_SEED)
    : Math.floor(Math.random() * 2 ** 31);
  const seconds = Number(process.env.KEYLOOM_FUZZ_SECONDS || 25);
  const lines = [];
  const r = await fuzz({ seconds, seed, mode: 'both', buildDir, sanitize: underSanitizer },
    (l) => { lines.push(l); console.log(l); });
  assert.ok(r.ok, lines.join('\n'));
  assert.ok(r.calls > 1000, `only ${r.calls} calls were made`);
});
