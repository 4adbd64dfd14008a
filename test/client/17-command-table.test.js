'use strict';
// The lines of the command tables are checked against the native tables'
// declarations when they are made (and by the build): a line whose kinds do
// not lay out its C function's arguments is refused with the place it goes
// wrong.
const { test } = require('node:test');
const assert = require('node:assert/strict');
const { own } = require('../../js/client/native.js');
const {
  command, checkLayout, KEY, VALUE, ROUTE, TTL, GROUP, integerOf, numberOf, done, value, values, count,
} = require('../../js/client/table.js');

test('the native tables spell every library command\'s C kinds', () => {
  assert.equal(own.signatures.kl_get_whole, 'Client, CharP, Size, CharPP, SizeP, CharP, Size');
  assert.equal(own.signatures.kl_llen, 'Client, CharP, Size, UIntP');
  assert.equal(own.signatures.kl_hlen, 'Client, CharP, Size, IntP');
  assert.equal(own.signatures.kl_get_version, undefined); // a module function, no command
});

test('lines that lay out their function are made', () => {
  assert.equal(typeof command('kl_get_whole', [KEY], value(), [ROUTE]), 'function');
  assert.equal(typeof command('kl_lrange_whole', [KEY, integerOf('start'), integerOf('stop')], values(), [ROUTE]), 'function');
  assert.equal(typeof command('kl_hlen', [KEY], count()), 'function'); // int * and unsigned int * both count
  assert.equal(typeof command('kl_dbsize', [], count(), [GROUP]), 'function');
  assert.doesNotThrow(() => checkLayout('kl_set', ['Client', 'CharP', 'Size', 'CharP', 'Size', 'Size']));
});

test('a line with an argument too many, too few, of another kind or out of order is refused', () => {
  assert.throws(() => command('kl_llen', [KEY, integerOf('extra')], count()),
    { message: 'keyloom: the line of kl_llen does not match its declaration (Client, CharP, Size, UIntP): C argument 4 is Int' });
  assert.throws(() => command('kl_set', [KEY], done(), [TTL]),
    { message: 'keyloom: the line of kl_set does not match its declaration (Client, CharP, Size, CharP, Size, Size): C argument 4 is Size' });
  assert.throws(() => command('kl_get_whole', [KEY], value()), /kl_get_whole .*: C argument 6 is missing$/);
  assert.throws(() => command('kl_llen', [KEY], count(), [ROUTE]), /kl_llen .*: it lays out 6 C arguments, not 4$/);
  assert.throws(() => command('kl_zcount', [KEY, integerOf('min'), numberOf('max')], count()),
    /kl_zcount .*: C argument 4 is Int$/);
  assert.throws(() => command('kl_get_whole', [KEY, VALUE], value()), /C argument 4 is CharP\|CharConstP$/);
  assert.throws(() => command('kl_no_such_command', [KEY], done()), /kl_no_such_command is no library command/);
});
