'use strict';
// Sets, and sets with a value per member, through the idiomatic client.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, client } = require('./support.js');

let db;
test.before(async () => {
  db = client(await servers(1));
});
test.beforeEach(() => db.flushdb());

test('sadd, smembers, sismember and scard', () => {
  db.sadd('s', 'a');
  db.sadd('s', ['b', 'c', 'a']);
  assert.deepEqual(db.smembers('s').sort(), ['a', 'b', 'c']);
  assert.equal(db.scard('s'), 3);
  assert.equal(db.sismember('s', 'b'), true);
  assert.equal(db.sismember('s', 'z'), false);
  assert.equal(db.scard('missing'), 0);
  assert.deepEqual(db.smembers('missing'), []);
});

test('sadd with ttl gives the set a time to live', () => {
  db.sadd('st', 'a', { ttl: 100 });
  assert.ok(db.ttl('st') > 0);
});

test('srem removes one member (true/false) or several (a count)', () => {
  db.sadd('s', ['a', 'b', 'c']);
  assert.equal(db.srem('s', 'a'), true);
  assert.equal(db.srem('s', 'a'), false);
  assert.equal(db.srem('s', ['b', 'c', 'd']), 2);
  assert.equal(db.scard('s'), 0);
});

test('spop takes a member out; null from an empty set', () => {
  db.sadd('s', ['only']);
  assert.equal(db.spop('s'), 'only');
  assert.equal(db.spop('s'), null);
});

test('sunion merges sets; sunionstore stores the union', () => {
  db.sadd('a', ['1', '2']);
  db.sadd('b', ['2', '3']);
  assert.deepEqual(db.sunion(['a', 'b']).sort(), ['1', '2', '3']);
  assert.deepEqual(db.sunion([]), []);
  db.sunionstore('u', ['a', 'b']);
  assert.deepEqual(db.smembers('u').sort(), ['1', '2', '3']);
});

test('members with values: saddval, sval, sismemberval, smembers withValues', () => {
  db.saddval('sv', 'm1', 'value one');
  db.sadd('sv', 'm2');
  assert.equal(db.sval('sv', 'm1'), 'value one');
  assert.equal(db.sval('sv', 'm2'), null);
  assert.equal(db.sismemberval('sv', 'm1'), 'value');
  assert.equal(db.sismemberval('sv', 'm2'), 'empty');
  assert.equal(db.sismemberval('sv', 'm3'), 'not-member');
  assert.equal(db.sismemberval('nosuchset', 'm1'), 'no-set');
  const all = db.smembers('sv', { withValues: true }).sort((x, y) => x.member.localeCompare(y.member));
  assert.deepEqual(all, [{ member: 'm1', value: 'value one' }, { member: 'm2', value: null }]);
  db.srem('sv', 'm1');
  assert.equal(db.sval('sv', 'm1'), null);
});

test('svalfromip finds the most specific network holding an address', () => {
  db.saddval('nets', '10.0.0.0/8', 'corporate');
  db.saddval('nets', '10.1.0.0/16', 'lab');
  db.saddval('nets', '2001:db8::/32', 'v6');
  assert.equal(db.svalfromip('nets', '10.1.2.3'), 'lab');
  assert.equal(db.svalfromip('nets', '10.9.9.9'), 'corporate');
  assert.equal(db.svalfromip('nets', '2001:db8::1'), 'v6');
  assert.equal(db.svalfromip('nets', '192.168.1.1'), null);
});
