'use strict';
// Lists through the idiomatic client.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, client } = require('./support.js');

let db;
test.before(async () => {
  db = client(await servers(1));
});
test.beforeEach(() => db.flushdb());

test('rpush appends and lpush prepends, one value or several in turn', () => {
  db.rpush('l', 'b');
  db.rpush('l', ['c', 'd']);
  db.lpush('l', 'a');
  db.lpush('l', ['y', 'z']);
  assert.deepEqual(db.lrange('l', 0, -1), ['z', 'y', 'a', 'b', 'c', 'd']);
  assert.deepEqual(db.lrange('l'), ['z', 'y', 'a', 'b', 'c', 'd']);
  assert.deepEqual(db.lrange('l', 1, 2), ['y', 'a']);
  assert.deepEqual(db.lrange('missing'), []);
});

test('a push with ttl gives the list a time to live', () => {
  db.rpush('lt', 'x', { ttl: 100 });
  assert.ok(db.ttl('lt') > 0);
});

test('llen counts; lindex reads by position, null out of range', () => {
  db.rpush('l', ['a', 'b', 'c']);
  assert.equal(db.llen('l'), 3);
  assert.equal(db.llen('missing'), 0);
  assert.equal(db.lindex('l', 0), 'a');
  assert.equal(db.lindex('l', -1), 'c');
  assert.equal(db.lindex('l', 10), null);
  assert.deepEqual(db.lindex('l', 1, { buffer: true }), Buffer.from('b'));
});

test('lset replaces an element', () => {
  db.rpush('l', ['a', 'b']);
  db.lset('l', 1, 'B');
  assert.deepEqual(db.lrange('l'), ['a', 'B']);
});

test('lrem removes and counts matching elements', () => {
  db.rpush('l', ['x', 'y', 'x', 'x']);
  assert.equal(db.lrem('l', 2, 'x'), 2);
  assert.deepEqual(db.lrange('l'), ['y', 'x']);
  assert.equal(db.lrem('l', 0, 'nope'), 0);
});

test('lpop and rpop take from either end; null on an empty list', () => {
  db.rpush('l', ['a', 'b', 'c']);
  assert.equal(db.lpop('l'), 'a');
  assert.equal(db.rpop('l'), 'c');
  assert.equal(db.rpop('l'), 'b');
  assert.equal(db.lpop('l'), null);
  assert.equal(db.rpop('missing'), null);
});

test('ltrim keeps a range', () => {
  db.rpush('l', ['a', 'b', 'c', 'd']);
  db.ltrim('l', 1, 2);
  assert.deepEqual(db.lrange('l'), ['b', 'c']);
});

test('list elements keep UTF-8 text intact', () => {
  db.rpush('u', ['ünï', '日本']);
  assert.deepEqual(db.lrange('u'), ['ünï', '日本']);
});
