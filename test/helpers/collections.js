'use strict';
// Readers for the replies of the collection families that fill two string
// arrays (members and values, fields and values, words and values) and maybe
// a score array. Each reader frees the reply the way a caller must:
// kl_free_php_reply_pp for string arrays, kl_free_php_reply_p through the
// _to_charpp casts for the lengths and the scores.
const { addon } = require('./cluster');

function readStrings(cell, lens, n) {
  const out = [];
  for (let i = 0; i < n; i++) out.push(addon.charppp_value(cell, lens, i));
  return out;
}

/**
 * Runs fn(cells) with cells = { count, first, firstLens, second, secondLens,
 * scores } and reads them back: { code, first, second, scores } (arrays
 * empty unless the call succeeded; second and scores only when `want` says
 * the call fills them).
 */
function readPairs(want, fn) {
  const cells = {
    count: addon.new_ulongp(),
    first: addon.new_charppp(),
    firstLens: addon.new_ulongpp(),
    second: addon.new_charppp(),
    secondLens: addon.new_ulongpp(),
    scores: addon.new_doublepp(),
  };
  try {
    const code = fn(cells);
    const out = { code, first: [], second: [], scores: [] };
    if (addon.kl_get_result(code) !== addon.KL_SUCCESS) return out;
    const n = addon.ulongp_value(cells.count);
    out.first = readStrings(cells.first, cells.firstLens, n);
    if (want.second) out.second = readStrings(cells.second, cells.secondLens, n);
    if (want.scores) {
      for (let i = 0; i < n; i++) out.scores.push(addon.doublepp_index_value(cells.scores, i));
    }
    addon.kl_free_php_reply_pp(cells.first, n);
    addon.kl_free_php_reply_p(addon.ulongpp_to_charpp(cells.firstLens));
    addon.kl_free_php_reply_pp(cells.second, n);
    addon.kl_free_php_reply_p(addon.ulongpp_to_charpp(cells.secondLens));
    addon.kl_free_php_reply_p(addon.doublepp_to_charpp(cells.scores));
    return out;
  } finally {
    addon.delete_ulongp(cells.count);
    addon.delete_charppp(cells.first);
    addon.delete_ulongpp(cells.firstLens);
    addon.delete_charppp(cells.second);
    addon.delete_ulongpp(cells.secondLens);
    addon.delete_doublepp(cells.scores);
  }
}

/** Runs fn(valueCell, lengthCell) for a single value: { code, value }. */
function readOne(fn) {
  const cell = addon.new_charpp();
  const len = addon.new_ulongp();
  try {
    const code = fn(cell, len);
    const value = addon.charpp_value(cell, len);
    addon.kl_free_php_reply_p(cell);
    return { code, value };
  } finally {
    addon.delete_charpp(cell);
    addon.delete_ulongp(len);
  }
}

/** Runs fn(cell) for an unsigned int / int / double out cell: { code, value }. */
function readNumber(kind, fn) {
  const cell = addon[`new_${kind}p`]();
  try {
    const code = fn(cell);
    return { code, value: addon[`${kind}p_value`](cell) };
  } finally {
    addon[`delete_${kind}p`](cell);
  }
}

module.exports = { readPairs, readOne, readNumber };
