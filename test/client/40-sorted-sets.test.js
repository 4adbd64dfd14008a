'use strict';
// Sorted sets, with scores and values, through the idiomatic client.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, forEachKind } = require('./support.js');

forEachKind(async (kind) => {
  const db = kind.client(await servers(1));
  test.beforeEach(async () => {
    await db.flushdb();
    await db.zadd('z', [{ member: 'a', score: 1 }, { member: 'b', score: 2.5 }, { member: 'c', score: 3 }]);
  });

  test('zrange lists members by rank; withScores gives { member, score }', async () => {
    assert.deepEqual(await db.zrange('z', 0, -1), ['a', 'b', 'c']);
    assert.deepEqual(await db.zrange('z'), ['a', 'b', 'c']);
    assert.deepEqual(await db.zrange('z', 0, 1, { withScores: true }),
      [{ member: 'a', score: 1 }, { member: 'b', score: 2.5 }]);
    assert.deepEqual(await db.zrange('z', 0, 0, { withScores: true, reverse: true }), [{ member: 'c', score: 3 }]);
    assert.deepEqual(await db.zrange('missing'), []);
  });

  test('zadd of one member, with ttl', async () => {
    await db.zadd('z2', 7, 'x', { ttl: 100 });
    assert.equal(await db.zscore('z2', 'x'), 7);
    assert.ok(await db.ttl('z2') > 0);
  });

  test('zrangebyscore selects by score, reverse lists from the top', async () => {
    assert.deepEqual(await db.zrangebyscore('z', 2, 3), ['b', 'c']);
    assert.deepEqual(await db.zrangebyscore('z', -Infinity, Infinity, { withScores: true, reverse: true }),
      [{ member: 'c', score: 3 }, { member: 'b', score: 2.5 }, { member: 'a', score: 1 }]);
  });

  test('zscore, zrank (and reverse), zcard, zcount', async () => {
    assert.equal(await db.zscore('z', 'b'), 2.5);
    assert.equal(await db.zscore('z', 'nope'), null);
    assert.equal(await db.zrank('z', 'a'), 0);
    assert.equal(await db.zrank('z', 'a', { reverse: true }), 2);
    assert.equal(await db.zrank('z', 'nope'), null);
    assert.equal(await db.zcard('z'), 3);
    assert.equal(await db.zcount('z', 2, 3), 2);
    assert.equal(await db.zcount('z'), 3);
  });

  test('zincrby returns the new score', async () => {
    assert.equal(await db.zincrby('z', 2, 'a'), 3);
    assert.equal(await db.zincrby('z', 1.5, 'new'), 1.5);
  });

  test('zrem removes one member or several; zremrangebyscore and zremrangebyrank count', async () => {
    assert.equal(await db.zrem('z', 'a'), true);
    assert.equal(await db.zrem('z', 'a'), false);
    assert.equal(await db.zrem('z', ['b', 'x']), 1);
    await db.zadd('r', [{ member: 'p', score: 1 }, { member: 'q', score: 2 }, { member: 'r', score: 3 }, { member: 's', score: 4 }]);
    assert.equal(await db.zremrangebyscore('r', 1, 2), 2);
    assert.equal(await db.zremrangebyrank('r', 0, 0), 1);
    assert.deepEqual(await db.zrange('r'), ['s']);
  });

  test('members with values: zaddval, zadd entries with values, zscore withValue, zrange withValues', async () => {
    await db.zaddval('zv', 10, 'm1', 'v1');
    await db.zadd('zv', [{ member: 'm2', score: 20, value: 'v2' }]);
    await db.zadd('zv', 30, 'm3');
    assert.deepEqual(await db.zscore('zv', 'm1', { withValue: true }), { score: 10, value: 'v1' });
    assert.deepEqual(await db.zscore('zv', 'm3', { withValue: true }), { score: 30, value: null });
    assert.deepEqual(await db.zrange('zv', 0, 1, { withScores: true, withValues: true }),
      [{ member: 'm1', score: 10, value: 'v1' }, { member: 'm2', score: 20, value: 'v2' }]);
  });

  test('zaddvalmax raises a score only when higher', async () => {
    assert.equal(await db.zaddvalmax('zm', 5, 'm', 'five'), true);
    assert.equal(await db.zaddvalmax('zm', 3, 'm', 'three'), false);
    assert.deepEqual(await db.zscore('zm', 'm', { withValue: true }), { score: 5, value: 'five' });
    assert.equal(await db.zaddvalmax('zm', 8, 'm', 'eight'), true);
    assert.deepEqual(await db.zscore('zm', 'm', { withValue: true }), { score: 8, value: 'eight' });
  });

  test('zaddmaxinc keeps the n highest members', async () => {
    await db.zaddmaxinc('z', 2);
    assert.deepEqual(await db.zrange('z'), ['b', 'c']);
  });

  test('zadddis evicts neighbours within a distance and returns the first evicted', async () => {
    await db.zadd('zd', 10, 'ten');
    assert.equal(await db.zadddis('zd', 11, 'eleven', 2), 'ten');
    assert.deepEqual(await db.zrange('zd'), ['eleven']);
    assert.equal(await db.zadddis('zd', 50, 'fifty', 2), null);
  });
});
