'use strict';
// Dictionary commands end to end through the addon: words with values and
// weights, and prefix completion.
const test = require('node:test');
const assert = require('node:assert/strict');
const { addon, startCluster, stringArray } = require('../helpers/cluster');
const { readPairs, readOne, readNumber } = require('../helpers/collections');

test('dictionaries through the addon', async (t) => {
  const cluster = await startCluster();
  t.after(() => cluster.stop());
  const { client } = cluster;
  const close = (prefix) =>
    readPairs({ second: true }, (c) =>
      addon.kl_dclose(client, 'd', 1, prefix, prefix.length, c.count, c.first, c.firstLens, c.second, c.secondLens));

  await t.test('words complete heaviest first, then in byte order', () => {
    assert.equal(addon.kl_dadd(client, 'd', 1, 'car', 3, 'a car', 5, 10, 60), addon.KL_SUCCESS);
    assert.equal(addon.kl_dadd(client, 'd', 1, 'cat', 3, 'a cat', 5, 30, 0), addon.KL_SUCCESS);
    const words = stringArray(['cab', 'cup', 'dog']);
    const values = stringArray(['a cab', 'a cup', 'a dog']);
    try {
      assert.deepEqual(
        readNumber('int', (n) => addon.kl_dmadd(client, 'd', 1, words.array, 3, words.lens, values.array, values.lens, 10, n, 0)),
        { code: addon.KL_SUCCESS, value: 3 },
      );
    } finally {
      words.free();
      values.free();
    }
    assert.deepEqual(close('ca'), { code: addon.KL_SUCCESS, first: ['cat', 'cab', 'car'], second: ['a cat', 'a cab', 'a car'], scores: [] });
    assert.equal(close('x').code, addon.KL_NOTFOUND);
    const all = readPairs({ second: true }, (c) =>
      addon.kl_dgetall_whole(client, 'd', 1, c.count, c.first, c.firstLens, c.second, c.secondLens, '', 0));
    assert.deepEqual(all.first, ['cat', 'cab', 'car', 'cup', 'dog']);
    const routed = readPairs({ second: false }, (c) =>
      addon.kl_dclose_whole(client, 'd', 1, 'cu', 2, c.count, c.first, c.firstLens, null, null, 'd', 1));
    assert.deepEqual(routed.first, ['cup']);
    assert.equal(
      readPairs({ second: true }, (c) => addon.kl_dgetall(client, 'd', 1, c.count, c.first, c.firstLens, c.second, c.secondLens)).first.length,
      5,
    );
  });

  await t.test('get and remove', () => {
    assert.deepEqual(readOne((v, l) => addon.kl_dget(client, 'd', 1, 'dog', 3, v, l)), { code: addon.KL_SUCCESS, value: 'a dog' });
    assert.deepEqual(readOne((v, l) => addon.kl_dget_whole(client, 'd', 1, 'cat', 3, v, l, '', 0)), { code: addon.KL_SUCCESS, value: 'a cat' });
    assert.equal(addon.kl_drem(client, 'd', 1, 'dog', 3), addon.KL_SUCCESS);
    assert.equal(addon.kl_drem(client, 'd', 1, 'dog', 3), addon.KL_NOTFOUND);
    assert.equal(readOne((v, l) => addon.kl_dget(client, 'd', 1, 'dog', 3, v, l)).code, addon.KL_NOTFOUND);
  });

  await t.test('wrong type and invalid arguments come back as codes', () => {
    assert.equal(addon.kl_set(client, 'str', 3, 'x', 1, 0), addon.KL_SUCCESS);
    assert.equal(addon.kl_dadd(client, 'str', 3, 'w', 1, 'v', 1, 1, 0), addon.KL_SERVER_ERROR);
    assert.equal(addon.kl_dget(client, 'd', 1, 'w', 1, null, null), addon.KL_INVALID_PARAMETER);
    assert.equal(addon.kl_dgetall(null, 'd', 1, null, null, null, null, null), addon.KL_INVALID_CLIENT);
  });
});
