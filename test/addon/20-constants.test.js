'use strict';
// The read-only integer constants.
const { test } = require('node:test');
const assert = require('node:assert/strict');
const { constants } = require('./signatures');
const { addon } = require('./harness');

test('every constant reads its value', () => {
  for (const [name, value] of constants) assert.equal(addon[name], value, name);
});

test('KL_DIRTY is 128, CLIENT_VERSION_AUTO is 3 and KL_FLAG_NONE is 1', () => {
  assert.equal(addon.KL_DIRTY, 128);
  assert.equal(addon.CLIENT_VERSION_AUTO, 3);
  assert.equal(addon.KL_FLAG_NONE, 1);
});

test('assigning to any constant throws the read-only message and keeps the value', () => {
  for (const [name, value] of constants) {
    assert.throws(() => { addon[name] = 99; }, (e) => {
      assert.equal(Object.getPrototypeOf(e), Error.prototype);
      assert.equal(e.message, `Tried to write read-only variable: ${name}.`);
      return true;
    });
    assert.equal(addon[name], value, name);
  }
});

test('the write refusal throws in sloppy code too', () => {
  // eslint-disable-next-line no-new-func
  const sloppy = new Function('m', 'm.KL_SUCCESS = 5; return m.KL_SUCCESS;');
  assert.throws(() => sloppy(addon), { message: 'Tried to write read-only variable: KL_SUCCESS.' });
  assert.equal(addon.KL_SUCCESS, 0);
});

test('the constants take part in property enumeration', () => {
  const seen = [];
  for (const key in addon) seen.push(key);
  for (const [name] of constants) assert.ok(seen.includes(name), name);
});

test('every constant is a number primitive', () => {
  for (const [name] of constants) assert.equal(typeof addon[name], 'number', name);
});
