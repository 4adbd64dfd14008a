'use strict';
// The exports object: the constants then the functions, in installation order,
// and nothing else.
const { test } = require('node:test');
const assert = require('node:assert/strict');
const { constants, functions, exportedNames, libraryFunctions, documentedCounts } = require('./signatures');
const { addon } = require('./harness');

test('the tables hold the documented number of constants, functions and library calls', () => {
  assert.deepEqual(
    { constants: constants.length, functions: functions.length, exports: exportedNames.length,
      libraryFunctions: libraryFunctions.length },
    documentedCounts);
});

test('the exports object holds every name of the tables in installation order', () => {
  assert.deepEqual(Object.keys(addon), exportedNames);
  assert.deepEqual(Reflect.ownKeys(addon), exportedNames);
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
