'use strict';
// Typed pointer cells: start zeroed, store and read back by the conversion
// rules of their family, refuse cells of other families.
const { test } = require('node:test');
const assert = require('node:assert/strict');
const { addon: a, calls, throwsExactly, argMessage, countMessage } = require('./harness');

const valueFamilies = ['intp', 'uintp', 'ulongp', 'doublep', 'kl_return_tp'];
const pointerFamilies = [
  ['intpp', 'intp'], ['uintpp', 'uintp'], ['ulongpp', 'ulongp'], ['doublepp', 'doublep'],
  ['kl_return_tpp', 'kl_return_tp'],
];

test('a new value cell holds zero and calls no library function', () => {
  const log = calls(() => {
    for (const x of valueFamilies) {
      const c = a[`new_${x}`]();
      assert.equal(a[`${x}_value`](c), 0, x);
      a[`delete_${x}`](c);
    }
  });
  assert.deepEqual(log, []);
});

test('a new pointer cell holds a null pointer, read back as null', () => {
  for (const [x] of pointerFamilies) {
    const c = a[`new_${x}`]();
    assert.equal(a[`${x}_value`](c), null, x);
    a[`delete_${x}`](c);
  }
});

test('copy and assign store the value that value reads back', () => {
  const cases = [
    ['intp', 42, 42], ['intp', -7.9, -7], ['intp', 2 ** 31, -2147483648], ['intp', 4294967297, 1],
    ['uintp', 7.9, 7], ['uintp', 2147483647, 2147483647], ['uintp', 4294967295, -1], ['uintp', 2147483648, -2147483648],
    ['ulongp', 2147483647, 2147483647], ['ulongp', 4294967296, 0], ['ulongp', 3000000000, -1294967296],
    ['ulongp', 4294967297, 1], ['ulongp', 1.5, 1],
    ['doublep', 0.1, 0.1], ['doublep', -0, -0], ['doublep', Infinity, Infinity], ['doublep', 1e-310, 1e-310],
    ['kl_return_tp', 141, 141], ['kl_return_tp', -1, -1], ['kl_return_tp', 4294967296 + 13, 13],
  ];
  for (const [x, stored, read] of cases) {
    const c = a[`copy_${x}`](stored);
    assert.ok(Object.is(a[`${x}_value`](c), read), `copy_${x}(${stored})`);
    a[`${x}_assign`](c, 0);
    a[`${x}_assign`](c, stored);
    assert.ok(Object.is(a[`${x}_value`](c), read), `${x}_assign(${stored})`);
    a[`delete_${x}`](c);
  }
  const nan = a.copy_doublep(NaN);
  assert.ok(Number.isNaN(a.doublep_value(nan)));
  a.delete_doublep(nan);
});

test('a pointer cell stores an address and hands back a new proxy of it', () => {
  for (const [x, inner] of pointerFamilies) {
    const target = a[`new_${inner}`]();
    const c = a[`copy_${x}`](target);
    const back = a[`${x}_value`](c);
    assert.notEqual(back, target);
    assert.equal(back.equals(target), true, x);
    a[`${inner}_assign`](back, 5);
    assert.equal(a[`${inner}_value`](target), 5, `${x}: the same cell`);
    a[`${x}_assign`](c, null);
    assert.equal(a[`${x}_value`](c), null);
    const empty = a[`copy_${x}`](null);
    assert.equal(a[`${x}_value`](empty), null);
    a[`delete_${x}`](empty);
    a[`delete_${x}`](c);
    a[`delete_${inner}`](target);
  }
});

test('uintp_assign refuses 4294967296 and -1 and keeps the cell as it was', () => {
  const c = a.copy_uintp(9);
  throwsExactly(() => a.uintp_assign(c, 4294967296), argMessage('uintp_assign', 2, 'unsigned int'));
  throwsExactly(() => a.uintp_assign(c, -1), argMessage('uintp_assign', 2, 'unsigned int'));
  assert.equal(a.uintp_value(c), 9);
  a.delete_uintp(c);
});

test('ulongp_assign refuses -1', () => {
  const c = a.new_ulongp();
  throwsExactly(() => a.ulongp_assign(c, -1), argMessage('ulongp_assign', 2, 'size_t'));
  throwsExactly(() => a.copy_ulongp(-1), argMessage('copy_ulongp', 1, 'size_t'));
  assert.equal(a.ulongp_value(c), 0);
  a.delete_ulongp(c);
});

test('intp_assign refuses the string 5', () => {
  const c = a.new_intp();
  throwsExactly(() => a.intp_assign(c, '5'), argMessage('intp_assign', 2, 'int'));
  assert.equal(a.intp_value(c), 0);
  a.delete_intp(c);
});

test('copy_kl_return_tp refuses a non-number with the enumeration type name', () => {
  throwsExactly(() => a.copy_kl_return_tp('0'), argMessage('copy_kl_return_tp', 1, 'kl_return_t'));
});

test('delete of null does nothing; delete of undefined is refused', () => {
  for (const x of [...valueFamilies, ...pointerFamilies.map(([p]) => p), 'charpp', 'charppp']) {
    assert.equal(a[`delete_${x}`](null), undefined, x);
  }
  throwsExactly(() => a.delete_intp(undefined), argMessage('delete_intp', 1, 'int *'));
  // delete_charp converts by the char * rule, which takes no null.
  throwsExactly(() => a.delete_charp(null), argMessage('delete_charp', 1, 'char *'));
});

test('a cell of another family is refused', () => {
  const u = a.new_uintp();
  throwsExactly(() => a.intp_value(u), argMessage('intp_value', 1, 'int *'));
  throwsExactly(() => a.delete_intp(u), argMessage('delete_intp', 1, 'int *'));
  throwsExactly(() => a.intpp_assign(u, u), argMessage('intpp_assign', 1, 'int **'));
  a.delete_uintp(u);
});

test('a pointer cell refuses a pointer of another type as its content', () => {
  const pp = a.new_intpp();
  const d = a.new_doublep();
  throwsExactly(() => a.intpp_assign(pp, d), argMessage('intpp_assign', 2, 'int *'));
  throwsExactly(() => a.copy_intpp(d), argMessage('copy_intpp', 1, 'int *'));
  a.delete_doublep(d);
  a.delete_intpp(pp);
});

test('new_intp with one argument is refused', () => {
  throwsExactly(() => a.new_intp(1), countMessage('new_intp'));
  throwsExactly(() => a.kl_return_tp_assign(null), countMessage('kl_return_tp_assign'));
});

test('the char cells start as null pointers', () => {
  const cell = a.new_charpp();
  const length = a.copy_ulongp(5);
  assert.equal(a.charpp_value(cell, length), null);
  assert.equal(a.charpp_value_raw(cell, length), null);
  assert.equal(a.ulongp_value(length), 5, 'the length cell is not touched');
  const many = a.new_charppp();
  assert.equal(a.charppp_value(many, null, 0), null);
  assert.equal(a.charppp_value_raw(many, null, 0), null);
  a.delete_charppp(many);
  a.delete_charpp(cell);
  a.delete_ulongp(length);
});
