'use strict';
// The exports object: 54 constants then 214 functions, in installation order,
// and nothing else.
const { test } = require('node:test');
const assert = require('node:assert/strict');
const { constants, functions } = require('./signatures');
const { addon } = require('./harness');

test('the exports object holds the 268 names in installation order', () => {
  const expected = [...constants.map(([name]) => name), ...functions.map((f) => f.name)];
  assert.equal(expected.length, 268);
  assert.deepEqual(Object.keys(addon), expected);
  assert.deepEqual(Reflect.ownKeys(addon), expected);
});

test('every function is a writable, enumerable, configurable data property holding a function', () => {
  for (const f of functions) {
    const d = Object.getOwnPropertyDescriptor(addon, f.name);
    assert.equal(typeof d.value, 'function', f.name);
    assert.equal(d.writable && d.enumerable && d.configurable, true, f.name);
  }
});

test('every constant is an own enumerable property', () => {
  for (const [name] of constants) {
    const d = Object.getOwnPropertyDescriptor(addon, name);
    assert.ok(d, name);
    assert.equal(d.enumerable, true, name);
  }
});

test('the exports object has no equals and no getCPtr', () => {
  assert.equal('equals' in addon, false);
  assert.equal('getCPtr' in addon, false);
});

test('the plain-named list and range readers are not exported', () => {
  for (const name of ['kl_lrange', 'kl_lindex', 'kl_lpop', 'kl_rpop', 'kl_spop', 'kl_sval',
    'kl_sunion', 'kl_smembers', 'kl_get', 'kl_getset', 'kl_mget', 'new_charp', 'copy_charpp',
    'charpp_assign', 'charp_array_get', 'uint_array_get', 'uintpp_index_value',
    'ulongpp_index_value']) {
    assert.equal(Object.hasOwn(addon, name), false, name);
  }
});
