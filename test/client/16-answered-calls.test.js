'use strict';
// The answered forms of keyloom_client.node: a command that reads one value
// gives back the value itself in one call, for both clients' commands.
const { test, before } = require('node:test');
const assert = require('node:assert/strict');
const { kl, servers, client } = require('./support.js');
const { own } = require('../../js/client/native.js');

let server;
let db;
let h;
before(async () => {
  [server] = await servers(1);
  db = client([server]);
  h = db.handle;
});

const len = (s) => Buffer.byteLength(s);

test('every command that reads one value has both answered forms, and only those', () => {
  const names = Object.keys(own.answered);
  assert.deepEqual(Object.keys(own.answered_pipelined), names);
  for (const name of ['kl_get_whole', 'kl_hget_whole', 'kl_lindex_whole', 'kl_lpop_whole', 'kl_dget_whole',
    'kl_incrby_decimal', 'kl_get_ttl_decimal']) {
    assert.ok(names.includes(name), name);
  }
  for (const name of ['kl_set', 'kl_mget', 'kl_hgetall', 'kl_zscore', 'kl_type']) assert.ok(!names.includes(name), name);
});

test('a value comes back as a string, or a Buffer when asked, and a missing key as null', () => {
  db.set('answered', 'héllo');
  const get = own.answered.kl_get_whole;
  assert.equal(get(h, 'answered', len('answered'), '', 0, false), 'héllo');
  assert.deepEqual(get(h, 'answered', len('answered'), '', 0, true), Buffer.from('héllo'));
  assert.equal(get(h, 'missing', 7, '', 0, false), null);
  // Bytes that are not UTF-8 decode as the client always decoded them.
  const raw = Buffer.from([0x61, 0xff, 0xfe, 0x62]);
  db.set('raw', raw);
  assert.equal(get(h, 'raw', 3, '', 0, false), raw.toString('utf8'));
  assert.deepEqual(get(h, 'raw', 3, '', 0, true), raw);
  // A large value crosses whole.
  const big = 'x'.repeat(3 << 20);
  db.set('big', big);
  assert.equal(get(h, 'big', 3, '', 0, false), big);
});

test('any other code comes back with its failure: [code, value, kind, server, text]', () => {
  db.lpush('a-list', 'x');
  const answer = own.answered.kl_get_whole(h, 'a-list', 6, '', 0, false);
  assert.ok(Array.isArray(answer));
  const [code, value, kind, where, text] = answer;
  assert.equal(code, kl.KL_SERVER_ERROR);
  assert.equal(value, null);
  assert.equal(kind, 2); // the server's own reply
  assert.equal(where, `${server.host}:${server.port}`);
  assert.match(text, /^WRONGTYPE/);
});

test('arguments are checked as the library export checks them', () => {
  const messageOf = (call) => {
    try {
      call();
    } catch (err) {
      return err.message;
    }
    return 'no error';
  };
  assert.equal(messageOf(() => own.answered.kl_get_whole({}, 'k', 1, '', 0, false)),
    messageOf(() => kl.kl_get_whole({}, 'k', 1, null, null, '', 0)));
  assert.match(messageOf(() => own.answered.kl_get_whole(h, 'k', 1, '', 0)), /Illegal number of arguments for _wrap_kl_get_whole/);
});

test('the pipelined form hands the same answers to the settle callback, under their tickets', async () => {
  // A library client of its own, with a pipeline whose settle callback is the test's.
  const h = kl.kl_client_create(kl.KL_HASH_DEFAULT, kl.KL_DISTRIBUTION_CONSISTENT, kl.new_mm(), kl.KL_FLAG_SHARED);
  assert.equal(kl.kl_server_add(h, server.host, server.port, ''), 0);
  own.client_adopt(h);
  const settled = new Map();
  let done;
  const all = new Promise((resolve) => { done = resolve; });
  assert.equal(own.pipeline_start(h, (results) => {
    for (let i = 0; i < results.length; i += 2) settled.set(results[i], results[i + 1]);
    if (settled.size === 4) done();
  }), 0);
  try {
    db.set('answered-p', 'value');
    const get = own.answered_pipelined.kl_get_whole;
    assert.equal(get(h, 'answered-p', 10, '', 0, false, 7), undefined);
    get(h, 'missing', 7, '', 0, false, 8);
    get(h, 'a-list', 6, '', 0, true, 9);
    own.pipelined.kl_set(h, 'p-set', 5, 'v', 1, 0, 10);
    assert.throws(() => get(h, 'k', 1, '', 0, false), /Illegal number of arguments/);
    assert.throws(() => get(h, 'k', 1, '', 0, false, -1), /ticket, a uint32/);
    own.pipeline_flush(h);
    await all;
    assert.equal(settled.get(7), 'value');
    assert.equal(settled.get(8), null);
    assert.equal(settled.get(9)[0], kl.KL_SERVER_ERROR);
    assert.match(settled.get(9)[4], /^WRONGTYPE/);
    assert.equal(settled.get(10), 0);
  } finally {
    own.client_destroy(h);
  }
});
