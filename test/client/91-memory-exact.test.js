'use strict';
// A million set/get pairs through the exact layer, with fresh cells every time,
// read with the readers and released with kl_free_php_reply_p and the delete_
// functions, leave process memory flat.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, kl } = require('./support.js');
const { measure, MB, RSS_LIMIT_MB } = require('./memory.js');

test('a million set/get through cells and readers keep rss and external memory flat', { timeout: 600000 }, async (t) => {
  const [s] = await servers(1);
  const client = kl.kl_client_create(kl.KL_HASH_DEFAULT, kl.KL_DISTRIBUTION_CONSISTENT, kl.new_mm(), kl.KL_FLAG_NONE);
  assert.notEqual(client, null);
  try {
    assert.equal(kl.server_add(client, s.host, s.port, '_NL_'), kl.KL_SUCCESS);
    const r = await measure({ total: 1_000_000, capMs: 180_000, every: 20_000 }, (i) => {
      const key = `key:${i % 1000}`;
      const value = `value:${i}`;
      const rc = kl.kl_set(client, key, key.length, value, value.length, 0);
      if (rc !== kl.KL_SUCCESS) throw new Error(`kl_set gave ${rc}`);
      const cell = kl.new_charpp();
      const length = kl.new_ulongp();
      try {
        const got = kl.kl_get_whole(client, key, key.length, cell, length, '', 0);
        if (got !== kl.KL_SUCCESS) throw new Error(`kl_get_whole gave ${got}`);
        if (kl.charpp_value(cell, length) !== value) throw new Error(`wrong value for ${key}`);
      } finally {
        kl.kl_free_php_reply_p(cell);
        kl.delete_charpp(cell);
        kl.delete_ulongp(length);
      }
    });
    const growth = { rss: (r.late.rss - r.early.rss) / MB, external: (r.late.external - r.early.external) / MB };
    t.diagnostic(`pairs ${r.done}; early ${JSON.stringify(r.early)}; late ${JSON.stringify(r.late)}`);
    assert.ok(r.early.n > 0 && r.late.n > 0, 'both windows have samples');
    assert.ok(growth.rss < RSS_LIMIT_MB, `rss grew by ${growth.rss.toFixed(1)} MB over ${r.done} set/get pairs`);
    assert.ok(growth.external < 4, `external memory grew by ${growth.external.toFixed(1)} MB`);
  } finally {
    kl.kl_client_destroy(client);
  }
});
