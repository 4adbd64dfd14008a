'use strict';
// The command wrappers where they depart from the plain pattern or where the
// conversions show: client lifecycle, the "_NL_" sentinel of the module's own
// functions, the binary string, the flag helpers and the family quirks.
const { test, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { addon: a, recorded, calls, withEnv, throwsExactly, argMessage, countMessage, hexOf, utf8Hex } = require('./harness');

let client;
let cells;
before(() => {
  client = a.kl_client_create(0, 0, null, 1);
  cells = {
    charpp: a.new_charpp(), charppp: a.new_charppp(), ulongp: a.new_ulongp(), ulongpp: a.new_ulongpp(),
    uintp: a.new_uintp(), intp: a.new_intp(), doublepp: a.new_doublepp(), results: a.new_kl_return_tpp(),
  };
});
after(() => {
  for (const [x, cell] of Object.entries(cells)) a[x === 'results' ? 'delete_kl_return_tpp' : `delete_${x}`](cell);
  a.kl_client_destroy(client);
});

// The logged arguments of the single library call that fn makes.
function one(fn) {
  const log = calls(fn);
  assert.equal(log.length, 1, JSON.stringify(log));
  return log[0];
}

// ---- client lifecycle -------------------------------------------------------

test('kl_client_create passes its four values and a null manager', () => {
  const [made, log] = recorded(() => a.kl_client_create(a.KL_HASH_MURMUR, a.KL_DISTRIBUTION_CONSISTENT_KETAMA, a.new_mm(), a.KL_FLAG_SHARED));
  assert.deepEqual(log, [{ fn: 'kl_client_create', args: ['8', '2', null, '4'] }]);
  assert.equal(typeof made.getCPtr(), 'number');
  a.kl_client_destroy(made);
});

test('kl_client_create refuses a string hash and a negative flags value', () => {
  throwsExactly(() => a.kl_client_create('0', 0, null, 1), argMessage('kl_client_create', 1, 'kl_hash'));
  throwsExactly(() => a.kl_client_create(0, '1', null, 1), argMessage('kl_client_create', 2, 'kl_server_distribution'));
  throwsExactly(() => a.kl_client_create(0, 1, undefined, 1), argMessage('kl_client_create', 3, 'kl_mm_t *'));
  throwsExactly(() => a.kl_client_create(0, 1, null, -1), argMessage('kl_client_create', 4, 'unsigned int'));
});

test('a null client from the library becomes null', () => {
  withEnv({ KEYLOOM_PROBE_NULL: '1' }, () => {
    assert.equal(a.kl_client_create(0, 0, null, 1), null);
    assert.equal(a.kl_group_client(client), null);
  });
});

test('every client is a new proxy, kl_group_client included', () => {
  const other = a.kl_client_create(0, 0, null, 1);
  assert.notEqual(other.getCPtr(), client.getCPtr());
  const group = a.kl_group_client(client);
  assert.deepEqual(calls(() => a.kl_client_destroy(group)), [{ fn: 'kl_client_destroy', args: [hexOf(group)] }]);
  a.kl_client_destroy(other);
});

test('kl_client_destroy returns undefined and leaves the proxy with its address', () => {
  const c = a.kl_client_create(0, 0, null, 1);
  const address = c.getCPtr();
  assert.equal(a.kl_client_destroy(c), undefined);
  assert.equal(c.getCPtr(), address);
});

test('kl_get_version returns the library text and takes no argument', () => {
  assert.equal(a.kl_get_version(), '1.0.0-probe');
  throwsExactly(() => a.kl_get_version(1), countMessage('kl_get_version'));
});

test('kl_strerror passes any number on and returns the library text read as UTF-8', () => {
  const [text, log] = recorded(() => a.kl_strerror(999));
  assert.equal(text, 'probe error text \u2713');
  assert.deepEqual(log, [{ fn: 'kl_strerror', args: ['999'] }]);
  throwsExactly(() => a.kl_strerror('1'), argMessage('kl_strerror', 1, 'kl_return_t'));
});

test('a null text from the library becomes undefined', () => {
  withEnv({ KEYLOOM_PROBE_NULL_TEXT: '1' }, () => {
    assert.equal(a.kl_strerror(0), undefined);
    assert.equal(a.kl_get_version(), undefined);
  });
});

// ---- the "_NL_" sentinel -----------------------------------------------------

test('server_add turns exactly "_NL_" into a null group; kl_server_add never does', () => {
  assert.equal(one(() => a.server_add(client, 'h', 6379, '_NL_')).args[3], null);
  assert.equal(one(() => a.kl_server_add(client, 'h', 6379, '_NL_')).args[3].hex, utf8Hex('_NL_'));
  for (const s of ['_nl_', '_NL_ ', '', '_NL', 'x_NL_']) {
    const got = one(() => a.server_add(client, 'h', 6379, s));
    assert.equal(got.fn, 'kl_server_add');
    assert.equal(got.args[3].hex, utf8Hex(s), JSON.stringify(s));
  }
  assert.equal(one(() => a.server_add(client, '_NL_', 1, 'g')).args[1].hex, utf8Hex('_NL_'), 'only argument 4');
});

test('keys turns "_NL_" as argument 7 into null; kl_keys passes it as text', () => {
  const common = [client, '*', 1, cells.charppp, cells.ulongp, cells.ulongpp];
  const viaKeys = one(() => a.keys(...common, '_NL_', cells.results));
  assert.equal(viaKeys.fn, 'kl_keys');
  assert.equal(viaKeys.args[6], null);
  assert.equal(one(() => a.kl_keys(...common, '_NL_', cells.results)).args[6].hex, utf8Hex('_NL_'));
  assert.equal(one(() => a.keys(...common, 'g', cells.results)).args[6].hex, utf8Hex('g'));
  throwsExactly(() => a.keys(...common, '_NL_', 5), argMessage('keys', 8, 'kl_return_t **'));
  throwsExactly(() => a.keys(...common, null, null), argMessage('keys', 7, 'char const *'));
});

test('flushall turns "_NL_" into null and passes "_NL_" with a fifth character as text', () => {
  const got = one(() => a.flushall(client, '_NL_', null));
  assert.deepEqual([got.fn, got.args[1], got.args[2]], ['kl_flushall', null, null]);
  assert.equal(one(() => a.flushall(client, '_NL_x', null)).args[1].hex, utf8Hex('_NL_x'));
  assert.equal(one(() => a.kl_flushall(client, '_NL_', null)).args[1].hex, utf8Hex('_NL_'));
  throwsExactly(() => a.flushall(client), countMessage('flushall'));
  throwsExactly(() => a.flushall(client, 1, null), argMessage('flushall', 2, 'char const *'));
});

// ---- kl_set_binary -------------------------------------------------------------

test('kl_set_binary passes one byte per character; kl_set passes UTF-8', () => {
  assert.equal(one(() => a.kl_set_binary(client, 'k', 1, '\u00e9', 1, 0)).args[3].hex, 'e9');
  assert.equal(one(() => a.kl_set(client, 'k', 1, '\u00e9', 1, 0)).args[3].hex, 'c3a9');
  assert.equal(one(() => a.kl_set_binary(client, 'k', 1, 'a\u0141\u00ff', 3, 0)).args[3].hex, '6141ff',
    'a character above U+00FF keeps its low byte');
  assert.equal(one(() => a.kl_set_binary(client, '\u00e9', 2, 'v', 1, 0)).args[1].hex, 'c3a9', 'the key is UTF-8');
});

test('kl_set_binary passes the caller\'s value length unchanged', () => {
  const got = one(() => a.kl_set_binary(client, 'k', 1, 'abc', 10, 3));
  assert.deepEqual(got.args.slice(3).map((x) => (typeof x === 'object' ? x.hex : x)), ['616263', '10', '3']);
});

test('kl_set_binary refuses anything but a string primitive as its value', () => {
  for (const bad of [Buffer.from('x'), new String('x'), null, undefined, 5, a.new_mm()]) {
    throwsExactly(() => a.kl_set_binary(client, 'k', 1, bad, 1, 0),
      argMessage('kl_set_binary', 4, 'binary encoded string'));
  }
});

// ---- result codes and flag helpers -------------------------------------------

test('DURABLE_TTL sets bit 31 and COMMIT bit 30 of the low 32 bits, without the library', () => {
  const log = calls(() => {
    assert.equal(a.DURABLE_TTL(0), -2147483648);
    assert.equal(a.DURABLE_TTL(60), -2147483588);
    assert.equal(a.DURABLE_TTL(-1), -1);
    assert.equal(a.DURABLE_TTL(4294967296), -2147483648);
    assert.equal(a.DURABLE_TTL(7.9), -2147483641);
    assert.equal(a.COMMIT(0), 1073741824);
    assert.equal(a.COMMIT(-1), -1);
    assert.equal(a.COMMIT(5), 1073741829);
    assert.equal(a.COMMIT(a.DURABLE_TTL(0)), -1073741824);
  });
  assert.deepEqual(log, []);
  throwsExactly(() => a.DURABLE_TTL('5'), argMessage('DURABLE_TTL', 1, 'int'));
  throwsExactly(() => a.COMMIT(null), argMessage('COMMIT', 1, 'int'));
  throwsExactly(() => a.COMMIT(), countMessage('COMMIT'));
});

test('a DURABLE_TTL value passes only where an int is declared', () => {
  throwsExactly(() => a.kl_set_ttl(client, 'k', 1, a.DURABLE_TTL(5)), argMessage('kl_set_ttl', 4, 'size_t'));
  throwsExactly(() => a.kl_client_connection_timeout(client, a.DURABLE_TTL(5)),
    argMessage('kl_client_connection_timeout', 2, 'unsigned int'));
  assert.equal(one(() => a.kl_dirty(client, 'k', 1, a.DURABLE_TTL(5), cells.intp)).args[3], '-2147483643');
});

test('kl_is_dirty and kl_check_result return small numbers, never booleans', () => {
  assert.equal(a.kl_is_dirty(128 + 13), 1);
  assert.equal(a.kl_is_dirty(13), 0);
  assert.equal(a.kl_check_result(141, a.KL_NOTFOUND), 1);
  assert.equal(a.kl_check_result(141, a.KL_SUCCESS), 0);
  assert.equal(a.kl_get_result(141), 13);
  assert.equal(a.kl_get_result(-1), -129);
  throwsExactly(() => a.kl_check_result('x', 'y'), argMessage('kl_check_result', 1, 'kl_return_t'));
  throwsExactly(() => a.kl_check_result(1, 'y'), argMessage('kl_check_result', 2, 'kl_return_t'));
});

test('a command returns the library\'s code as a number, dirty bit and all', () => {
  for (const code of [0, 13, 128 + 13, 20, -1, 4294967295]) {
    withEnv({ KEYLOOM_PROBE_RESULT: code }, () => assert.equal(a.kl_exists(client, 'k', 1), code | 0));
  }
});

// ---- strings and keys ------------------------------------------------------------

test('kl_set refuses a key length of -1 and of the string 3 with one message', () => {
  throwsExactly(() => a.kl_set(client, 'k', -1, 'v', 1, 0), argMessage('kl_set', 3, 'size_t'));
  throwsExactly(() => a.kl_set(client, 'k', '3', 'v', 1, 0), argMessage('kl_set', 3, 'size_t'));
  throwsExactly(() => a.kl_set(client, 'k', 1, 'v', 1), countMessage('kl_set'));
  throwsExactly(() => a.kl_set(client, 'k', 1, 'v', 1, 0, 0), countMessage('kl_set'));
});

test('kl_mget_whole accepts a size_t cell for its lengths array', () => {
  const keys = a.new_charp_array(1);
  const got = one(() => a.kl_mget_whole(client, keys, 1, cells.ulongp, cells.charppp, cells.ulongp, cells.ulongpp, '', 0, a.KL_BEST_EFFORT_ON_FAIL));
  assert.equal(got.args[3], hexOf(cells.ulongp));
  assert.equal(got.args[9], '2');
  a.delete_charp_array(keys, 1);
});

test('kl_incrby cuts its increment to 32 bits; kl_select refuses a string database', () => {
  assert.equal(one(() => a.kl_incrby(client, 'k', 1, 2.9, cells.intp, 0)).args[3], '2');
  assert.equal(one(() => a.kl_incrby(client, 'k', 1, 4294967297, cells.intp, 0)).args[3], '1');
  throwsExactly(() => a.kl_select(client, '1', null), argMessage('kl_select', 2, 'int'));
});

// ---- administration ------------------------------------------------------------------

test('the administration commands take a text group and a result cell or null', () => {
  throwsExactly(() => a.kl_sort_whole(...new Array(17).fill(null)), countMessage('kl_sort_whole'));
  throwsExactly(() => a.kl_flushdb(client, null, null), argMessage('kl_flushdb', 2, 'char const *'));
  throwsExactly(() => a.kl_info(client, cells.charpp, '', null), argMessage('kl_info', 2, 'char ***'));
  assert.equal(one(() => a.kl_save(client, '', null)).args[2], null);
  assert.equal(one(() => a.kl_save(client, '', cells.results)).args[2], hexOf(cells.results));
});

test('kl_sort_whole passes its eighteen arguments in order', () => {
  const got = one(() => a.kl_sort_whole(client, cells.charppp, cells.ulongp, cells.ulongpp, 'key', 3, 'by', 2, 4.5,
    'route', -2, 1, 'g1', 'g2', 'g3', 'g4', 'alpha', 'store'));
  const plain = got.args.map((x) => (x && typeof x === 'object' ? Buffer.from(x.hex, 'hex').toString() : x));
  assert.deepEqual(plain, [hexOf(client), hexOf(cells.charppp), hexOf(cells.ulongp), hexOf(cells.ulongpp), 'key', '3',
    'by', '2', '4', 'route', '-2', '1', 'g1', 'g2', 'g3', 'g4', 'alpha', 'store']);
  throwsExactly(() => a.kl_sort_whole(client, null, null, null, 'k', 1, 'b', 1, 0, 'r', 1, 1, 'a', 'b', 'c', 'd', 'e', 5),
    argMessage('kl_sort_whole', 18, 'char *'));
});

// ---- lists, sets, sorted sets, hashes, dictionaries ---------------------------------

test('list bounds pass as cut ints', () => {
  const got = one(() => a.kl_lrange_whole(client, 'k', 1, 0, -1, cells.charppp, cells.ulongp, cells.ulongpp, '', 0));
  assert.deepEqual(got.args.slice(3, 5), ['0', '-1']);
  const cut = one(() => a.kl_lrange_whole(client, 'k', 1, 2.7, -2.7, null, null, null, '', 0));
  assert.deepEqual(cut.args.slice(3, 8), ['2', '-2', null, null, null]);
  throwsExactly(() => a.kl_lpush(client, 'k', 1, 'v', 1, -1), argMessage('kl_lpush', 6, 'size_t'));
  throwsExactly(() => a.kl_llen(client, 'k', 1, cells.ulongp), argMessage('kl_llen', 4, 'unsigned int *'));
  throwsExactly(() => a.kl_llen(client, null, 1, cells.uintp), argMessage('kl_llen', 2, 'char *'));
});

test('lpush and rpush, lpop and rpop differ only in the function called', () => {
  assert.equal(one(() => a.kl_lpush(client, 'k', 1, 'v', 1, 0)).fn, 'kl_lpush');
  assert.equal(one(() => a.kl_rpush(client, 'k', 1, 'v', 1, 0)).fn, 'kl_rpush');
  assert.equal(one(() => a.kl_lpop_whole(client, 'k', 1, null, null, '', 0)).fn, 'kl_lpop_whole');
  assert.equal(one(() => a.kl_rpop_whole(client, 'k', 1, null, null, '', 0)).fn, 'kl_rpop_whole');
});

test('set commands: keys only as an array, flags passed as given, twins with their own names', () => {
  throwsExactly(() => a.kl_sunion_whole(client, 'k', 1, null, null, null, null, '', 0, 1), argMessage('kl_sunion_whole', 2, 'char **'));
  throwsExactly(() => a.kl_svalfromip(client, 'k', 1, 5, 1, null, null), argMessage('kl_svalfromip', 4, 'char const *'));
  const got = one(() => a.kl_smembers_whole(client, 'k', 1, null, null, null, '', 0, 3, null, null));
  assert.equal(got.args[8], '3');
  throwsExactly(() => a.kl_sismember(client, 'k', 1, null, 1), argMessage('kl_sismember', 4, 'char *'));
  throwsExactly(() => a.kl_sismemberval(client, 'k', 1, null, 1), argMessage('kl_sismemberval', 4, 'char *'));
  assert.equal(one(() => a.kl_sismemberval(client, 'k', 1, 'm', 1)).fn, 'kl_sismemberval');
  throwsExactly(() => a.kl_scard(client, null, 1, null), argMessage('kl_scard', 2, 'char *'));
  assert.equal(one(() => a.kl_scard(client, 'k', 1, null)).args[3], null);
});

test('sorted-set commands: doubles as given, ints and flags unchecked, argument positions of the _whole forms', () => {
  throwsExactly(() => a.kl_zadd(client, 'k', 1, '1', 'm', 1, 0), argMessage('kl_zadd', 4, 'double'));
  assert.equal(one(() => a.kl_zadd(client, 'k', 1, NaN, 'm', 1, 0)).args[3], 'nan');
  assert.equal(one(() => a.kl_zadd(client, 'k', 1, Infinity, 'm', 1, 0)).args[3], 'inf');
  const range = one(() => a.kl_zrange(client, 'k', 1, -1, 3, null, null, null, 16, null, null, null));
  assert.deepEqual([range.args[3], range.args[8], range.args[9]], ['-1', '16', null]);
  assert.equal(one(() => a.kl_zremrangebyrank(client, 'k', 1, -1, -2, null)).args[3], '-1');
  throwsExactly(() => a.kl_zrange_whole(client, 'k', 1, 0, -1, null, null, null, 1, null, null, null, null, null),
    argMessage('kl_zrange_whole', 9, 'char *'));
  throwsExactly(() => a.kl_zmrem(client, 'k', 1, null, 0, null, cells.uintp), argMessage('kl_zmrem', 7, 'int *'));
  throwsExactly(() => a.kl_zcard(client, null, 1, null), argMessage('kl_zcard', 2, 'char *'));
  const whole = one(() => a.kl_zrangebyscore_whole(client, 'k', 1, 0.5, 2, null, null, null, 'r', 1, 5, cells.doublepp, null, null));
  assert.deepEqual([whole.args[3], whole.args[4], whole.args[8].hex, whole.args[9], whole.args[10], whole.args[11]],
    ['0.5', '2', utf8Hex('r'), '1', '5', hexOf(cells.doublepp)]);
});

test('hash commands: counts, cut increments, arrays only as proxies', () => {
  throwsExactly(() => a.kl_hget(client, 'k', 1, 'f', 1, null), countMessage('kl_hget'));
  throwsExactly(() => a.kl_hget(client, 'k', 1, 'f', 1, null, null, null), countMessage('kl_hget'));
  throwsExactly(() => a.kl_hlen(client, 'k', -1, null), argMessage('kl_hlen', 3, 'size_t'));
  assert.equal(one(() => a.kl_hlen(client, 'k', 2.9, null)).args[2], '2');
  throwsExactly(() => a.kl_hmset(client, 'k', 1, ['f'], 1, null, null, null, 0), argMessage('kl_hmset', 4, 'char **'));
  throwsExactly(() => a.kl_hmget(client, 'k', 1, null, 0, null, cells.ulongp, null, null), argMessage('kl_hmget', 7, 'char ***'));
  assert.equal(one(() => a.kl_hincrby(client, 'k', 1, 'f', 1, 4294967297, cells.intp, 0)).args[5], '1');
  throwsExactly(() => a.kl_hlen(client, null, 1, null), argMessage('kl_hlen', 2, 'char *'));
  const key = one(() => a.kl_hlen(client, '\u00e9', 1, null));
  assert.deepEqual([key.args[1].hex, key.args[2], key.args[3]], ['c3a9', '1', null]);
});

test('dictionary commands: the unsigned weight and the two spellings of the extra text', () => {
  assert.equal(one(() => a.kl_dadd(client, 'k', 1, 'w', 1, 'v', 1, 4294967295, 0)).args[7], '4294967295');
  assert.equal(one(() => a.kl_dadd(client, 'k', 1, 'w', 1, 'v', 1, 4294967295.5, 0)).args[7], '4294967295');
  for (const bad of [4294967296, -1]) {
    throwsExactly(() => a.kl_dadd(client, 'k', 1, 'w', 1, 'v', 1, bad, 0), argMessage('kl_dadd', 8, 'unsigned int'));
  }
  throwsExactly(() => a.kl_dgetall_whole(client, 'k', 1, null, null, null, null, null, 5, 0),
    argMessage('kl_dgetall_whole', 9, 'char const *'));
  throwsExactly(() => a.kl_dget_whole(client, 'k', 1, 'w', 1, null, null, 5, 0), argMessage('kl_dget_whole', 8, 'char *'));
  throwsExactly(() => a.kl_drem(client, null, 1, 'w', 1), argMessage('kl_drem', 2, 'char *'));
  const got = one(() => a.kl_dget(client, 'k', 1, 'w', 1, null, null));
  assert.deepEqual(got.args.slice(5), [null, null]);
  throwsExactly(() => a.kl_dmadd(client, 'k', 1, null, 0, null, null, null, 1, cells.uintp, 0), argMessage('kl_dmadd', 10, 'int *'));
});

test('kl_mhmget has no text argument and passes its arrays as they are', () => {
  const keys = a.new_charp_array(1);
  const got = one(() => a.kl_mhmget(client, keys, 1, null, keys, 1, null, null, null, null));
  assert.equal(got.args.filter((x) => x && typeof x === 'object').length, 0);
  assert.deepEqual([got.args[1], got.args[4]], [hexOf(keys), hexOf(keys)]);
  a.delete_charp_array(keys, 1);
});
