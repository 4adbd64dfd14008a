'use strict';
// List commands end to end through the addon against a real server.
const test = require('node:test');
const assert = require('node:assert/strict');
const { addon, startCluster, readMany } = require('../helpers/cluster');
const { readOne, readNumber } = require('../helpers/collections');

test('lists through the addon', async (t) => {
  const cluster = await startCluster();
  t.after(() => cluster.stop());
  const { client } = cluster;
  const range = (key, start = 0, stop = -1) =>
    readMany((v, c, l) => addon.kl_lrange_whole(client, key, key.length, start, stop, v, c, l, '', 0));

  await t.test('pushes read back byte for byte in order', () => {
    const text = 'ASCII ~!@#$%^&*()_+{}|:"<>? 0123456789';
    assert.equal(addon.kl_rpush(client, 'l', 1, text, text.length, 0), addon.KL_SUCCESS);
    assert.equal(addon.kl_rpush(client, 'l', 1, 'b', 1, 0), addon.KL_SUCCESS);
    assert.equal(addon.kl_lpush(client, 'l', 1, 'a', 1, 60), addon.KL_SUCCESS);
    assert.deepEqual(range('l'), { code: addon.KL_SUCCESS, values: ['a', text, 'b'] });
    assert.deepEqual(readNumber('uint', (n) => addon.kl_llen(client, 'l', 1, n)), { code: addon.KL_SUCCESS, value: 3 });
    assert.deepEqual(range('none'), { code: addon.KL_NOTFOUND, values: [] });
  });

  await t.test('index, set, remove, trim and pop', () => {
    assert.deepEqual(readOne((v, l) => addon.kl_lindex_whole(client, 'l', 1, -1, v, l, 'l', 1)), {
      code: addon.KL_SUCCESS,
      value: 'b',
    });
    assert.equal(readOne((v, l) => addon.kl_lindex_whole(client, 'l', 1, 10, v, l, '', 0)).code, addon.KL_NOTFOUND);
    assert.equal(addon.kl_lset(client, 'l', 1, 1, 'B', 1, 0), addon.KL_SUCCESS);
    assert.equal(addon.kl_lset(client, 'l', 1, 10, 'B', 1, 0), addon.KL_NOTFOUND);
    assert.equal(addon.kl_rpush(client, 'l', 1, 'a', 1, 0), addon.KL_SUCCESS);
    assert.deepEqual(readNumber('uint', (n) => addon.kl_lrem(client, 'l', 1, 0, 'a', 1, n)), {
      code: addon.KL_SUCCESS,
      value: 2,
    });
    assert.equal(addon.kl_ltrim(client, 'l', 1, 0, 0), addon.KL_SUCCESS);
    assert.deepEqual(readOne((v, l) => addon.kl_rpop_whole(client, 'l', 1, v, l, '', 0)), {
      code: addon.KL_SUCCESS,
      value: 'B',
    });
    assert.equal(readOne((v, l) => addon.kl_lpop_whole(client, 'l', 1, v, l, '', 0)).code, addon.KL_NOTFOUND);
  });

  await t.test('wrong type and invalid arguments come back as codes', () => {
    assert.equal(addon.kl_set(client, 'str', 3, 'x', 1, 0), addon.KL_SUCCESS);
    assert.equal(addon.kl_rpush(client, 'str', 3, 'x', 1, 0), addon.KL_SERVER_ERROR);
    assert.equal(addon.kl_llen(client, 'l', 1, null), addon.KL_INVALID_PARAMETER);
    assert.equal(addon.kl_lpop_whole(client, 'l', 1, null, null, '', 0), addon.KL_INVALID_PARAMETER);
    assert.equal(addon.kl_rpush(null, 'l', 1, 'x', 1, 0), addon.KL_INVALID_CLIENT);
  });
});
