'use strict';
// Strings and keys through the idiomatic client: values, conditional writes,
// counters, TTLs, multi-key commands, key listing and administration.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, forEachKind } = require('./support.js');

forEachKind(async (kind) => {
  const db = kind.client(await servers(1));
  test.beforeEach(async () => { await db.flushdb(); });

  test('set then get returns the value; a missing key reads as null', async () => {
    assert.equal(await db.set('a', 'alpha'), true);
    assert.equal(await db.get('a'), 'alpha');
    assert.equal(await db.get('missing'), null);
  });

  test('text values round-trip as UTF-8, keys too', async () => {
    await db.set('clé', 'naïve ☃ 𝄞');
    assert.equal(await db.get('clé'), 'naïve ☃ 𝄞');
    assert.deepEqual(await db.get('clé', { buffer: true }), Buffer.from('naïve ☃ 𝄞'));
    assert.deepEqual(await db.getBuffer('clé'), Buffer.from('naïve ☃ 𝄞'));
  });

  test('an empty value is stored and read back as the empty string', async () => {
    await db.set('empty', '');
    assert.equal(await db.get('empty'), '');
    assert.equal(await db.exists('empty'), true);
  });

  test('numbers are accepted as keys and values and read back as text', async () => {
    await db.set(42, 3.5);
    assert.equal(await db.get('42'), '3.5');
  });

  test('set with ttl sets a time to live; expire, persist and ttl agree', async () => {
    await db.set('t', 'v', { ttl: 100 });
    const ttl = await db.ttl('t');
    assert.ok(ttl > 0 && ttl <= 100, `ttl ${ttl}`);
    assert.equal(await db.persist('t'), true);
    assert.equal(await db.ttl('t'), -1);
    assert.equal(await db.expire('t', 50), true);
    assert.ok(await db.ttl('t') > 0 && await db.ttl('t') <= 50);
    assert.equal(await db.ttl('missing'), null);
    assert.equal(await db.expire('missing', 5), false);
  });

  test('setnx writes only a missing key; setifx only an existing one', async () => {
    assert.equal(await db.setnx('n', 'first'), true);
    assert.equal(await db.setnx('n', 'second'), false);
    assert.equal(await db.get('n'), 'first');
    assert.equal(await db.setifx('x', 'v'), false);
    assert.equal(await db.get('x'), null);
    assert.equal(await db.setifx('n', 'third'), true);
    assert.equal(await db.get('n'), 'third');
    assert.equal(await db.set('n', 'fourth', { nx: true }), false);
    assert.equal(await db.set('y', 'v', { xx: true }), false);
  });

  test('append adds to the end of the value (and creates a missing key)', async () => {
    await db.append('ap', 'one');
    await db.append('ap', '-two');
    assert.equal(await db.get('ap'), 'one-two');
  });

  test('getset returns the old value and stores the new one; null when there was none', async () => {
    assert.equal(await db.getset('g', 'v1'), null);
    assert.equal(await db.getset('g', 'v2'), 'v1');
    assert.equal(await db.get('g'), 'v2');
  });

  test('mset and mget keep the callers order, null for missing keys', async () => {
    await db.mset({ m1: 'one', m2: 'two' });
    await db.mset([['m3', 'three']]);
    await db.mset(new Map([['m4', 'four']]));
    assert.deepEqual(await db.mget(['m4', 'nope', 'm1', 'm3', 'm2']), ['four', null, 'one', 'three', 'two']);
    assert.deepEqual(await db.mget([]), []);
    assert.deepEqual(await db.mget(['m1'], { buffer: true }), [Buffer.from('one')]);
  });

  test('mset with ttl gives every key a time to live', async () => {
    await db.mset({ e1: 'a', e2: 'b' }, { ttl: 100 });
    assert.ok(await db.ttl('e1') > 0);
    assert.ok(await db.ttl('e2') > 0);
    assert.deepEqual(await db.mget(['e1', 'e2']), ['a', 'b']);
  });

  test('del counts what existed, for one key and for many', async () => {
    await db.mset({ d1: '1', d2: '2', d3: '3' });
    assert.equal(await db.del('d1'), 1);
    assert.equal(await db.del('d1'), 0);
    assert.equal(await db.del(['d2', 'd3', 'd4']), 2);
    assert.equal(await db.del([]), 0);
    assert.equal(await db.exists('d2'), false);
  });

  test('counters: incr, incrby, decr, decrby return the new value', async () => {
    assert.equal(await db.incr('c'), 1);
    assert.equal(await db.incrby('c', 10), 11);
    assert.equal(await db.decr('c'), 10);
    assert.equal(await db.decrby('c', 4), 6);
    assert.equal(await db.incrby('c', -10), -4);
    assert.equal(await db.get('c'), '-4');
  });

  test('a counter ttl applies when the counter is created, not afterwards', async () => {
    await db.incr('ct', { ttl: 100 });
    assert.ok(await db.ttl('ct') > 0);
    await db.set('plain', '5');
    await db.incr('plain', { ttl: 100 });
    assert.equal(await db.ttl('plain'), -1);
  });

  test('type names the kind of value; none for a missing key', async () => {
    await db.set('s', 'v');
    await db.rpush('l', 'x');
    await db.sadd('st', 'x');
    await db.zadd('z', 1, 'x');
    await db.hset('h', 'f', 'v');
    const types = [];
    for (const k of ['s', 'l', 'st', 'z', 'h', 'zz']) types.push(await db.type(k));
    assert.deepEqual(types, ['string', 'list', 'set', 'zset', 'hash', 'none']);
  });

  test('rename moves the value; renamenx refuses an existing target', async () => {
    await db.set('r1', 'v');
    await db.rename('r1', 'r2');
    assert.equal(await db.get('r1'), null);
    assert.equal(await db.get('r2'), 'v');
    await db.set('r3', 'other');
    assert.equal(await db.renamenx('r2', 'r3'), false);
    assert.equal(await db.renamenx('r2', 'r4'), true);
    assert.equal(await db.get('r4'), 'v');
  });

  test('keys, dbsize and randomkey see what is stored', async () => {
    await db.mset({ 'k:1': 'a', 'k:2': 'b', other: 'c' });
    assert.deepEqual((await db.keys('k:*')).sort(), ['k:1', 'k:2']);
    assert.deepEqual((await db.keys()).sort(), ['k:1', 'k:2', 'other']);
    assert.equal(await db.dbsize(), 3);
    assert.ok(['k:1', 'k:2', 'other'].includes(await db.randomkey()));
    await db.flushdb();
    assert.equal(await db.dbsize(), 0);
    assert.equal(await db.randomkey(), null);
  });

  test('flushall empties every database', async () => {
    await db.set('f', 'v');
    await db.select(1);
    await db.set('f1', 'v');
    await db.select(0);
    assert.equal(await db.flushall(), true);
    assert.equal(await db.get('f'), null);
    await db.select(1);
    assert.equal(await db.get('f1'), null);
    await db.select(0);
  });

  test('select switches databases and move carries a key over', async () => {
    await db.set('mv', 'v');
    assert.equal(await db.move('mv', 2), true);
    assert.equal(await db.get('mv'), null);
    await db.select(2);
    assert.equal(await db.get('mv'), 'v');
    await db.flushdb();
    await db.select(0);
    assert.equal(await db.move('missing', 2), false);
  });

  test('info gives one text per server; configGet and configSet read and write settings', async () => {
    const info = await db.info();
    assert.equal(info.length, 1);
    assert.match(info[0], /redis_version:/);
    assert.equal(await db.configSet('maxmemory-policy', 'allkeys-lru'), true);
    assert.deepEqual(await db.configGet('maxmemory-policy'), { 'maxmemory-policy': 'allkeys-lru' });
    await db.configSet('maxmemory-policy', 'noeviction');
  });

  test('save and bgsave succeed', async () => {
    assert.equal(await db.save(), true);
    assert.equal(await db.bgsave(), true);
  });

  test('sort orders, limits and stores', async () => {
    await db.rpush('nums', ['3', '1', '2']);
    assert.deepEqual(await db.sort('nums'), ['1', '2', '3']);
    assert.deepEqual(await db.sort('nums', { desc: true, limit: { offset: 0, count: 2 } }), ['3', '2']);
    await db.rpush('words', ['pear', 'apple', 'fig']);
    assert.deepEqual(await db.sort('words', { alpha: true }), ['apple', 'fig', 'pear']);
    assert.equal(await db.sort('nums', { store: 'nums:sorted' }), 3);
    assert.deepEqual(await db.lrange('nums:sorted'), ['1', '2', '3']);
  });

  test('the library version is major.minor.patch', () => {
    assert.match(kind.keyloom.version, /^\d+\.\d+\.\d+$/);
  });
});
