'use strict';
// Hashes through the idiomatic client.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, forEachKind } = require('./support.js');

forEachKind(async (kind) => {
  const db = kind.client(await servers(1));
  test.beforeEach(async () => { await db.flushdb(); });

  test('hset and hget; a missing field or key reads as null', async () => {
    await db.hset('h', 'f', 'v');
    assert.equal(await db.hget('h', 'f'), 'v');
    assert.equal(await db.hget('h', 'nope'), null);
    assert.equal(await db.hget('nokey', 'f'), null);
  });

  test('hset with ttl gives the hash a time to live', async () => {
    await db.hset('ht', 'f', 'v', { ttl: 100 });
    assert.ok(await db.ttl('ht') > 0);
  });

  test('hsetnx writes only a missing field', async () => {
    assert.equal(await db.hsetnx('h', 'f', '1'), true);
    assert.equal(await db.hsetnx('h', 'f', '2'), false);
    assert.equal(await db.hget('h', 'f'), '1');
  });

  test('hmset and hmget, null for missing fields', async () => {
    await db.hmset('h', { a: '1', b: '2' });
    await db.hmset('h', [['c', '3']]);
    assert.deepEqual(await db.hmget('h', ['c', 'x', 'a']), ['3', null, '1']);
    assert.deepEqual(await db.hmget('h', []), []);
  });

  test('hgetall returns an object; {} for a missing key', async () => {
    await db.hmset('h', { name: 'Ada', lang: 'ünï' });
    assert.deepEqual(await db.hgetall('h'), { name: 'Ada', lang: 'ünï' });
    assert.deepEqual(await db.hgetall('missing'), {});
    assert.deepEqual(await db.hgetall('h', { buffer: true }), { name: Buffer.from('Ada'), lang: Buffer.from('ünï') });
  });

  test('a field named __proto__ is an ordinary property of the hgetall object', async () => {
    await db.hset('p', '__proto__', 'x');
    const all = await db.hgetall('p');
    assert.equal(Object.getPrototypeOf(all), Object.prototype);
    assert.deepEqual(Object.keys(all), ['__proto__']);
  });

  test('mhmget reads the same fields from several keys', async () => {
    await db.hmset('u1', { a: '1', b: '2' });
    await db.hmset('u2', { a: '3' });
    assert.deepEqual(await db.mhmget(['u1', 'u2'], ['a', 'b']), [['1', '2'], ['3', null]]);
  });

  test('hdel of one field (true/false) or several (a count); hexists; hlen', async () => {
    await db.hmset('h', { a: '1', b: '2', c: '3' });
    assert.equal(await db.hlen('h'), 3);
    assert.equal(await db.hexists('h', 'a'), true);
    assert.equal(await db.hdel('h', 'a'), true);
    assert.equal(await db.hdel('h', 'a'), false);
    assert.equal(await db.hexists('h', 'a'), false);
    assert.equal(await db.hdel('h', ['b', 'c', 'd']), 2);
    assert.equal(await db.hlen('h'), 0);
  });

  test('hincrby returns the new value', async () => {
    assert.equal(await db.hincrby('h', 'n', 5), 5);
    assert.equal(await db.hincrby('h', 'n', -7), -2);
  });
});
