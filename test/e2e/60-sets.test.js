'use strict';
// Set commands, with member values and CIDR lookups, end to end through the
// addon; unions over two servers.
const test = require('node:test');
const assert = require('node:assert/strict');
const { addon, startCluster, stringArray, readMany } = require('../helpers/cluster');
const { readPairs, readOne, readNumber } = require('../helpers/collections');

test('sets through the addon', async (t) => {
  const cluster = await startCluster({ servers: 2 });
  t.after(() => cluster.stop());
  const { client } = cluster;
  const members = (key, flags) =>
    readPairs({ second: flags === addon.SET_WITH_VALUES }, (c) =>
      addon.kl_smembers_whole(client, key, key.length, c.first, c.count, c.firstLens, '', 0, flags, c.second, c.secondLens));

  await t.test('members and values read back', () => {
    const value = 'value with spaces & symbols !?';
    assert.equal(addon.kl_saddval(client, 's', 1, 'a', 1, value, value.length, 60), addon.KL_SUCCESS);
    assert.equal(addon.kl_sadd(client, 's', 1, 'b', 1, 0), addon.KL_SUCCESS);
    assert.deepEqual(readOne((v, l) => addon.kl_sval_whole(client, 's', 1, 'a', 1, v, l, '', 0)), {
      code: addon.KL_SUCCESS,
      value,
    });
    assert.deepEqual(readOne((v, l) => addon.kl_sval_whole(client, 's', 1, 'b', 1, v, l, '', 0)), {
      code: addon.KL_SET_EMPTY_VALUE,
      value: null,
    });
    const all = members('s', addon.SET_WITH_VALUES);
    assert.equal(all.code, addon.KL_SUCCESS);
    const pairs = all.first.map((m, i) => [m, all.second[i]]).sort();
    assert.deepEqual(pairs, [['a', value], ['b', null]]);
    assert.deepEqual(members('s', addon.SET_DEFAULT).first.sort(), ['a', 'b']);
    assert.deepEqual(readNumber('uint', (n) => addon.kl_scard(client, 's', 1, n)), { code: addon.KL_SUCCESS, value: 2 });
    assert.equal(addon.kl_sismember(client, 's', 1, 'a', 1), addon.KL_SUCCESS);
    assert.equal(addon.kl_sismemberval(client, 's', 1, 'a', 1), addon.KL_SUCCESS);
    assert.equal(addon.kl_sismemberval(client, 's', 1, 'b', 1), addon.KL_SET_EMPTY_VALUE);
    assert.equal(addon.kl_sismemberval(client, 's', 1, 'z', 1), addon.KL_NOTFOUND);
    assert.equal(addon.kl_sismemberval(client, 'none', 4, 'a', 1), addon.KL_NO_SET_KEY);
    assert.equal(addon.kl_srem(client, 's', 1, 'a', 1), addon.KL_SUCCESS);
    assert.equal(addon.kl_srem(client, 's', 1, 'a', 1), addon.KL_NOTFOUND);
    assert.deepEqual(readOne((v, l) => addon.kl_spop_whole(client, 's', 1, v, l, '', 0)), {
      code: addon.KL_SUCCESS,
      value: 'b',
    });
    assert.equal(readOne((v, l) => addon.kl_spop_whole(client, 's', 1, v, l, '', 0)).code, addon.KL_NOTFOUND);
  });

  await t.test('the most specific network answers for an address', () => {
    for (const [net, value] of [['10.0.0.0/8', 'wide'], ['10.1.0.0/16', 'narrow'], ['2001:db8::/32', 'six']]) {
      assert.equal(addon.kl_saddval(client, 'nets', 4, net, net.length, value, value.length, 0), addon.KL_SUCCESS);
    }
    const lookup = (ip) => readOne((v, l) => addon.kl_svalfromip(client, 'nets', 4, ip, ip.length, v, l));
    assert.deepEqual(lookup('10.1.2.3'), { code: addon.KL_SUCCESS, value: 'narrow' });
    assert.deepEqual(lookup('10.2.2.3'), { code: addon.KL_SUCCESS, value: 'wide' });
    assert.deepEqual(lookup('2001:db8::42'), { code: addon.KL_SUCCESS, value: 'six' });
    assert.equal(lookup('192.0.2.1').code, addon.KL_NO_SUBNET);
    assert.equal(lookup('not an ip').code, addon.KL_INVALID_PARAMETER);
  });

  await t.test('union and union-store span both servers', () => {
    const keys = [];
    for (let i = 0; i < 8; i++) {
      keys.push(`u${i}`);
      assert.equal(addon.kl_sadd(client, keys[i], keys[i].length, `m${i % 3}`, 2, 0), addon.KL_SUCCESS);
    }
    const k = stringArray(keys);
    try {
      assert.deepEqual(
        readMany((v, c, l) => addon.kl_sunion_whole(client, k.array, keys.length, k.lens, v, c, l, '', 0, addon.KL_NULL_ON_FAIL)),
        { code: addon.KL_SUCCESS, values: ['m0', 'm1', 'm2'] },
      );
      assert.equal(addon.kl_sunionstore(client, 'dest', 4, k.array, keys.length, k.lens, addon.KL_BEST_EFFORT_ON_FAIL, 60), addon.KL_SUCCESS);
      assert.deepEqual(members('dest', addon.SET_DEFAULT).first.sort(), ['m0', 'm1', 'm2']);
      assert.equal(addon.kl_sunion_whole(client, k.array, 0, k.lens, null, null, null, '', 0, addon.KL_NULL_ON_FAIL), addon.KL_INVALID_PARAMETER);
    } finally {
      k.free();
    }
  });
});
