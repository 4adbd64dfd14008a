'use strict';
// The answered forms of keyloom_client.node: a command that reads one value,
// several values, names with values or a count gives back the value itself in
// one call, for both clients' commands; commands that take lists of strings
// are declared piece by piece and take a JavaScript array.
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

test('every command whose outputs are one answer has both answered forms, and only those', () => {
  const names = Object.keys(own.answered);
  assert.deepEqual(Object.keys(own.answered_pipelined), names);
  // One value, several values (with a per-server result cell passed on, for keys and kl_config_get), a count.
  for (const name of ['kl_get_whole', 'kl_hget_whole', 'kl_lindex_whole', 'kl_lpop_whole', 'kl_dget_whole',
    'kl_incrby_decimal', 'kl_get_ttl_decimal', 'kl_lrange_whole', 'keys', 'kl_keys', 'kl_config_get',
    'kl_llen', 'kl_hlen', 'kl_dbsize', 'kl_dirty', 'kl_hgetall', 'kl_dgetall_whole', 'kl_dclose_whole',
    // declared piece by piece: lists of strings in
    'kl_mget_whole', 'kl_mdel', 'kl_hmget_whole', 'kl_mhmget_whole', 'kl_hmdel', 'kl_zmrem', 'kl_mset', 'kl_hmset',
    'kl_dmadd', 'kl_type', 'kl_zscore', 'kl_zrank', 'kl_zincrby', 'kl_zadddis',
    // outputs apart that share one count
    'kl_smembers_whole', 'kl_zrange_whole', 'kl_zrangebyscore_whole',
    // lists of numbers in
    'kl_zmadd', 'kl_zmaddval', 'kl_msetex',
    // a count without values (SORT with STORE), one text per server
    'kl_sort_whole', 'kl_info']) {
    assert.ok(names.includes(name), name);
  }
  // No output; functions that are not commands.
  for (const name of ['kl_set', 'kl_get_version', 'kl_strerror']) {
    assert.ok(!names.includes(name), name);
  }

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

test('several values come back as an array of strings or Buffers, a missing key as null', () => {
  db.rpush('answered-list', ['a', 'héllo', '']);
  const lrange = own.answered.kl_lrange_whole;
  assert.deepEqual(lrange(h, 'answered-list', 13, 0, -1, '', 0, false), ['a', 'héllo', '']);
  assert.deepEqual(lrange(h, 'answered-list', 13, 1, 1, '', 0, true), [Buffer.from('héllo')]);
  // No element (a range past the end, or no list) is the library's KL_NOTFOUND.
  assert.equal(lrange(h, 'answered-list', 13, 5, 9, '', 0, false), null);
  assert.equal(lrange(h, 'no-list', 7, 0, -1, '', 0, false), null);
  assert.deepEqual(own.answered.keys(h, 'answered-lis*', 13, '_NL_', null, false), ['answered-list']);
});

test('a count comes back as a Number, signed or unsigned as its cell', () => {
  db.rpush('counted', ['a', 'b', 'c']);
  db.hset('counted-hash', 'f', 'v');
  assert.equal(own.answered.kl_llen(h, 'counted', 7, false), 3);
  assert.equal(own.answered.kl_hlen(h, 'counted-hash', 12, false), 1);
  assert.equal(typeof own.answered.kl_dbsize(h, '', null, false), 'number');
});

test('names with values come back as [names, values], the values Buffers when asked', () => {
  db.hset('answered-hash', 'f', 'héllo');
  const hgetall = own.answered.kl_hgetall;
  assert.deepEqual(hgetall(h, 'answered-hash', 13, false), [['f'], ['héllo']]);
  assert.deepEqual(hgetall(h, 'answered-hash', 13, true), [['f'], [Buffer.from('héllo')]]);
  assert.equal(hgetall(h, 'no-hash', 7, false), null);
});

test('a list of strings goes in as an array, and anything else is refused as the exact layer refuses', () => {
  db.set('in-a', 'A');
  db.set('in-b', 'B');
  const mget = own.answered.kl_mget_whole;
  assert.deepEqual(mget(h, ['in-a', 'not-there', 'in-b'], '', 0, kl.KL_NULL_ON_FAIL, false), ['A', null, 'B']);
  assert.deepEqual(own.answered.kl_mhmget_whole(h, ['answered-hash', 'no-hash'], ['f', 'g'], '', 0, false),
    ['héllo', null, null, null]);
  assert.equal(own.answered.kl_mdel(h, ['in-a', 'in-b', 'not-there'], false), 2);
  for (const bad of ['in-a', ['in-a', 1], [null], {}]) {
    assert.throws(() => mget(h, bad, '', 0, kl.KL_NULL_ON_FAIL, false),
      { name: 'Error', message: "in method 'kl_mget_whole', argument 2 of type 'array of strings'" });
  }
});

test('names with values go in as one array, alternating; a text alone comes back as a string', () => {
  assert.equal(own.answered.kl_mset(h, ['pair-a', 'A', 'pair-b', 'héllo'], false), true);
  assert.deepEqual(db.mget(['pair-a', 'pair-b']), ['A', 'héllo']);
  assert.throws(() => own.answered.kl_mset(h, ['pair-a'], false),
    { message: "in method 'kl_mset', argument 2 of type 'array of names and values'" });
  assert.equal(own.answered.kl_type(h, 'pair-a', 6, false), 'string');
  assert.equal(own.answered.kl_type(h, 'no-key', 6, false), 'none');
});

test('a command with two answers gives both, in the order of its declaration', () => {
  db.zadd('answered-zset', 2.5, 'm');
  assert.deepEqual(own.answered.kl_zscore(h, 'answered-zset', 13, 'm', 1, false), [2.5, null]);
  assert.equal(own.answered.kl_zscore(h, 'answered-zset', 13, 'x', 1, false), null);
  assert.deepEqual(own.answered.kl_zrank(h, 'answered-zset', 13, 'm', 1, kl.ZSET_DEFAULT, false), [0, null]);
  assert.equal(own.answered.kl_zincrby(h, 'answered-zset', 13, 'm', 1, 1, 0, false), 3.5);
});

test('outputs apart that share one count come back beside the values they go with', () => {
  db.zadd('answered-range', 1, 'a');
  db.zadd('answered-range', 2, 'b');
  const zrange = own.answered.kl_zrange_whole;
  assert.deepEqual(zrange(h, 'answered-range', 14, 0, -1, '', 0, kl.ZSET_WITH_SCORES, false), [['a', 'b'], [1, 2], []]);
  assert.deepEqual(zrange(h, 'answered-range', 14, 0, -1, '', 0, kl.ZSET_DEFAULT, false), [['a', 'b'], [], []]);
  db.saddval('answered-set', 'm', 'v');
  assert.deepEqual(own.answered.kl_smembers_whole(h, 'answered-set', 12, '', 0, kl.SET_WITH_VALUES, false), [['m'], ['v']]);
});

test('a list of numbers goes in as an array of numbers', () => {
  assert.equal(own.answered.kl_zmadd(h, 'answered-many', 13, [1.5, 2.5], ['a', 'b'], 0, false), true);
  assert.deepEqual(db.zrange('answered-many', 0, -1, { withScores: true }), [{ member: 'a', score: 1.5 }, { member: 'b', score: 2.5 }]);
  assert.equal(own.answered.kl_msetex(h, ['ttl-a', 'A'], [100], false), true);
  assert.ok(db.ttl('ttl-a') > 0);
  assert.throws(() => own.answered.kl_zmadd(h, 'answered-many', 13, [1, 'x'], ['a', 'b'], 0, false),
    { message: "in method 'kl_zmadd', argument 4 of type 'array of numbers'" });
});

test('SORT answers [values, count]; INFO one text per server', () => {
  db.rpush('answered-sort', ['3', '1', '2']);
  const sort = own.answered.kl_sort_whole;
  assert.deepEqual(sort(h, 'answered-sort', 13, '', 0, 0, '', 0, 0, '', '', '', '', '', '', false), [['1', '2', '3'], 3]);
  assert.deepEqual(sort(h, 'answered-sort', 13, '', 0, 0, '', 0, 0, '', '', '', '', '', 'sorted-copy', false), [[], 3]);
  const [info] = own.answered.kl_info(h, '', null, false);
  assert.match(info, /redis_version:/);
});

test('any other code comes back as the failure record { code, value, kind, server, text }', () => {
  db.lpush('a-list', 'x');
  const answer = own.answered.kl_get_whole(h, 'a-list', 6, '', 0, false);
  assert.equal(Object.getPrototypeOf(answer), null); // no answer value is such an object
  assert.deepEqual(Object.keys(answer), ['code', 'value', 'kind', 'server', 'text']);
  assert.equal(answer.code, kl.KL_SERVER_ERROR);
  assert.equal(answer.value, null);
  assert.equal(answer.kind, 2); // the server's own reply
  assert.equal(answer.server, `${server.host}:${server.port}`);
  assert.match(answer.text, /^WRONGTYPE/);
  const count = own.answered.kl_llen(h, 'answered', 8, false); // a string, not a list
  assert.equal(count.code, kl.KL_SERVER_ERROR);
  assert.match(count.text, /^WRONGTYPE/);
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
    if (settled.size === 5) done();
  }), 0);
  try {
    db.set('answered-p', 'value');
    const get = own.answered_pipelined.kl_get_whole;
    assert.equal(get(h, 'answered-p', 10, '', 0, false, 7), undefined);
    get(h, 'missing', 7, '', 0, false, 8);
    get(h, 'a-list', 6, '', 0, true, 9);
    own.pipelined.kl_set(h, 'p-set', 5, 'v', 1, 0, 10);
    own.answered_pipelined.kl_mget_whole(h, ['answered-p', 'missing'], '', 0, kl.KL_NULL_ON_FAIL, false, 11);
    assert.throws(() => get(h, 'k', 1, '', 0, false), /Illegal number of arguments/);
    assert.throws(() => get(h, 'k', 1, '', 0, false, -1), /ticket, a uint32/);
    own.pipeline_flush(h);
    await all;
    assert.equal(settled.get(7), 'value');
    assert.equal(settled.get(8), null);
    assert.equal(settled.get(9).code, kl.KL_SERVER_ERROR);
    assert.match(settled.get(9).text, /^WRONGTYPE/);
    assert.equal(settled.get(10), 0);
    assert.deepEqual(settled.get(11), ['value', null]);
  } finally {
    own.client_destroy(h);
  }
});
