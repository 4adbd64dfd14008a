'use strict';
// A short chaos run (test/chaos/run.js): two groups of two servers under a
// mixed load while servers are killed, paused and restarted at random; the
// invariants of docs/reliability.md are checked at the end. KEYLOOM_CHAOS_SEED
// and KEYLOOM_CHAOS_SECONDS override the seed and the length.
const test = require('node:test');
const assert = require('node:assert/strict');
const { chaos } = require('../chaos/run');
const { buildDir } = require('../helpers/paths');

const { underSanitizer } = require('../helpers/sanitizer');

test('servers killed, paused and restarted under load: every invariant holds', { timeout: 300000 }, async () => {
  const seed = process.env.KEYLOOM_CHAOS_SEED !== undefined ? Number(process.env.KEYLOOM_CHAOS_SEED)
    : Math.floor(Math.random() * 2 ** 31);
  const seconds = Number(process.env.KEYLOOM_CHAOS_SECONDS || 8);
  const lines = [];
  const r = await chaos({ seconds, seed, buildDir, sanitize: underSanitizer,
    marginMs: underSanitizer ? 1500 : 300 }, (l) => { lines.push(l); console.log(l); });
  assert.ok(r.ok, [...lines, ...r.failures.slice(0, 30)].join('\n'));
  assert.ok(r.stats.clean > 0, 'no write was acknowledged cleanly');
});
