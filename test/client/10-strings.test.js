'use strict';
// Strings and keys through the idiomatic client: values, conditional writes,
// counters, TTLs, multi-key commands, key listing and administration.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, client, keyloom } = require('./support.js');

let db;
test.before(async () => {
  const list = await servers(1);
  db = client(list);
});
test.beforeEach(() => db.flushdb());

test('set then get returns the value; a missing key reads as null', () => {
  assert.equal(db.set('a', 'alpha'), true);
  assert.equal(db.get('a'), 'alpha');
  assert.equal(db.get('missing'), null);
});

test('text values round-trip as UTF-8, keys too', () => {
  db.set('clé', 'naïve ☃ 𝄞');
  assert.equal(db.get('clé'), 'naïve ☃ 𝄞');
  assert.deepEqual(db.get('clé', { buffer: true }), Buffer.from('naïve ☃ 𝄞'));
  assert.deepEqual(db.getBuffer('clé'), Buffer.from('naïve ☃ 𝄞'));
});

test('an empty value is stored and read back as the empty string', () => {
  db.set('empty', '');
  assert.equal(db.get('empty'), '');
  assert.equal(db.exists('empty'), true);
});

test('numbers are accepted as keys and values and read back as text', () => {
  db.set(42, 3.5);
  assert.equal(db.get('42'), '3.5');
});

test('set with ttl sets a time to live; expire, persist and ttl agree', () => {
  db.set('t', 'v', { ttl: 100 });
  const ttl = db.ttl('t');
  assert.ok(ttl > 0 && ttl <= 100, `ttl ${ttl}`);
  assert.equal(db.persist('t'), true);
  assert.equal(db.ttl('t'), -1);
  assert.equal(db.expire('t', 50), true);
  assert.ok(db.ttl('t') > 0 && db.ttl('t') <= 50);
  assert.equal(db.ttl('missing'), null);
  assert.equal(db.expire('missing', 5), false);
});

test('setnx writes only a missing key; setifx only an existing one', () => {
  assert.equal(db.setnx('n', 'first'), true);
  assert.equal(db.setnx('n', 'second'), false);
  assert.equal(db.get('n'), 'first');
  assert.equal(db.setifx('x', 'v'), false);
  assert.equal(db.get('x'), null);
  assert.equal(db.setifx('n', 'third'), true);
  assert.equal(db.get('n'), 'third');
  assert.equal(db.set('n', 'fourth', { nx: true }), false);
  assert.equal(db.set('y', 'v', { xx: true }), false);
});

test('append adds to the end of the value (and creates a missing key)', () => {
  db.append('ap', 'one');
  db.append('ap', '-two');
  assert.equal(db.get('ap'), 'one-two');
});

test('getset returns the old value and stores the new one; null when there was none', () => {
  assert.equal(db.getset('g', 'v1'), null);
  assert.equal(db.getset('g', 'v2'), 'v1');
  assert.equal(db.get('g'), 'v2');
});

test('mset and mget keep the callers order, null for missing keys', () => {
  db.mset({ m1: 'one', m2: 'two' });
  db.mset([['m3', 'three']]);
  db.mset(new Map([['m4', 'four']]));
  assert.deepEqual(db.mget(['m4', 'nope', 'm1', 'm3', 'm2']), ['four', null, 'one', 'three', 'two']);
  assert.deepEqual(db.mget([]), []);
  assert.deepEqual(db.mget(['m1'], { buffer: true }), [Buffer.from('one')]);
});

test('mset with ttl gives every key a time to live', () => {
  db.mset({ e1: 'a', e2: 'b' }, { ttl: 100 });
  assert.ok(db.ttl('e1') > 0);
  assert.ok(db.ttl('e2') > 0);
  assert.deepEqual(db.mget(['e1', 'e2']), ['a', 'b']);
});

test('del counts what existed, for one key and for many', () => {
  db.mset({ d1: '1', d2: '2', d3: '3' });
  assert.equal(db.del('d1'), 1);
  assert.equal(db.del('d1'), 0);
  assert.equal(db.del(['d2', 'd3', 'd4']), 2);
  assert.equal(db.del([]), 0);
  assert.equal(db.exists('d2'), false);
});

test('counters: incr, incrby, decr, decrby return the new value', () => {
  assert.equal(db.incr('c'), 1);
  assert.equal(db.incrby('c', 10), 11);
  assert.equal(db.decr('c'), 10);
  assert.equal(db.decrby('c', 4), 6);
  assert.equal(db.incrby('c', -10), -4);
  assert.equal(db.get('c'), '-4');
});

test('a counter ttl applies when the counter is created, not afterwards', () => {
  db.incr('ct', { ttl: 100 });
  assert.ok(db.ttl('ct') > 0);
  db.set('plain', '5');
  db.incr('plain', { ttl: 100 });
  assert.equal(db.ttl('plain'), -1);
});

test('type names the kind of value; none for a missing key', () => {
  db.set('s', 'v');
  db.rpush('l', 'x');
  db.sadd('st', 'x');
  db.zadd('z', 1, 'x');
  db.hset('h', 'f', 'v');
  assert.deepEqual(['s', 'l', 'st', 'z', 'h', 'zz'].map((k) => db.type(k)),
    ['string', 'list', 'set', 'zset', 'hash', 'none']);
});

test('rename moves the value; renamenx refuses an existing target', () => {
  db.set('r1', 'v');
  db.rename('r1', 'r2');
  assert.equal(db.get('r1'), null);
  assert.equal(db.get('r2'), 'v');
  db.set('r3', 'other');
  assert.equal(db.renamenx('r2', 'r3'), false);
  assert.equal(db.renamenx('r2', 'r4'), true);
  assert.equal(db.get('r4'), 'v');
});

test('keys, dbsize and randomkey see what is stored', () => {
  db.mset({ 'k:1': 'a', 'k:2': 'b', other: 'c' });
  assert.deepEqual(db.keys('k:*').sort(), ['k:1', 'k:2']);
  assert.deepEqual(db.keys().sort(), ['k:1', 'k:2', 'other']);
  assert.equal(db.dbsize(), 3);
  assert.ok(['k:1', 'k:2', 'other'].includes(db.randomkey()));
  db.flushdb();
  assert.equal(db.dbsize(), 0);
  assert.equal(db.randomkey(), null);
});

test('flushall empties every database', () => {
  db.set('f', 'v');
  db.select(1);
  db.set('f1', 'v');
  db.select(0);
  assert.equal(db.flushall(), true);
  assert.equal(db.get('f'), null);
  db.select(1);
  assert.equal(db.get('f1'), null);
  db.select(0);
});

test('select switches databases and move carries a key over', () => {
  db.set('mv', 'v');
  assert.equal(db.move('mv', 2), true);
  assert.equal(db.get('mv'), null);
  db.select(2);
  assert.equal(db.get('mv'), 'v');
  db.flushdb();
  db.select(0);
  assert.equal(db.move('missing', 2), false);
});

test('info gives one text per server; configGet and configSet read and write settings', () => {
  const info = db.info();
  assert.equal(info.length, 1);
  assert.match(info[0], /redis_version:/);
  assert.equal(db.configSet('maxmemory-policy', 'allkeys-lru'), true);
  assert.deepEqual(db.configGet('maxmemory-policy'), { 'maxmemory-policy': 'allkeys-lru' });
  db.configSet('maxmemory-policy', 'noeviction');
});

test('save and bgsave succeed', () => {
  assert.equal(db.save(), true);
  assert.equal(db.bgsave(), true);
});

test('sort orders, limits and stores', () => {
  db.rpush('nums', ['3', '1', '2']);
  assert.deepEqual(db.sort('nums'), ['1', '2', '3']);
  assert.deepEqual(db.sort('nums', { desc: true, limit: { offset: 0, count: 2 } }), ['3', '2']);
  db.rpush('words', ['pear', 'apple', 'fig']);
  assert.deepEqual(db.sort('words', { alpha: true }), ['apple', 'fig', 'pear']);
  assert.equal(db.sort('nums', { store: 'nums:sorted' }), 3);
  assert.deepEqual(db.lrange('nums:sorted'), ['1', '2', '3']);
});

test('the library version is major.minor.patch', () => {
  assert.match(keyloom.version, /^\d+\.\d+\.\d+$/);
});
