'use strict';
// Sorted sets, with scores and values, through the idiomatic client.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, client } = require('./support.js');

let db;
test.before(async () => {
  db = client(await servers(1));
});
test.beforeEach(() => {
  db.flushdb();
  db.zadd('z', [{ member: 'a', score: 1 }, { member: 'b', score: 2.5 }, { member: 'c', score: 3 }]);
});

test('zrange lists members by rank; withScores gives { member, score }', () => {
  assert.deepEqual(db.zrange('z', 0, -1), ['a', 'b', 'c']);
  assert.deepEqual(db.zrange('z'), ['a', 'b', 'c']);
  assert.deepEqual(db.zrange('z', 0, 1, { withScores: true }),
    [{ member: 'a', score: 1 }, { member: 'b', score: 2.5 }]);
  assert.deepEqual(db.zrange('z', 0, 0, { withScores: true, reverse: true }), [{ member: 'c', score: 3 }]);
  assert.deepEqual(db.zrange('missing'), []);
});

test('zadd of one member, with ttl', () => {
  db.zadd('z2', 7, 'x', { ttl: 100 });
  assert.equal(db.zscore('z2', 'x'), 7);
  assert.ok(db.ttl('z2') > 0);
});

test('zrangebyscore selects by score, reverse lists from the top', () => {
  assert.deepEqual(db.zrangebyscore('z', 2, 3), ['b', 'c']);
  assert.deepEqual(db.zrangebyscore('z', -Infinity, Infinity, { withScores: true, reverse: true }),
    [{ member: 'c', score: 3 }, { member: 'b', score: 2.5 }, { member: 'a', score: 1 }]);
});

test('zscore, zrank (and reverse), zcard, zcount', () => {
  assert.equal(db.zscore('z', 'b'), 2.5);
  assert.equal(db.zscore('z', 'nope'), null);
  assert.equal(db.zrank('z', 'a'), 0);
  assert.equal(db.zrank('z', 'a', { reverse: true }), 2);
  assert.equal(db.zrank('z', 'nope'), null);
  assert.equal(db.zcard('z'), 3);
  assert.equal(db.zcount('z', 2, 3), 2);
  assert.equal(db.zcount('z'), 3);
});

test('zincrby returns the new score', () => {
  assert.equal(db.zincrby('z', 2, 'a'), 3);
  assert.equal(db.zincrby('z', 1.5, 'new'), 1.5);
});

test('zrem removes one member or several; zremrangebyscore and zremrangebyrank count', () => {
  assert.equal(db.zrem('z', 'a'), true);
  assert.equal(db.zrem('z', 'a'), false);
  assert.equal(db.zrem('z', ['b', 'x']), 1);
  db.zadd('r', [{ member: 'p', score: 1 }, { member: 'q', score: 2 }, { member: 'r', score: 3 }, { member: 's', score: 4 }]);
  assert.equal(db.zremrangebyscore('r', 1, 2), 2);
  assert.equal(db.zremrangebyrank('r', 0, 0), 1);
  assert.deepEqual(db.zrange('r'), ['s']);
});

test('members with values: zaddval, zadd entries with values, zscore withValue, zrange withValues', () => {
  db.zaddval('zv', 10, 'm1', 'v1');
  db.zadd('zv', [{ member: 'm2', score: 20, value: 'v2' }]);
  db.zadd('zv', 30, 'm3');
  assert.deepEqual(db.zscore('zv', 'm1', { withValue: true }), { score: 10, value: 'v1' });
  assert.deepEqual(db.zscore('zv', 'm3', { withValue: true }), { score: 30, value: null });
  assert.deepEqual(db.zrange('zv', 0, 1, { withScores: true, withValues: true }),
    [{ member: 'm1', score: 10, value: 'v1' }, { member: 'm2', score: 20, value: 'v2' }]);
});

test('zaddvalmax raises a score only when higher', () => {
  assert.equal(db.zaddvalmax('zm', 5, 'm', 'five'), true);
  assert.equal(db.zaddvalmax('zm', 3, 'm', 'three'), false);
  assert.deepEqual(db.zscore('zm', 'm', { withValue: true }), { score: 5, value: 'five' });
  assert.equal(db.zaddvalmax('zm', 8, 'm', 'eight'), true);
  assert.deepEqual(db.zscore('zm', 'm', { withValue: true }), { score: 8, value: 'eight' });
});

test('zaddmaxinc keeps the n highest members', () => {
  db.zaddmaxinc('z', 2);
  assert.deepEqual(db.zrange('z'), ['b', 'c']);
});

test('zadddis evicts neighbours within a distance and returns the first evicted', () => {
  db.zadd('zd', 10, 'ten');
  assert.equal(db.zadddis('zd', 11, 'eleven', 2), 'ten');
  assert.deepEqual(db.zrange('zd'), ['eleven']);
  assert.equal(db.zadddis('zd', 50, 'fifty', 2), null);
});
