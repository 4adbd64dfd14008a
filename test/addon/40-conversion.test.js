'use strict';
// Value conversion at the library boundary, observed in the double's log:
// strings as NUL-terminated UTF-8 copies, numbers by the int / unsigned int /
// size_t / double rules, lengths passed as given.
const { test, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { addon: a, recorded, calls, throwsExactly, argMessage, countMessage, utf8Hex } = require('./harness');

let client;
let intCell;
before(() => {
  client = a.kl_client_create(0, 0, null, 1);
  intCell = a.new_intp();
});
after(() => {
  a.delete_intp(intCell);
  a.kl_client_destroy(client);
});

// The logged C arguments of one call.
function args(fn) {
  const log = calls(fn);
  assert.equal(log.length, 1, JSON.stringify(log));
  return log[0].args;
}

test('the empty string reaches C as an empty NUL-terminated text', () => {
  const got = args(() => a.kl_set(client, '', 0, '', 0, 0));
  assert.equal(got[1].hex, '');
  assert.equal(got[3].hex, '');
});

test('a string with characters outside ASCII reaches C as its UTF-8 bytes', () => {
  const s = 'k\u00e9\u20ac\u{1f600}';
  const got = args(() => a.kl_set(client, s, 3, 'v', 1, 0));
  assert.equal(got[1].hex, utf8Hex(s));
  assert.equal(got[1].hex, '6bc3a9e282acf09f9880');
});

test('the caller\'s length is passed unchanged even when it differs from the byte count', () => {
  const got = args(() => a.kl_set(client, '\u00e9\u00e9', 1, 'value', 99, 7));
  assert.deepEqual([got[1].hex, got[2], got[3].hex, got[4], got[5]], ['c3a9c3a9', '1', utf8Hex('value'), '99', '7']);
});

test('a NUL character inside a string is written as a zero byte', () => {
  const got = args(() => a.kl_set(client, 'a\u0000b', 3, 'v', 1, 0));
  assert.equal(got[1].hex, '61', 'the text ends at the written zero byte');
});

test('an int parameter truncates toward zero and keeps the low 32 bits', () => {
  const cases = [[3.99, '3'], [-3.99, '-3'], [2 ** 32, '0'], [4294967301, '5'], [2147483648, '-2147483648'],
    [4294967297, '1'], [-1.9, '-1'], [-0.5, '0']];
  for (const [value, logged] of cases) {
    assert.equal(args(() => a.kl_incrby(client, 'k', 1, value, intCell, 0))[3], logged, String(value));
  }
});

test('an unsigned int parameter accepts 0 to 4294967295 after truncation', () => {
  const cases = [[-0.1, '0'], [-0.5, '0'], [4294967295, '4294967295'], [4294967295.7, '4294967295'], [7.9, '7']];
  for (const [value, logged] of cases) {
    assert.equal(args(() => a.kl_client_connection_timeout(client, value))[1], logged, String(value));
  }
  for (const value of [-1, 4294967296, NaN, Infinity, -Infinity]) {
    throwsExactly(() => a.kl_client_connection_timeout(client, value),
      argMessage('kl_client_connection_timeout', 2, 'unsigned int'));
  }
});

test('a size_t parameter accepts any non-negative value below 2^63 after truncation', () => {
  const cases = [[2 ** 53, '9007199254740992'], [-0.5, '0'], [2.9, '2'], [4294967296, '4294967296'],
    [2 ** 62, '4611686018427387904']];
  for (const [value, logged] of cases) {
    assert.equal(args(() => a.kl_set_ttl(client, 'k', 1, value))[3], logged, String(value));
  }
  for (const value of [-1, 2 ** 63, 1e19, NaN, Infinity, -Infinity]) {
    throwsExactly(() => a.kl_set_ttl(client, 'k', 1, value), argMessage('kl_set_ttl', 4, 'size_t'));
  }
});

test('a double parameter passes NaN, infinities, negative zero and fractions as they are', () => {
  const cases = [[NaN, 'nan'], [Infinity, 'inf'], [-Infinity, '-inf'], [-0, '-0'], [0.1, '0.10000000000000001'],
    [1e300, '1.0000000000000001e+300']];
  for (const [value, logged] of cases) {
    assert.equal(args(() => a.kl_zadd(client, 'k', 1, value, 'm', 1, 0))[3], logged, String(value));
  }
});

test('a negative size_t and a string for a size_t raise the same kind of Error', () => {
  let negative;
  let text;
  try { a.kl_set(client, 'k', -1, 'v', 1, 0); } catch (e) { negative = e; }
  try { a.kl_set(client, 'k', '3', 'v', 1, 0); } catch (e) { text = e; }
  assert.equal(negative.constructor, Error);
  assert.equal(text.constructor, Error);
  assert.equal(negative.message, text.message);
  assert.equal(negative.message, "in method 'kl_set', argument 3 of type 'size_t'");
  assert.equal(Object.keys(negative).length, 0, 'no code property');
  assert.doesNotMatch(negative.message, /-?\d+\s*$|code|-5|-7/);
});

test('the first bad argument is the one reported', () => {
  throwsExactly(() => a.kl_set(client, null, -1, 'v', 1, 0), argMessage('kl_set', 2, 'char *'));
  throwsExactly(() => a.kl_set(5, null, -1, 'v', 1, 0), argMessage('kl_set', 1, 'kl_client *'));
});

test('the argument count is checked before any argument', () => {
  throwsExactly(() => a.kl_set(5, null, -1, 'v', 1), countMessage('kl_set'));
  throwsExactly(() => a.kl_set(client, 'k', 1, 'v', 1, 0, 0), countMessage('kl_set'));
});

test('null is a valid client and reaches the library as a null pointer', () => {
  const [result, log] = recorded(() => a.kl_exists(null, 'k', 1));
  assert.equal(result, 0);
  assert.deepEqual(log[0].args[0], null);
});

test('undefined as the client and null as a key are refused', () => {
  throwsExactly(() => a.kl_exists(undefined, 'k', 1), argMessage('kl_exists', 1, 'kl_client *'));
  throwsExactly(() => a.kl_exists(client, null, 1), argMessage('kl_exists', 2, 'char *'));
});

test('a size_t cell where char ** is wanted is refused', () => {
  const cell = a.new_ulongp();
  throwsExactly(() => a.kl_get_whole(client, 'k', 1, cell, cell, '', 0), argMessage('kl_get_whole', 4, 'char **'));
  a.delete_ulongp(cell);
});

test('cells reach the library as the addresses their proxies carry', () => {
  const value = a.new_charpp();
  const length = a.new_ulongp();
  const got = args(() => a.kl_get_whole(client, 'k', 1, value, length, 'r', 1));
  assert.equal(got[3], `0x${value.getCPtr().toString(16)}`);
  assert.equal(got[4], `0x${length.getCPtr().toString(16)}`);
  a.delete_charpp(value);
  a.delete_ulongp(length);
});
