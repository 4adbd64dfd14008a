'use strict';
// Sets, and sets with a value per member, through the idiomatic client.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, forEachKind } = require('./support.js');

forEachKind(async (kind) => {
  const db = kind.client(await servers(1));
  test.beforeEach(async () => { await db.flushdb(); });

  test('sadd, smembers, sismember and scard', async () => {
    await db.sadd('s', 'a');
    await db.sadd('s', ['b', 'c', 'a']);
    assert.deepEqual((await db.smembers('s')).sort(), ['a', 'b', 'c']);
    assert.equal(await db.scard('s'), 3);
    assert.equal(await db.sismember('s', 'b'), true);
    assert.equal(await db.sismember('s', 'z'), false);
    assert.equal(await db.scard('missing'), 0);
    assert.deepEqual(await db.smembers('missing'), []);
  });

  test('sadd with ttl gives the set a time to live', async () => {
    await db.sadd('st', 'a', { ttl: 100 });
    assert.ok(await db.ttl('st') > 0);
  });

  test('srem removes one member (true/false) or several (a count)', async () => {
    await db.sadd('s', ['a', 'b', 'c']);
    assert.equal(await db.srem('s', 'a'), true);
    assert.equal(await db.srem('s', 'a'), false);
    assert.equal(await db.srem('s', ['b', 'c', 'd']), 2);
    assert.equal(await db.scard('s'), 0);
  });

  test('spop takes a member out; null from an empty set', async () => {
    await db.sadd('s', ['only']);
    assert.equal(await db.spop('s'), 'only');
    assert.equal(await db.spop('s'), null);
  });

  test('sunion merges sets; sunionstore stores the union', async () => {
    await db.sadd('a', ['1', '2']);
    await db.sadd('b', ['2', '3']);
    assert.deepEqual((await db.sunion(['a', 'b'])).sort(), ['1', '2', '3']);
    assert.deepEqual(await db.sunion([]), []);
    await db.sunionstore('u', ['a', 'b']);
    assert.deepEqual((await db.smembers('u')).sort(), ['1', '2', '3']);
  });

  test('members with values: saddval, sval, sismemberval, smembers withValues', async () => {
    await db.saddval('sv', 'm1', 'value one');
    await db.sadd('sv', 'm2');
    assert.equal(await db.sval('sv', 'm1'), 'value one');
    assert.equal(await db.sval('sv', 'm2'), null);
    assert.equal(await db.sismemberval('sv', 'm1'), 'value');
    assert.equal(await db.sismemberval('sv', 'm2'), 'empty');
    assert.equal(await db.sismemberval('sv', 'm3'), 'not-member');
    assert.equal(await db.sismemberval('nosuchset', 'm1'), 'no-set');
    const all = (await db.smembers('sv', { withValues: true })).sort((x, y) => x.member.localeCompare(y.member));
    assert.deepEqual(all, [{ member: 'm1', value: 'value one' }, { member: 'm2', value: null }]);
    await db.srem('sv', 'm1');
    assert.equal(await db.sval('sv', 'm1'), null);
  });

  test('svalfromip finds the most specific network holding an address', async () => {
    await db.saddval('nets', '10.0.0.0/8', 'corporate');
    await db.saddval('nets', '10.1.0.0/16', 'lab');
    await db.saddval('nets', '2001:db8::/32', 'v6');
    assert.equal(await db.svalfromip('nets', '10.1.2.3'), 'lab');
    assert.equal(await db.svalfromip('nets', '10.9.9.9'), 'corporate');
    assert.equal(await db.svalfromip('nets', '2001:db8::1'), 'v6');
    assert.equal(await db.svalfromip('nets', '192.168.1.1'), null);
  });
});
