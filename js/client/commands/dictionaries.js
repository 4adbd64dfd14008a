'use strict';
// Dictionaries: words with a value and a weight, completed by prefix.
const { text, byteLength, seconds, pairs, textPairs } = require('../support.js');
const { $handle, NOTFOUND, $answered, requestAnswer } = require('../core.js');
const { answeredFunction } = require('../native.js');
const {
  command, methods, KEY, WORD, VALUE, TTL, ROUTE, WEIGHT, done, value, routeOf,
} = require('../table.js');

// The entries of a dictionary read by library function fnName (words with
// their values) as [{ word, value }].
function* entries(client, command, key, options, fnName, ...args) {
  const answer = yield requestAnswer(answeredFunction(fnName), client[$handle], ...args, options?.buffer === true);
  const [words, values] = client[$answered](answer, command, key) ?? [[], []];
  return words.map((word, i) => ({ word, value: values[i] }));
}

module.exports = methods({
  /** Adds a word with its value; options: weight (heavier completes first), ttl. */
  dadd: command('kl_dadd', [KEY, WORD, VALUE], done(), [WEIGHT, TTL]),

  /** Adds many words ({ word: value }, a Map or pairs), all with options.weight: how many were new. */
  * dmadd(key, all, options) {
    const k = text(key, 'key', 'dmadd');
    const list = pairs(all, 'entries', 'dmadd');
    if (list.length === 0) return 0;
    const weight = seconds(options?.weight ?? 1, 'weight', 'dmadd');
    const ttl = seconds(options?.ttl, 'ttl', 'dmadd');
    const added = yield requestAnswer(answeredFunction('kl_dmadd'), this[$handle], k, byteLength(k),
      textPairs(list, 'word', 'value', 'dmadd'), weight, ttl, false);
    return this[$answered](added, 'dmadd', key) ?? 0;
  },

  dget: command('kl_dget_whole', [KEY, WORD], value(), [ROUTE]),
  /** Removes a word: true when it was there. */
  drem: command('kl_drem', [KEY, WORD], done(NOTFOUND)),

  /** Completion: the words starting with prefix, heaviest first, as [{ word, value }]. */
  * dclose(key, prefix, options) {
    const k = text(key, 'key', 'dclose');
    const p = text(prefix, 'prefix', 'dclose');
    const route = routeOf(options, 'dclose');
    return yield* entries(this, 'dclose', key, options, 'kl_dclose_whole', k, byteLength(k), p, byteLength(p),
      route, byteLength(route));
  },

  /** Every word of the dictionary, heaviest first, as [{ word, value }]. */
  * dgetall(key, options) {
    const k = text(key, 'key', 'dgetall');
    const route = routeOf(options, 'dgetall');
    return yield* entries(this, 'dgetall', key, options, 'kl_dgetall_whole', k, byteLength(k), route, byteLength(route));
  },
});
