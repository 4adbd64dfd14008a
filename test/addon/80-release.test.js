'use strict';
// The memory manager value and the reply release functions.
const { test } = require('node:test');
const assert = require('node:assert/strict');
const { addon: a, calls, recorded, throwsExactly, argMessage, countMessage, hexOf } = require('./harness');

test('new_mm is null and takes no argument', () => {
  assert.equal(a.new_mm(), null);
  throwsExactly(() => a.new_mm(1), countMessage('new_mm'));
});

test('kl_free_reply_pp with a null reply and a null manager does nothing', () => {
  const [result, log] = recorded(() => a.kl_free_reply_pp(null, 5, null));
  assert.equal(result, undefined);
  assert.deepEqual(log, []);
});

test('kl_free_reply_pp refuses counts outside 0 to 4294967295 before any release', () => {
  const cell = a.new_charppp();
  throwsExactly(() => a.kl_free_reply_pp(cell, -1, null), argMessage('kl_free_reply_pp', 2, 'unsigned int'));
  throwsExactly(() => a.kl_free_reply_pp(cell, 4294967296, null), argMessage('kl_free_reply_pp', 2, 'unsigned int'));
  a.delete_charppp(cell);
});

test('kl_free_php_reply_p passes the cell address and returns undefined whatever the library returns', () => {
  const cell = a.new_charpp();
  process.env.KEYLOOM_PROBE_RESULT = '5';
  try {
    const [result, log] = recorded(() => a.kl_free_php_reply_p(cell));
    assert.equal(result, undefined);
    assert.deepEqual(log, [{ fn: 'kl_free_php_reply_p', args: [hexOf(cell)] }]);
  } finally {
    delete process.env.KEYLOOM_PROBE_RESULT;
  }
  a.delete_charpp(cell);
});

test('kl_free_php_reply_pp truncates its count', () => {
  const cell = a.new_charppp();
  assert.deepEqual(calls(() => a.kl_free_php_reply_pp(cell, 2.7)), [{ fn: 'kl_free_php_reply_pp', args: [hexOf(cell), '2'] }]);
  assert.deepEqual(calls(() => a.kl_free_php_reply_pp(null, 0)), [{ fn: 'kl_free_php_reply_pp', args: [null, '0'] }]);
  a.delete_charppp(cell);
});

test('the release functions check their arguments in order', () => {
  const cell = a.new_charpp();
  throwsExactly(() => a.kl_free_reply_p(a.new_mm(), 1), argMessage('kl_free_reply_p', 2, 'kl_mm_t *'));
  throwsExactly(() => a.kl_free_reply_p(1, null), argMessage('kl_free_reply_p', 1, 'char **'));
  throwsExactly(() => a.kl_free_reply_pp(cell, 1, null), argMessage('kl_free_reply_pp', 1, 'char ***'));
  throwsExactly(() => a.kl_free_reply_pp(null, 1, cell), argMessage('kl_free_reply_pp', 3, 'kl_mm_t *'));
  throwsExactly(() => a.kl_free_php_reply_pp(null, -1), argMessage('kl_free_php_reply_pp', 2, 'unsigned int'));
  throwsExactly(() => a.kl_free_php_reply_p(), countMessage('kl_free_php_reply_p'));
  a.delete_charpp(cell);
});
