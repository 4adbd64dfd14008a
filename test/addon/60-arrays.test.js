'use strict';
// Typed arrays: zero-filled calloc blocks, written and read by index,
// interchangeable with the cells of their element type.
const { test } = require('node:test');
const assert = require('node:assert/strict');
const { addon: a, calls, throwsExactly, argMessage, hexOf } = require('./harness');

test('a new array is zero-filled', () => {
  const d = a.new_double_array(3);
  assert.equal(a.double_array_get(d, 2), 0);
  const u = a.new_ulong_array(4);
  assert.equal(a.ulong_array_get(u, 3), 0);
  a.delete_double_array(d);
  a.delete_ulong_array(u);
});

test('a negative count yields null', () => {
  assert.equal(a.new_uint_array(-1), null);
  assert.equal(a.new_charp_array(-1), null);
  assert.equal(a.new_ulong_array(-1), null);
  assert.equal(a.new_double_array(-1), null);
});

test('a count of zero yields a proxy of a block or null, which delete accepts', () => {
  const arrays = [
    [a.new_charp_array(0), (p) => a.delete_charp_array(p, 0)], [a.new_uint_array(0), a.delete_uint_array],
    [a.new_ulong_array(0), a.delete_ulong_array], [a.new_double_array(0), a.delete_double_array],
  ];
  for (const [p, del] of arrays) {
    assert.ok(p === null || typeof p.getCPtr() === 'number');
    assert.equal(del(p), undefined);
  }
});

test('elements are written and read back by index', () => {
  const d = a.new_double_array(3);
  a.double_array_set(d, 0, 1.5);
  a.double_array_set(d, 2, -0);
  a.double_array_set(d, 1, NaN);
  assert.equal(a.double_array_get(d, 0), 1.5);
  assert.ok(Number.isNaN(a.double_array_get(d, 1)));
  assert.ok(Object.is(a.double_array_get(d, 2), -0));
  a.delete_double_array(d);
});

test('ulong_array_get reads only the low 32 bits', () => {
  const u = a.new_ulong_array(3);
  a.ulong_array_set(u, 0, 5000000000);
  a.ulong_array_set(u, 1, 3000000000);
  a.ulong_array_set(u, 2, 12.9);
  assert.equal(a.ulong_array_get(u, 0), 705032704);
  assert.equal(a.ulong_array_get(u, 1), -1294967296);
  assert.equal(a.ulong_array_get(u, 2), 12);
  a.delete_ulong_array(u);
});

test('ulongp_value of an ulong_array reads its element 0', () => {
  const u = a.new_ulong_array(2);
  a.ulong_array_set(u, 0, 77);
  a.ulong_array_set(u, 1, 78);
  assert.equal(a.ulongp_value(u), 77);
  a.delete_ulong_array(u);
});

test('uint_array_set refuses values outside 0 to 4294967295', () => {
  const u = a.new_uint_array(1);
  throwsExactly(() => a.uint_array_set(u, 0, 4294967296), argMessage('uint_array_set', 3, 'unsigned int'));
  throwsExactly(() => a.uint_array_set(u, 0, -1), argMessage('uint_array_set', 3, 'unsigned int'));
  a.uint_array_set(u, 0, 4294967295);
  const pp = a.copy_uintpp(u);
  assert.equal(a.uintp_value(a.uintpp_value(pp)), -1, 'element 0 read through a uintp view');
  a.delete_uintpp(pp);
  a.delete_uint_array(u);
});

test('ulong_array_set refuses a negative value', () => {
  const u = a.new_ulong_array(1);
  throwsExactly(() => a.ulong_array_set(u, 0, -1), argMessage('ulong_array_set', 3, 'size_t'));
  a.delete_ulong_array(u);
});

test('charp_array_set copies exactly length bytes and terminates them', () => {
  const arr = a.new_charp_array(2);
  const length = a.new_ulongp();
  a.charp_array_set(arr, 0, 'hello', 3);
  assert.equal(a.charpp_value(arr, length), 'hel');
  assert.equal(a.ulongp_value(length), 3, 'the measured length is written back');
  a.charp_array_set(arr, 0, 'again', 5);
  a.ulongp_assign(length, 0);
  assert.equal(a.charpp_value(arr, length), 'again', 'setting a slot again replaces its element');
  a.delete_ulongp(length);
  a.delete_charp_array(arr, 2);
});

test('charp_array_set stores UTF-8 bytes that the reader returns one per character', () => {
  const arr = a.new_charp_array(1);
  const length = a.copy_ulongp(2);
  a.charp_array_set(arr, 0, '\u00e9', 2);
  assert.equal(a.charpp_value(arr, length), '\u00c3\u00a9');
  a.delete_ulongp(length);
  a.delete_charp_array(arr, 1);
});

test('charp_array_set keeps zero bytes inside the length', () => {
  const arr = a.new_charp_array(1);
  const length = a.copy_ulongp(3);
  a.charp_array_set(arr, 0, 'a\u0000b', 3);
  assert.equal(a.charpp_value(arr, length), 'a\u0000b');
  a.delete_ulongp(length);
  a.delete_charp_array(arr, 1);
});

test('delete_charp_array of null does nothing; of a block with count 0 frees the block', () => {
  assert.equal(a.delete_charp_array(null, 5), undefined);
  assert.equal(a.delete_charp_array(a.new_charp_array(3), 0), undefined);
});

test('arrays and cells of one element type are interchangeable as command arguments', () => {
  const client = a.kl_client_create(0, 0, null, 1);
  const keys = a.new_charp_array(2);
  a.charp_array_set(keys, 0, 'a', 1);
  a.charp_array_set(keys, 1, 'bb', 2);
  const lengths = a.new_ulong_array(2);
  const values = a.new_charppp();
  const count = a.new_ulongp();
  const valueLengths = a.new_ulongpp();
  const log = calls(() => a.kl_mget_whole(client, keys, 2, lengths, values, count, valueLengths, '', 0, 1));
  assert.deepEqual(log[0].args.slice(1, 4), [hexOf(keys), '2', hexOf(lengths)]);
  // a one-element cell where an array is declared, and the reverse
  const cellLengths = a.new_ulongp();
  const arrayCount = a.new_ulong_array(1);
  const log2 = calls(() => a.kl_mget_whole(client, keys, 2, cellLengths, values, arrayCount, valueLengths, '', 0, 1));
  assert.deepEqual([log2[0].args[3], log2[0].args[5]], [hexOf(cellLengths), hexOf(arrayCount)]);
  a.delete_ulongp(cellLengths);
  a.delete_ulong_array(arrayCount);
  a.delete_ulongpp(valueLengths);
  a.delete_ulongp(count);
  a.delete_charppp(values);
  a.delete_ulong_array(lengths);
  a.delete_charp_array(keys, 2);
  a.kl_client_destroy(client);
});

test('the array functions refuse arguments of the wrong type in order', () => {
  const arr = a.new_charp_array(1);
  throwsExactly(() => a.new_charp_array('1'), argMessage('new_charp_array', 1, 'int'));
  throwsExactly(() => a.charp_array_set(1, 0, 'x', 1), argMessage('charp_array_set', 1, 'char **'));
  throwsExactly(() => a.charp_array_set(arr, '0', 'x', 1), argMessage('charp_array_set', 2, 'int'));
  throwsExactly(() => a.charp_array_set(arr, 0, 1, 1), argMessage('charp_array_set', 3, 'char *'));
  throwsExactly(() => a.charp_array_set(arr, 0, 'x', '1'), argMessage('charp_array_set', 4, 'int'));
  throwsExactly(() => a.delete_charp_array(arr, null), argMessage('delete_charp_array', 2, 'int'));
  throwsExactly(() => a.ulong_array_get(arr, 0), argMessage('ulong_array_get', 1, 'size_t *'));
  throwsExactly(() => a.double_array_set(null, 0, 'x'), argMessage('double_array_set', 3, 'double'));
  throwsExactly(() => a.delete_double_array(arr), argMessage('delete_double_array', 1, 'double *'));
  a.delete_charp_array(arr, 1);
});
