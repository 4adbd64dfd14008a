'use strict';
// Argument fixtures by C type: a valid value for each argument position (with
// the way the library double logs it once converted) and the values of the
// wrong kind that each type must refuse.
const assert = require('node:assert/strict');
const { addon, hexOf, utf8Hex, g17, sameText } = require('./harness');

// One cell per pointer descriptor, made once and deleted by release().
function makeFixtures() {
  const a = addon;
  const cells = {
    'int *': a.new_intp(),
    'int **': a.new_intpp(),
    'unsigned int *': a.new_uintp(),
    'unsigned int **': a.new_uintpp(),
    'size_t *': a.new_ulongp(),
    'size_t **': a.new_ulongpp(),
    'double *': a.new_doublep(),
    'double **': a.new_doublepp(),
    'kl_return_t *': a.new_kl_return_tp(),
    'kl_return_t **': a.new_kl_return_tpp(),
    'char **': a.new_charpp(),
    'char ***': a.new_charppp(),
  };
  cells['size_t const *'] = cells['size_t *'];
  cells['char const **'] = cells['char **'];
  const client = a.kl_client_create(0, 1, null, 1);
  return {
    client,
    cells,
    release() {
      a.delete_intp(cells['int *']);
      a.delete_intpp(cells['int **']);
      a.delete_uintp(cells['unsigned int *']);
      a.delete_uintpp(cells['unsigned int **']);
      a.delete_ulongp(cells['size_t *']);
      a.delete_ulongpp(cells['size_t **']);
      a.delete_doublep(cells['double *']);
      a.delete_doublepp(cells['double **']);
      a.delete_kl_return_tp(cells['kl_return_t *']);
      a.delete_kl_return_tpp(cells['kl_return_t **']);
      a.delete_charpp(cells['char **']);
      a.delete_charppp(cells['char ***']);
      a.kl_client_destroy(client);
    },
  };
}

const INT_TYPES = new Set(['int', 'setFlags', 'zSetFlags', 'kl_return_t', 'kl_hash',
  'kl_server_distribution', 'kl_client_version']);
const TEXT_TYPES = new Set(['char *', 'char const *']);

// The valid value for argument k (1-based) of the given type, and a checker
// of the double's log entry for it. Values differ by position so that a
// swapped argument shows, and they exercise the conversions: fractions
// dropped toward zero, int cut to 32 bits, strings as UTF-8.
function valid(fx, type, k) {
  if (type === 'kl_client *') return [fx.client, (got) => assert.equal(got, hexOf(fx.client))];
  if (type === 'kl_mm_t *') return [null, (got) => assert.equal(got, null)];
  if (fx.cells[type]) return [fx.cells[type], (got) => assert.equal(got, hexOf(fx.cells[type]))];
  if (TEXT_TYPES.has(type)) {
    const s = `s${k}\u00e9\u2713`;
    return [s, (got, where) => sameText(got, utf8Hex(s), where)];
  }
  if (type === 'binary encoded string') {
    return [`b${k}\u00e9`, (got, where) => sameText(got, Buffer.from([0x62, 0x30 + k, 0xe9]).toString('hex'), where)];
  }
  if (type === 'size_t') return [2 ** 40 + k + 0.75, (got) => assert.equal(got, String(2 ** 40 + k))];
  if (type === 'unsigned int') return [4000000000 + k + 0.5, (got) => assert.equal(got, String(4000000000 + k))];
  if (INT_TYPES.has(type)) {
    // 2^33 - k - 0.5 truncates to 2^33 - k - 1, whose low 32 bits are -(k + 1).
    return [2 ** 33 - k - 0.5, (got) => assert.equal(got, String(-(k + 1)))];
  }
  if (type === 'double') return [k + 0.1, (got) => assert.equal(got, g17(k + 0.1))];
  throw new Error(`no fixture for type '${type}'`);
}

// Values of the wrong kind for a type, each with a label for the test name.
function wrong(fx, type) {
  const plain = [['undefined', undefined], ['a boolean', true], ['a plain object', {}], ['an array', []]];
  if (type === 'binary encoded string') {
    return [...plain, ['null', null], ['a number', 5], ['a String object', new String('x')],
      ['a Buffer', Buffer.from('x')], ['a proxy', fx.cells['int *']]];
  }
  if (TEXT_TYPES.has(type)) {
    return [...plain, ['null', null], ['a number', 5], ['a String object', new String('x')],
      ['a proxy of another type', fx.cells['char **']]];
  }
  if (type.endsWith('*')) {
    const other = type === 'int *' ? fx.cells['unsigned int *'] : fx.cells['int *'];
    const sameSize = type === 'char ***' ? fx.cells['char **'] : fx.cells['char ***'];
    const list = [...plain, ['a number', 0], ['a string', 'x'], ['a proxy of another type', other]];
    if (type !== 'kl_client *') list.push(['a client proxy', fx.client]);
    list.push(['a pointer-sized proxy of another type', sameSize]);
    return list;
  }
  const numbers = [...plain, ['null', null], ['a numeric string', '3'], ['a Number object', new Number(3)]];
  if (type === 'size_t') return [...numbers, ['-1', -1], ['NaN', NaN], ['Infinity', Infinity], ['2^63', 2 ** 63], ['-Infinity', -Infinity]];
  if (type === 'unsigned int') return [...numbers, ['-1', -1], ['2^32', 2 ** 32], ['NaN', NaN]];
  return numbers;
}

module.exports = { makeFixtures, valid, wrong, INT_TYPES, TEXT_TYPES };
