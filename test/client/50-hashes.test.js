'use strict';
// Hashes through the idiomatic client.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, client } = require('./support.js');

let db;
test.before(async () => {
  db = client(await servers(1));
});
test.beforeEach(() => db.flushdb());

test('hset and hget; a missing field or key reads as null', () => {
  db.hset('h', 'f', 'v');
  assert.equal(db.hget('h', 'f'), 'v');
  assert.equal(db.hget('h', 'nope'), null);
  assert.equal(db.hget('nokey', 'f'), null);
});

test('hset with ttl gives the hash a time to live', () => {
  db.hset('ht', 'f', 'v', { ttl: 100 });
  assert.ok(db.ttl('ht') > 0);
});

test('hsetnx writes only a missing field', () => {
  assert.equal(db.hsetnx('h', 'f', '1'), true);
  assert.equal(db.hsetnx('h', 'f', '2'), false);
  assert.equal(db.hget('h', 'f'), '1');
});

test('hmset and hmget, null for missing fields', () => {
  db.hmset('h', { a: '1', b: '2' });
  db.hmset('h', [['c', '3']]);
  assert.deepEqual(db.hmget('h', ['c', 'x', 'a']), ['3', null, '1']);
  assert.deepEqual(db.hmget('h', []), []);
});

test('hgetall returns an object; {} for a missing key', () => {
  db.hmset('h', { name: 'Ada', lang: 'ünï' });
  assert.deepEqual(db.hgetall('h'), { name: 'Ada', lang: 'ünï' });
  assert.deepEqual(db.hgetall('missing'), {});
  assert.deepEqual(db.hgetall('h', { buffer: true }), { name: Buffer.from('Ada'), lang: Buffer.from('ünï') });
});

test('a field named __proto__ is an ordinary property of the hgetall object', () => {
  db.hset('p', '__proto__', 'x');
  const all = db.hgetall('p');
  assert.equal(Object.getPrototypeOf(all), Object.prototype);
  assert.deepEqual(Object.keys(all), ['__proto__']);
});

test('mhmget reads the same fields from several keys', () => {
  db.hmset('u1', { a: '1', b: '2' });
  db.hmset('u2', { a: '3' });
  assert.deepEqual(db.mhmget(['u1', 'u2'], ['a', 'b']), [['1', '2'], ['3', null]]);
});

test('hdel of one field (true/false) or several (a count); hexists; hlen', () => {
  db.hmset('h', { a: '1', b: '2', c: '3' });
  assert.equal(db.hlen('h'), 3);
  assert.equal(db.hexists('h', 'a'), true);
  assert.equal(db.hdel('h', 'a'), true);
  assert.equal(db.hdel('h', 'a'), false);
  assert.equal(db.hexists('h', 'a'), false);
  assert.equal(db.hdel('h', ['b', 'c', 'd']), 2);
  assert.equal(db.hlen('h'), 0);
});

test('hincrby returns the new value', () => {
  assert.equal(db.hincrby('h', 'n', 5), 5);
  assert.equal(db.hincrby('h', 'n', -7), -2);
});
