'use strict';
// Strings and keys through the addon, over one and four servers.
const test = require('node:test');
const assert = require('node:assert/strict');
const { addon, startCluster, getValue, stringArray, readMany } = require('../helpers/cluster');

for (const servers of [1, 4]) {
  test(`strings and keys over ${servers} server(s)`, async (t) => {
    const cluster = await startCluster({ servers });
    t.after(() => cluster.stop());
    const { client } = cluster;

    await t.test('set and get read back byte for byte', () => {
      const text = 'The quick brown fox ~!@#$%^&*()_+{}|:"<>?';
      assert.equal(addon.kl_set(client, 'ascii', 5, text, text.length, 0), addon.KL_SUCCESS);
      assert.deepEqual(getValue(client, 'ascii'), { code: addon.KL_SUCCESS, value: text });
      assert.equal(getValue(client, 'absent').code, addon.KL_NOTFOUND);
      assert.equal(addon.kl_get_whole(client, 'ascii', 5, null, null, '', 0), addon.KL_INVALID_PARAMETER);
    });

    await t.test('set_binary keeps one byte per character', () => {
      assert.equal(addon.kl_set_binary(client, 'bin', 3, 'caf\u00e9', 4, 0), addon.KL_SUCCESS);
      assert.equal(getValue(client, 'bin').value, 'caf\u00e9');
    });

    await t.test('conditional sets, append, getset', () => {
      assert.equal(addon.kl_setifx(client, 'c', 1, 'x', 1, 0), addon.KL_NOTFOUND);
      assert.equal(addon.kl_setnx(client, 'c', 1, 'x', 1, 60), addon.KL_SUCCESS);
      assert.equal(addon.kl_setnx(client, 'c', 1, 'y', 1, 0), addon.KL_ALREADY_EXISTS);
      assert.equal(addon.kl_append(client, 'c', 1, 'yz', 2, 0), addon.KL_SUCCESS);
      assert.equal(getValue(client, 'c').value, 'xyz');
      const old = addon.new_charpp();
      const oldLen = addon.new_ulongp();
      assert.equal(addon.kl_getset_whole(client, 'c', 1, 'new', 3, old, oldLen, '', 0), addon.KL_SUCCESS);
      assert.equal(addon.charpp_value(old, oldLen), 'xyz');
      addon.kl_free_php_reply_p(old);
      addon.delete_charpp(old);
      addon.delete_ulongp(oldLen);
    });

    await t.test('mset and mget keep the order, missing keys are null', () => {
      const keys = Array.from({ length: 20 }, (_, i) => `mk${i}`);
      const vals = keys.map((k) => `value of ${k}`);
      const k = stringArray(keys);
      const v = stringArray(vals);
      assert.equal(addon.kl_mset(client, k.array, keys.length, k.lens, v.array, v.lens), addon.KL_SUCCESS);
      k.free();
      v.free();
      const asked = keys.map((key, i) => (i % 3 === 0 ? `no-${key}` : key));
      const a = stringArray(asked);
      const got = readMany((values, count, lens) =>
        addon.kl_mget_whole(client, a.array, asked.length, a.lens, values, count, lens, '', 0, addon.KL_NULL_ON_FAIL));
      const none = readMany((values, count, lens) =>
        addon.kl_mget_whole(client, a.array, 0, a.lens, values, count, lens, '', 0, addon.KL_NULL_ON_FAIL));
      assert.equal(none.code, addon.KL_INVALID_PARAMETER);
      a.free();
      assert.equal(got.code, addon.KL_SUCCESS);
      assert.deepEqual(got.values, asked.map((key, i) => (i % 3 === 0 ? null : vals[i])));
    });

    await t.test('counters, ttl, exists, del, mdel, type, rename', () => {
      const n = addon.new_intp();
      assert.equal(addon.kl_incrby(client, 'n', 1, 5, n, 100), addon.KL_SUCCESS);
      assert.equal(addon.intp_value(n), 5);
      assert.equal(addon.kl_decr(client, 'n', 1, n, 0), addon.KL_SUCCESS);
      assert.equal(addon.intp_value(n), 4);
      assert.equal(addon.kl_get_ttl(client, 'n', 1, n), addon.KL_SUCCESS);
      assert.ok(addon.intp_value(n) > 90);
      assert.equal(addon.kl_set_ttl(client, 'n', 1, 0), addon.KL_SUCCESS);
      assert.equal(addon.kl_get_ttl(client, 'n', 1, n), addon.KL_SUCCESS);
      assert.equal(addon.intp_value(n), -1);

      assert.equal(addon.kl_exists(client, 'n', 1), addon.KL_SUCCESS);
      assert.equal(addon.kl_rename(client, 'n', 1, 'renamed', 7), addon.KL_SUCCESS);
      assert.equal(getValue(client, 'renamed').value, '4');
      assert.equal(addon.kl_del(client, 'renamed', 7), addon.KL_SUCCESS);
      assert.equal(addon.kl_del(client, 'renamed', 7), addon.KL_NOTFOUND);

      const type = addon.new_charpp();
      assert.equal(addon.kl_type(client, 'ascii', 5, type), addon.KL_SUCCESS);
      const len = addon.new_ulongp();
      assert.equal(addon.charpp_value(type, len), 'string');
      addon.kl_free_php_reply_p(type);
      addon.delete_charpp(type);
      addon.delete_ulongp(len);

      const d = stringArray(['ascii', 'bin', 'nothing']);
      assert.equal(addon.kl_mdel(client, d.array, 3, d.lens, n), addon.KL_SUCCESS);
      assert.equal(addon.intp_value(n), 2);
      d.free();
      addon.delete_intp(n);
    });
  });
}
