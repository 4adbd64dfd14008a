'use strict';
// Hash commands end to end through the addon; multi-key reads over two servers.
const test = require('node:test');
const assert = require('node:assert/strict');
const { addon, startCluster, stringArray, readMany } = require('../helpers/cluster');
const { readPairs, readOne, readNumber } = require('../helpers/collections');

test('hashes through the addon', async (t) => {
  const cluster = await startCluster({ servers: 2 });
  t.after(() => cluster.stop());
  const { client } = cluster;

  await t.test('fields and values read back byte for byte', () => {
    const text = 'field value: <>&"\' 42';
    assert.equal(addon.kl_hset(client, 'h', 1, 'f', 1, text, text.length, 60), addon.KL_SUCCESS);
    assert.deepEqual(readOne((v, l) => addon.kl_hget(client, 'h', 1, 'f', 1, v, l)), { code: addon.KL_SUCCESS, value: text });
    assert.deepEqual(readOne((v, l) => addon.kl_hget_whole(client, 'h', 1, 'f', 1, v, l, '', 0)), { code: addon.KL_SUCCESS, value: text });
    assert.equal(readOne((v, l) => addon.kl_hget(client, 'h', 1, 'g', 1, v, l)).code, addon.KL_NOTFOUND);
    assert.equal(addon.kl_hsetnx(client, 'h', 1, 'f', 1, 'x', 1, 0), addon.KL_ALREADY_EXISTS);
    assert.equal(addon.kl_hexists(client, 'h', 1, 'f', 1), addon.KL_SUCCESS);
    assert.deepEqual(readNumber('int', (n) => addon.kl_hincrby(client, 'h', 1, 'n', 1, 5, n, 0)), { code: addon.KL_SUCCESS, value: 5 });
    assert.deepEqual(readNumber('int', (n) => addon.kl_hlen(client, 'h', 1, n)), { code: addon.KL_SUCCESS, value: 2 });
  });

  await t.test('many fields at once', () => {
    const f = stringArray(['a', 'b', 'c']);
    const v = stringArray(['1', '2', '3']);
    const ask = stringArray(['c', 'zz', 'a']);
    try {
      assert.equal(addon.kl_hmset(client, 'm', 1, f.array, 3, f.lens, v.array, v.lens, 0), addon.KL_SUCCESS);
      assert.deepEqual(
        readMany((vals, c, l) => addon.kl_hmget(client, 'm', 1, ask.array, 3, ask.lens, vals, c, l)),
        { code: addon.KL_SUCCESS, values: ['3', null, '1'] },
      );
      assert.deepEqual(
        readMany((vals, c, l) => addon.kl_hmget_whole(client, 'm', 1, ask.array, 1, ask.lens, vals, c, l, '', 0)),
        { code: addon.KL_SUCCESS, values: ['3'] },
      );
      const all = readPairs({ second: true }, (c) => addon.kl_hgetall(client, 'm', 1, c.count, c.first, c.firstLens, c.second, c.secondLens));
      assert.equal(all.code, addon.KL_SUCCESS);
      assert.deepEqual(all.first.map((k, i) => k + all.second[i]).sort(), ['a1', 'b2', 'c3']);
      assert.deepEqual(readNumber('int', (n) => addon.kl_hmdel(client, 'm', 1, ask.array, 3, ask.lens, n)), { code: addon.KL_SUCCESS, value: 2 });
      assert.equal(addon.kl_hdel(client, 'm', 1, 'b', 1), addon.KL_SUCCESS);
      assert.equal(addon.kl_hdel(client, 'm', 1, 'b', 1), addon.KL_NOTFOUND);
    } finally {
      f.free();
      v.free();
      ask.free();
    }
  });

  await t.test('the same fields over keys on both servers, in the caller order', () => {
    const keys = [];
    for (let i = 0; i < 6; i++) {
      keys.push(`k${i}`);
      assert.equal(addon.kl_hset(client, keys[i], keys[i].length, 'x', 1, `x${i}`, 2, 0), addon.KL_SUCCESS);
    }
    keys.push('absent');
    const k = stringArray(keys);
    const f = stringArray(['x', 'y']);
    try {
      const want = [];
      for (let i = 0; i < 6; i++) want.push(`x${i}`, null);
      want.push(null, null);
      assert.deepEqual(
        readMany((vals, c, l) => addon.kl_mhmget(client, k.array, keys.length, k.lens, f.array, 2, f.lens, vals, c, l)),
        { code: addon.KL_SUCCESS, values: want },
      );
      assert.equal(
        readMany((vals, c, l) => addon.kl_mhmget_whole(client, k.array, keys.length, k.lens, f.array, 2, f.lens, vals, c, l, 'r', 1)).code,
        addon.KL_SUCCESS,
      );
    } finally {
      k.free();
      f.free();
    }
  });

  await t.test('wrong type and invalid arguments come back as codes', () => {
    assert.equal(addon.kl_set(client, 'str', 3, 'x', 1, 0), addon.KL_SUCCESS);
    assert.equal(addon.kl_hset(client, 'str', 3, 'f', 1, 'v', 1, 0), addon.KL_SERVER_ERROR);
    assert.equal(addon.kl_hlen(client, 'h', 1, null), addon.KL_INVALID_PARAMETER);
    assert.equal(addon.kl_mhmget(client, null, 1, null, null, 1, null, null, null, null), addon.KL_INVALID_PARAMETER);
  });
});
