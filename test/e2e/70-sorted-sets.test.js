'use strict';
// Sorted-set commands, with member values, end to end through the addon.
const test = require('node:test');
const assert = require('node:assert/strict');
const { addon, startCluster, stringArray } = require('../helpers/cluster');
const { readPairs, readOne, readNumber } = require('../helpers/collections');

test('sorted sets through the addon', async (t) => {
  const cluster = await startCluster();
  t.after(() => cluster.stop());
  const { client } = cluster;
  const want = (flags) => ({
    second: (flags & addon.ZSET_WITH_VALUES) !== 0,
    scores: (flags & addon.ZSET_WITH_SCORES) !== 0,
  });
  const byRank = (start, stop, flags) =>
    readPairs(want(flags), (c) =>
      addon.kl_zrange_whole(client, 'z', 1, start, stop, c.first, c.count, c.firstLens, '', 0, flags, c.scores, c.second, c.secondLens));
  const byScore = (min, max, flags) =>
    readPairs(want(flags), (c) =>
      addon.kl_zrangebyscore(client, 'z', 1, min, max, c.first, c.count, c.firstLens, flags, c.scores, c.second, c.secondLens));

  await t.test('many members with scores and values read back', () => {
    const names = ['a', 'b', 'c'];
    const values = ['value of a', '', 'value of c'];
    const m = stringArray(names);
    const v = stringArray(values);
    const scores = addon.new_double_array(3);
    [1.5, 2, 3].forEach((s, i) => addon.double_array_set(scores, i, s));
    try {
      assert.equal(addon.kl_zmaddval(client, 'z', 1, scores, m.array, 3, m.lens, v.array, v.lens, 60), addon.KL_SUCCESS);
    } finally {
      m.free();
      v.free();
      addon.delete_double_array(scores);
    }
    const all = byRank(0, -1, addon.ZSET_WITH_SCORES | addon.ZSET_WITH_VALUES);
    assert.deepEqual(all, { code: addon.KL_SUCCESS, first: names, second: ['value of a', null, 'value of c'], scores: [1.5, 2, 3] });
    assert.deepEqual(byRank(0, 2, addon.ZSET_REVERSE | addon.ZSET_WITH_LIMIT).first, ['c', 'b']);
    assert.deepEqual(byScore(2, 3, addon.ZSET_WITH_SCORES).scores, [2, 3]);
    assert.deepEqual(byScore(1, 2, addon.ZSET_REVERSE | addon.ZSET_WITH_VALUES).second, [null, 'value of a']);
    assert.equal(byScore(10, 20, addon.ZSET_DEFAULT).code, addon.KL_NOTFOUND);
  });

  await t.test('score, rank, counts and increments', () => {
    const score = addon.new_doublep();
    try {
      const got = readOne((v, l) => addon.kl_zscore(client, 'z', 1, 'c', 1, score, v, l));
      assert.deepEqual(got, { code: addon.KL_SUCCESS, value: 'value of c' });
      assert.equal(addon.doublep_value(score), 3);
      assert.equal(addon.kl_zincrby(client, 'z', 1, 'a', 1, 0.25, score, 0), addon.KL_SUCCESS);
      assert.equal(addon.doublep_value(score), 1.75);
    } finally {
      addon.delete_doublep(score);
    }
    const rank = addon.new_uintp();
    try {
      const got = readOne((v, l) => addon.kl_zrank(client, 'z', 1, 'a', 1, rank, addon.ZSET_REVERSE | addon.ZSET_WITH_VALUES, v, l));
      assert.deepEqual(got, { code: addon.KL_SUCCESS, value: 'value of a' });
      assert.equal(addon.uintp_value(rank), 2);
    } finally {
      addon.delete_uintp(rank);
    }
    assert.deepEqual(readNumber('uint', (n) => addon.kl_zcard(client, 'z', 1, n)), { code: addon.KL_SUCCESS, value: 3 });
    assert.deepEqual(readNumber('uint', (n) => addon.kl_zcount(client, 'z', 1, 2, 3, n)), { code: addon.KL_SUCCESS, value: 2 });
  });

  await t.test('value-max, displacing add, trims and removals', () => {
    assert.equal(addon.kl_zaddval(client, 'z', 1, 5, 'e', 1, 'e1', 2, 0), addon.KL_SUCCESS);
    assert.equal(addon.kl_zaddvalmax(client, 'z', 1, 'e', 1, 'low', 3, 4, 0), addon.KL_ALREADY_EXISTS);
    assert.equal(addon.kl_zaddvalmax(client, 'z', 1, 'e', 1, 'high', 4, 6, 0), addon.KL_SUCCESS);
    assert.deepEqual(byRank(-1, -1, addon.ZSET_WITH_VALUES).second, ['high']);
    // kl_zadddis has no length cell: the evicted member is read by its NUL (length 0 = measure).
    const evicted = addon.new_charpp();
    const measure = addon.new_ulongp();
    try {
      addon.ulongp_assign(measure, 0);
      assert.equal(addon.kl_zadddis(client, 'z', 1, 2.5, 'mid', 3, 0.5, evicted, 0), addon.KL_SUCCESS);
      assert.equal(addon.charpp_value(evicted, measure), 'b');
      addon.kl_free_php_reply_p(evicted);
    } finally {
      addon.delete_charpp(evicted);
      addon.delete_ulongp(measure);
    }
    assert.deepEqual(byRank(0, -1, addon.ZSET_DEFAULT).first, ['a', 'mid', 'e']);  // c at 3 was within 0.5 too
    assert.equal(addon.kl_zaddmaxinc(client, 'z', 1, 2, 0), addon.KL_SUCCESS);
    assert.deepEqual(byRank(0, -1, addon.ZSET_DEFAULT).first, ['mid', 'e']);
    assert.deepEqual(readNumber('uint', (n) => addon.kl_zremrangebyscore(client, 'z', 1, 0, 3, n)), { code: addon.KL_SUCCESS, value: 1 });
    assert.equal(addon.kl_zadd(client, 'z', 1, 1, 'x', 1, 0), addon.KL_SUCCESS);
    assert.deepEqual(readNumber('uint', (n) => addon.kl_zremrangebyrank(client, 'z', 1, 0, 0, n)), { code: addon.KL_SUCCESS, value: 1 });
    assert.equal(addon.kl_zrem(client, 'z', 1, 'e', 1), addon.KL_SUCCESS);
    assert.equal(addon.kl_zrem(client, 'z', 1, 'e', 1), addon.KL_NOTFOUND);
    const m = stringArray(['p', 'q']);
    const scores = addon.new_double_array(2);
    addon.double_array_set(scores, 0, 1);
    addon.double_array_set(scores, 1, 2);
    try {
      assert.equal(addon.kl_zmadd(client, 'z', 1, scores, m.array, 2, m.lens, 0), addon.KL_SUCCESS);
      assert.deepEqual(readNumber('int', (n) => addon.kl_zmrem(client, 'z', 1, m.array, 2, m.lens, n)), { code: addon.KL_SUCCESS, value: 2 });
    } finally {
      m.free();
      addon.delete_double_array(scores);
    }
  });

  await t.test('wrong type and invalid arguments come back as codes', () => {
    assert.equal(addon.kl_set(client, 'str', 3, 'x', 1, 0), addon.KL_SUCCESS);
    assert.equal(addon.kl_zadd(client, 'str', 3, 1, 'm', 1, 0), addon.KL_SERVER_ERROR);
    assert.equal(addon.kl_zadd(client, 'z', 1, NaN, 'm', 1, 0), addon.KL_INVALID_PARAMETER);
    assert.equal(addon.kl_zrange(client, 'z', 1, 0, -1, null, null, null, 0, null, null, null), addon.KL_INVALID_PARAMETER);
  });
});
