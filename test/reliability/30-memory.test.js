'use strict';
// A million operations through the exact layer against a live server (cells,
// arrays, writes, reads, reply release, text readers): the process's resident
// memory stays flat after warm-up. Bounded in time as well as in count.
const test = require('node:test');
const assert = require('node:assert/strict');
const { startRedis } = require('../../scripts/local-redis');
const { addonPath } = require('../helpers/paths');

const k = require(addonPath);
const OPS = Number(process.env.KEYLOOM_MEMORY_OPS || 1000000);
const SECONDS = Number(process.env.KEYLOOM_MEMORY_SECONDS || 150);
const { underSanitizer } = require('../helpers/sanitizer');

test('a million operations keep the memory flat after warm-up', { timeout: (SECONDS + 60) * 1000 }, async () => {
  const server = await startRedis();
  const c = k.kl_client_create(k.KL_HASH_DEFAULT, k.KL_DISTRIBUTION_CONSISTENT, null, k.KL_FLAG_NONE);
  try {
    assert.equal(k.kl_server_add(c, '127.0.0.1', server.port, ''), k.KL_SUCCESS);
    let ops = 0;
    const samples = [];
    const started = Date.now();
    const value = 'v'.repeat(100);
    let i = 0;
    while (ops < OPS && Date.now() - started < SECONDS * 1000) {
      // one round: 25 addon calls
      const key = `mem:${i % 1000}`;
      const cell = k.new_charpp();
      const len = k.new_ulongp();
      assert.equal(k.kl_set(c, key, key.length, value, value.length, 0), k.KL_SUCCESS);
      assert.equal(k.kl_get_whole(c, key, key.length, cell, len, '', 0), k.KL_SUCCESS);
      assert.equal(k.charpp_value(cell, len).length, 100);
      k.kl_free_php_reply_p(cell);
      const keys = k.new_charp_array(3);
      const lens = k.new_ulong_array(3);
      for (let j = 0; j < 3; j++) { k.charp_array_set(keys, j, key, key.length); k.ulong_array_set(lens, j, key.length); }
      const out = k.new_charppp();
      const count = k.new_ulongp();
      const outLens = k.new_ulongpp();
      assert.equal(k.kl_mget_whole(c, keys, 3, lens, out, count, outLens, '', 0, k.KL_NULL_ON_FAIL), k.KL_SUCCESS);
      assert.equal(k.charppp_value(out, outLens, 2).length, 100);
      k.kl_free_php_reply_pp(out, 3);
      k.kl_free_php_reply_p(k.ulongpp_to_charpp(outLens));
      k.delete_charp_array(keys, 3);
      k.delete_ulong_array(lens);
      k.delete_charppp(out);
      k.delete_ulongp(count);
      k.delete_ulongpp(outLens);
      k.delete_charpp(cell);
      k.delete_ulongp(len);
      k.kl_strerror(i & 0xff);
      ops += 25;
      i++;
      if (i % 4000 === 0) {
        if (global.gc) global.gc();
        samples.push({ ops, rss: process.memoryUsage().rss });
      }
    }
    console.log(`memory: ${ops} operations in ${((Date.now() - started) / 1000).toFixed(1)} s; rss (MB) ${samples.map((s) => (s.rss / 2 ** 20).toFixed(1)).join(' ')}`);
    assert.ok(samples.length >= 4, `too few samples (${ops} operations)`);
    // after warm-up (the first quarter of the samples), growth stays small
    const warm = samples[Math.floor(samples.length / 4)].rss;
    const last = samples[samples.length - 1].rss;
    const limit = (underSanitizer ? 64 : 16) * 2 ** 20;
    assert.ok(last - warm < limit, `resident memory grew by ${((last - warm) / 2 ** 20).toFixed(1)} MB after warm-up`);
  } finally {
    k.kl_client_destroy(c);
    await server.stop();
  }
});
