'use strict';
// A second load of the module (a copy of keyloom.node under another path,
// with its own statics) joins the type registry ring of the first: each
// accepts the other's proxies of the same type and refuses other types.
const { test, after } = require('node:test');
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { addonPath } = require('../helpers/paths');
const { addon: first, argMessage } = require('./harness');
const { exportedNames } = require('./signatures');

const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'keyloom-ring-'));
const copyPath = path.join(dir, 'keyloom-copy.node');
fs.copyFileSync(path.resolve(addonPath), copyPath);
const second = require(copyPath);
after(() => fs.rmSync(dir, { recursive: true, force: true }));

test('the second load exports the same names', () => {
  assert.notEqual(second, first);
  assert.deepEqual(Object.keys(second), exportedNames);
});

test('a cell made by one load is read and freed by the other', () => {
  const c = first.copy_intp(11);
  assert.equal(second.intp_value(c), 11);
  second.intp_assign(c, 12);
  assert.equal(first.intp_value(c), 12);
  second.delete_intp(c);
  const d = second.copy_ulongp(99);
  assert.equal(first.ulongp_value(d), 99);
  first.delete_ulongp(d);
});

test('proxies of every shared type cross in both directions', () => {
  const loads = [[first, second], [second, first]];
  for (const [maker, taker] of loads) {
    for (const x of ['intp', 'intpp', 'uintp', 'uintpp', 'ulongp', 'ulongpp', 'doublep', 'doublepp',
      'kl_return_tp', 'kl_return_tpp', 'charpp', 'charppp']) {
      const cell = maker[`new_${x}`]();
      assert.equal(taker[`delete_${x}`](cell), undefined, x);
    }
  }
});

test('the type check still holds across the two loads', () => {
  const u = first.new_uintp();
  assert.throws(() => second.intp_value(u), { message: argMessage('intp_value', 1, 'int *') });
  const v = second.new_uintp();
  assert.throws(() => first.intp_value(v), { message: argMessage('intp_value', 1, 'int *') });
  first.delete_uintp(v);
  second.delete_uintp(u);
});

test('a client made through one load is accepted by the other', () => {
  const client = first.kl_client_create(0, 0, null, 1);
  assert.equal(second.kl_quit(client), 0);
  second.kl_client_destroy(client);
});
