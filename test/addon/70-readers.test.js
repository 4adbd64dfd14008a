'use strict';
// Reply readers: text out of a char ** cell by the stored length (one
// character per byte, the "_NL_" marker, the lone zero byte, measured
// lengths), indexed readers and the char ** casts. A one-element charp_array
// stands in for a cell the library filled: both are char ** to a text.
const { test } = require('node:test');
const assert = require('node:assert/strict');
const { addon: a, calls, throwsExactly, argMessage, countMessage, hexOf } = require('./harness');

// A char ** holding the UTF-8 bytes of `text`, and a length cell holding storedLength.
function reply(text, storedLength) {
  const cell = a.new_charp_array(1);
  a.charp_array_set(cell, 0, text, Buffer.byteLength(text));
  const length = a.copy_ulongp(storedLength);
  return {
    cell, length,
    free() { a.delete_ulongp(length); a.delete_charp_array(cell, 1); },
  };
}

test('a zero length is measured up to the terminator and written back', () => {
  const r = reply('abc', 0);
  assert.equal(a.charpp_value(r.cell, r.length), 'abc');
  assert.equal(a.ulongp_value(r.length), 3);
  a.ulongp_assign(r.length, 0);
  assert.equal(a.charpp_value_raw(r.cell, r.length), 'abc');
  assert.equal(a.ulongp_value(r.length), 3);
  r.free();
});

test('a zero byte inside the stored length is kept as U+0000', () => {
  const r = reply('a\u0000b', 3);
  assert.equal(a.charpp_value(r.cell, r.length), 'a\u0000b');
  assert.equal(a.charpp_value_raw(r.cell, r.length), 'a\u0000b');
  r.free();
});

test('each byte becomes one character (ISO 8859-1), so UTF-8 text comes back as its bytes', () => {
  const r = reply('\u00e9', 2);
  assert.equal(a.charpp_value(r.cell, r.length), '\u00c3\u00a9');
  r.free();
  const s = reply('\u20ac', 0);
  assert.equal(a.charpp_value(s.cell, s.length), '\u00e2\u0082\u00ac');
  assert.equal(a.ulongp_value(s.length), 3);
  s.free();
});

test('a stored length shorter than the text cuts it', () => {
  const r = reply('abcdef', 2);
  assert.equal(a.charpp_value(r.cell, r.length), 'ab');
  r.free();
});

test('"_NL_" with length 4 is null for charpp_value and the text for charpp_value_raw', () => {
  const r = reply('_NL_', 4);
  assert.equal(a.charpp_value_raw(r.cell, r.length), '_NL_');
  assert.equal(a.ulongp_value(r.length), 4, 'the raw reader leaves the length');
  assert.equal(a.charpp_value(r.cell, r.length), null);
  assert.equal(a.ulongp_value(r.length), 0, 'the plain reader zeroes the length');
  r.free();
});

test('"_NL_" with length 0 is read as the text by both readers, which write 4', () => {
  const r = reply('_NL_', 0);
  assert.equal(a.charpp_value(r.cell, r.length), '_NL_');
  assert.equal(a.ulongp_value(r.length), 4);
  a.ulongp_assign(r.length, 0);
  assert.equal(a.charpp_value_raw(r.cell, r.length), '_NL_');
  assert.equal(a.ulongp_value(r.length), 4);
  r.free();
});

test('"_nl_" and "_NL_x" are not the marker', () => {
  const r = reply('_nl_', 4);
  assert.equal(a.charpp_value(r.cell, r.length), '_nl_');
  r.free();
  const s = reply('_NL_x', 5);
  assert.equal(a.charpp_value(s.cell, s.length), '_NL_x');
  s.free();
});

test('one zero byte with length 1 is the empty string for charpp_value, U+0000 for the raw reader', () => {
  const r = reply('', 1);
  assert.equal(a.charpp_value_raw(r.cell, r.length), '\u0000');
  assert.equal(a.ulongp_value(r.length), 1);
  assert.equal(a.charpp_value(r.cell, r.length), '');
  assert.equal(a.ulongp_value(r.length), 0);
  r.free();
});

test('a null cell, a null text or a null length cell reads as null', () => {
  const r = reply('abc', 3);
  assert.equal(a.charpp_value(null, r.length), null);
  assert.equal(a.charpp_value(r.cell, null), null);
  assert.equal(a.charpp_value_raw(r.cell, null), null);
  const empty = a.new_charp_array(1);
  assert.equal(a.charpp_value(empty, r.length), null);
  assert.equal(a.charppp_value(null, null, 0), null);
  assert.equal(a.charppp_value_raw(null, null, 0), null);
  a.delete_charp_array(empty, 1);
  r.free();
});

test('the readers call no library function', () => {
  const r = reply('abc', 3);
  assert.deepEqual(calls(() => a.charpp_value(r.cell, r.length)), []);
  r.free();
});

test('the index readers return 0 for a null array and the element otherwise', () => {
  const ipp = a.new_intpp();
  assert.equal(a.intpp_index_value(ipp, 0), 0);
  const i = a.copy_intp(-42);
  a.intpp_assign(ipp, i);
  assert.equal(a.intpp_index_value(ipp, 0), -42);

  const dpp = a.new_doublepp();
  assert.equal(a.doublepp_index_value(dpp, 5), 0);
  const d = a.new_double_array(3);
  a.double_array_set(d, 2, 2.25);
  a.doublepp_assign(dpp, d);
  assert.equal(a.doublepp_index_value(dpp, 2), 2.25);

  const rpp = a.new_kl_return_tpp();
  assert.equal(a.kl_return_tpp_index_value(rpp, 0), 0);
  const r = a.copy_kl_return_tp(4294967295);
  a.kl_return_tpp_assign(rpp, r);
  assert.equal(a.kl_return_tpp_index_value(rpp, 0), -1);

  a.delete_kl_return_tp(r);
  a.delete_kl_return_tpp(rpp);
  a.delete_double_array(d);
  a.delete_doublepp(dpp);
  a.delete_intp(i);
  a.delete_intpp(ipp);
});

test('the casts wrap the same address as a char ** and pass null through', () => {
  const cells = [
    ['uintpp_to_charpp', a.new_uintpp(), 'delete_uintpp'], ['intpp_to_charpp', a.new_intpp(), 'delete_intpp'],
    ['kl_return_tpp_to_charpp', a.new_kl_return_tpp(), 'delete_kl_return_tpp'],
    ['ulongpp_to_charpp', a.new_ulongpp(), 'delete_ulongpp'], ['doublepp_to_charpp', a.new_doublepp(), 'delete_doublepp'],
  ];
  for (const [cast, cell, del] of cells) {
    const view = a[cast](cell);
    assert.equal(view.getCPtr(), cell.getCPtr(), cast);
    const log = calls(() => a.kl_free_php_reply_p(view));
    assert.deepEqual(log, [{ fn: 'kl_free_php_reply_p', args: [hexOf(cell)] }], `${cast} result is a char **`);
    assert.equal(a[cast](null), null, `${cast}(null)`);
    a[del](cell);
  }
});

test('new_empty_kl_return_tpp is null and takes no argument', () => {
  assert.equal(a.new_empty_kl_return_tpp(), null);
  throwsExactly(() => a.new_empty_kl_return_tpp(1), countMessage('new_empty_kl_return_tpp'));
});

test('the readers check their arguments in order', () => {
  const len = a.new_ulongp();
  throwsExactly(() => a.charpp_value(len, len), argMessage('charpp_value', 1, 'char **'));
  throwsExactly(() => a.charpp_value(null, 5), argMessage('charpp_value', 2, 'size_t *'));
  throwsExactly(() => a.charppp_value(null, len, 0), argMessage('charppp_value', 2, 'size_t **'));
  throwsExactly(() => a.charppp_value(null, null, '0'), argMessage('charppp_value', 3, 'int'));
  throwsExactly(() => a.doublepp_index_value(null, '0'), argMessage('doublepp_index_value', 2, 'int'));
  throwsExactly(() => a.kl_return_tpp_to_charpp(len), argMessage('kl_return_tpp_to_charpp', 1, 'kl_return_t **'));
  throwsExactly(() => a.charpp_value(null), countMessage('charpp_value'));
  a.delete_ulongp(len);
});
