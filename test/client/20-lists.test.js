'use strict';
// Lists through the idiomatic client.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, forEachKind } = require('./support.js');

forEachKind(async (kind) => {
  const db = kind.client(await servers(1));
  test.beforeEach(async () => { await db.flushdb(); });

  test('rpush appends and lpush prepends, one value or several in turn', async () => {
    await db.rpush('l', 'b');
    await db.rpush('l', ['c', 'd']);
    await db.lpush('l', 'a');
    await db.lpush('l', ['y', 'z']);
    assert.deepEqual(await db.lrange('l', 0, -1), ['z', 'y', 'a', 'b', 'c', 'd']);
    assert.deepEqual(await db.lrange('l'), ['z', 'y', 'a', 'b', 'c', 'd']);
    assert.deepEqual(await db.lrange('l', 1, 2), ['y', 'a']);
    assert.deepEqual(await db.lrange('missing'), []);
  });

  test('a push with ttl gives the list a time to live', async () => {
    await db.rpush('lt', 'x', { ttl: 100 });
    assert.ok(await db.ttl('lt') > 0);
  });

  test('llen counts; lindex reads by position, null out of range', async () => {
    await db.rpush('l', ['a', 'b', 'c']);
    assert.equal(await db.llen('l'), 3);
    assert.equal(await db.llen('missing'), 0);
    assert.equal(await db.lindex('l', 0), 'a');
    assert.equal(await db.lindex('l', -1), 'c');
    assert.equal(await db.lindex('l', 10), null);
    assert.deepEqual(await db.lindex('l', 1, { buffer: true }), Buffer.from('b'));
  });

  test('lset replaces an element', async () => {
    await db.rpush('l', ['a', 'b']);
    await db.lset('l', 1, 'B');
    assert.deepEqual(await db.lrange('l'), ['a', 'B']);
  });

  test('lrem removes and counts matching elements', async () => {
    await db.rpush('l', ['x', 'y', 'x', 'x']);
    assert.equal(await db.lrem('l', 2, 'x'), 2);
    assert.deepEqual(await db.lrange('l'), ['y', 'x']);
    assert.equal(await db.lrem('l', 0, 'nope'), 0);
  });

  test('lpop and rpop take from either end; null on an empty list', async () => {
    await db.rpush('l', ['a', 'b', 'c']);
    assert.equal(await db.lpop('l'), 'a');
    assert.equal(await db.rpop('l'), 'c');
    assert.equal(await db.rpop('l'), 'b');
    assert.equal(await db.lpop('l'), null);
    assert.equal(await db.rpop('missing'), null);
  });

  test('ltrim keeps a range', async () => {
    await db.rpush('l', ['a', 'b', 'c', 'd']);
    await db.ltrim('l', 1, 2);
    assert.deepEqual(await db.lrange('l'), ['b', 'c']);
  });

  test('list elements keep UTF-8 text intact', async () => {
    await db.rpush('u', ['ünï', '日本']);
    assert.deepEqual(await db.lrange('u'), ['ünï', '日本']);
  });
});
