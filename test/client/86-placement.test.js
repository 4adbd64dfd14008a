'use strict';
// Where keys land: server weights and hash tags, checked against placements
// computed independently in the test (test/helpers/placement.js) by reading
// each server on its own.
const { test, before } = require('node:test');
const assert = require('node:assert/strict');
const { forEachKind, servers, client, address } = require('./support.js');
const { serverIndex, hashTagOf, oneAtATime } = require('../helpers/placement.js');

let list;
let direct; // one synchronous client per server, reading it alone
before(async () => {
  list = await servers(3);
  direct = list.map((s) => client([s]));
});

// The index of the server that holds key (exactly one must).
function holder(key) {
  const found = direct.map((c, i) => (c.exists(key) ? i : -1)).filter((i) => i >= 0);
  assert.equal(found.length, 1, `${key} is on ${found.length} servers`);
  return found[0];
}

forEachKind((kind) => {
  test('weighted servers hold the keys the weighted MD5 continuum gives them', async () => {
    const weighted = list.map((s, i) => ({ host: s.host, port: s.port, weight: [1, 2, 5][i] }));
    const c = kind.client([], { servers: weighted, hash: 'md5' });
    const keys = Array.from({ length: 400 }, (_, i) => `${kind.name}:weighted:${i}`);
    await Promise.all(keys.map((k) => c.set(k, 'v')));
    const counts = [0, 0, 0];
    for (const k of keys) {
      const expected = serverIndex(weighted, k, { distribution: 'ketama', hash: 'md5' });
      assert.equal(holder(k), expected, k);
      counts[expected]++;
    }
    // The heaviest server holds the most.
    assert.ok(counts[2] > counts[1] && counts[1] > counts[0], JSON.stringify(counts));
    await c.del(keys);
  });

  test('keys with one hash tag share a server, and multi-key commands over them work', async () => {
    const c = kind.client(list, { hashTag: true });
    const keys = ['{user42}:cart', '{user42}:profile', '{user42}:seen', 'x{user42}y'];
    await c.mset(Object.fromEntries(keys.map((k) => [k, k])));
    const home = holder(keys[0]);
    for (const k of keys) assert.equal(holder(k), home, k);
    assert.equal(home, serverIndex(list, 'user42'));
    assert.deepEqual(await c.mget(keys), keys);
    await c.del(keys);
  });

  test('tags follow the rule: the first "{", the next "}", something between', async () => {
    const c = kind.client(list, { hashTag: true });
    const keys = ['{}x', 'a{b', 'a}b{c}', '{a}{b}', 'plain', '}{', '{x', 'q{}{r}'];
    for (const k of keys) await c.set(`${k}`, '1');
    for (const k of keys) {
      assert.equal(holder(k), serverIndex(list, k, { hashTag: true }), k);
    }
    assert.deepEqual(keys.map(hashTagOf), ['{}x', 'a{b', 'c', 'a', 'plain', '}{', '{x', 'q{}{r}']);
    await c.del(keys);
  });

  test('without hashTag a key with braces is routed whole', async () => {
    const c = kind.client(list);
    const keys = Array.from({ length: 30 }, (_, i) => `{same}:${i}`);
    for (const k of keys) await c.set(k, '1');
    for (const k of keys) assert.equal(holder(k), serverIndex(list, k), k);
    assert.ok(new Set(keys.map(holder)).size > 1);
    await c.del(keys);
  });
});

test('the independent hash agrees with the published one-at-a-time value', () => {
  // Jenkins one-at-a-time of "a" (a published check value).
  assert.equal(oneAtATime(Buffer.from('a')), 0xca2e9442);
});

test('weights and hashTag are checked when the client is made', () => {
  const { createClient } = require('keyloom/client');
  const server = (weight) => ({ host: '127.0.0.1', port: 1, weight });
  assert.throws(() => createClient({ servers: [server(0)] }), (e) => e instanceof RangeError && /from 1 to 4294967295/.test(e.message));
  assert.throws(() => createClient({ servers: [server(2 ** 32)] }), RangeError);
  assert.throws(() => createClient({ servers: [server(1.5)] }), (e) => e instanceof TypeError && /whole number/.test(e.message));
  assert.throws(() => createClient({ servers: [server('2')] }), TypeError);
  assert.throws(() => createClient({ servers: [server(2)], distribution: 'modula' }),
    (e) => e instanceof TypeError && /weights need distribution: 'ketama'/.test(e.message));
  for (const hashTag of ['{', '{}}', 7, '\u00e9}']) {
    assert.throws(() => createClient({ servers: ['127.0.0.1:1'], hashTag }), (e) => e instanceof TypeError && /hashTag/.test(e.message));
  }
  createClient({ servers: [server(3)], hashTag: '[]' }).close();
});
