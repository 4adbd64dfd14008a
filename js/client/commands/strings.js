'use strict';
// Strings and counters: GET, SET and its conditional forms, APPEND, GETSET,
// MGET/MSET over every shard, INCR/DECR.
const { kl, codes, text, byteLength, seconds, pairs, list, textList, textPairs } = require('../support.js');
const { $handle, $status, NOTFOUND, resultOf, request, $answered, requestAnswer, isFailureRecord } = require('../core.js');
const { own, answeredFunction } = require('../native.js');
const {
  command, methods, subcommand, KEY, VALUE, wideIntegerOf, fixedInteger, TTL, ROUTE, done, value, wide, routeOf,
} = require('../table.js');

// kl_set_binary_if's conditions.
const SET_ALWAYS = 0;
const SET_IF_ABSENT = 1;
const SET_IF_PRESENT = 2;

// kl_setnx, kl_setifx, kl_append: (client, key, len, value, len, ttl).
const store = (fn, ...soft) => command(fn, [KEY, VALUE], done(...soft), [TTL]);

module.exports = methods({
  get: command('kl_get_whole', [KEY], value(), [ROUTE]),

  * getBuffer(key, options) {
    return yield* subcommand(this, 'get', key, { ...options, buffer: true });
  },

  /**
   * SET. A Buffer value is stored byte for byte. Options: ttl (seconds), nx (only
   * when absent), xx (only when present), route (store on the routing string's
   * server; not with ttl). Returns true, or false when nx/xx prevented the write.
   */
  * set(key, value, options) {
    const ttl = seconds(options?.ttl, 'ttl', 'set');
    const binary = value instanceof Uint8Array;
    if (options?.nx && !binary) return yield* subcommand(this, 'setnx', key, value, { ttl: options.ttl });
    if (options?.xx && !binary) return yield* subcommand(this, 'setifx', key, value, { ttl: options.ttl });
    const k = text(key, 'key', 'set');
    if (options?.route !== undefined && options.route !== '') {
      if (ttl > 0) throw new TypeError('keyloom set: route and ttl cannot be combined');
      yield* subcommand(this, 'getset', key, value, { route: options.route });
      return true;
    }
    if (binary) {
      const bytes = Buffer.isBuffer(value) ? value : Buffer.from(value.buffer, value.byteOffset, value.byteLength);
      // One byte per character, copied for the library, which takes the copy over.
      const condition = options?.nx ? SET_IF_ABSENT : options?.xx ? SET_IF_PRESENT : SET_ALWAYS;
      const rc = yield request(own.kl_set_binary_if, this[$handle], k, byteLength(k), bytes.toString('latin1'),
        bytes.length, ttl, condition);
      const soft = condition === SET_IF_ABSENT ? [codes.KL_ALREADY_EXISTS] : condition === SET_IF_PRESENT ? [NOTFOUND] : undefined;
      return this[$status](rc, 'set', key, soft);
    }
    const v = text(value, 'value', 'set');
    return this[$status](yield request(kl.kl_set, this[$handle], k, byteLength(k), v, byteLength(v), ttl), 'set', key);
  },

  /** SET NX: true when set, false when the key already existed. */
  setnx: store('kl_setnx', codes.KL_ALREADY_EXISTS),
  /** SET XX: true when set, false when the key did not exist. */
  setifx: store('kl_setifx', NOTFOUND),
  append: store('kl_append'),

  /** GETSET: stores value and returns the old one (null when there was none). */
  getset: command('kl_getset_whole', [KEY, VALUE], value(), [ROUTE]),

  /**
   * MGET over every shard: one value (or null) per key, in the keys' order.
   * Options: buffer, route, bestEffort (nulls for unreachable shards instead of an error).
   */
  * mget(keys, options) {
    list(keys, 'keys', 'mget');
    if (keys.length === 0) return [];
    const route = routeOf(options, 'mget');
    const policy = options?.bestEffort ? kl.KL_BEST_EFFORT_ON_FAIL : kl.KL_NULL_ON_FAIL;
    const answer = yield requestAnswer(answeredFunction('kl_mget_whole'), this[$handle], textList(keys, 'key', 'mget'),
      route, byteLength(route), policy, options?.buffer === true);
    const partial = options?.bestEffort && isFailureRecord(answer) && resultOf(answer.code) === codes.KL_PARTIAL_RESULT;
    const out = (partial ? answer.value : this[$answered](answer, 'mget')) ?? [];
    while (out.length < keys.length) out.push(null);
    return out;
  },

  /** MSET of an object, a Map or [key, value] pairs; options.ttl gives every key a TTL. */
  * mset(entries, options) {
    const all = pairs(entries, 'entries', 'mset');
    if (all.length === 0) return true;
    const ttl = seconds(options?.ttl, 'ttl', 'mset');
    const flat = textPairs(all, 'key', 'value', 'mset');
    const done = yield (ttl === 0
      ? requestAnswer(answeredFunction('kl_mset'), this[$handle], flat, false)
      : requestAnswer(answeredFunction('kl_msetex'), this[$handle], flat, all.map(() => ttl), false));
    return this[$answered](done, 'mset');
  },

  // The counters, as wide as the server's (64-bit): the new value, a Number, or a
  // BigInt past 2^53; the increment a Number or a BigInt. options.ttl applies
  // when the counter is created.
  incr: command('kl_incrby_decimal', [KEY, fixedInteger(1)], wide(), [TTL]),
  incrby: command('kl_incrby_decimal', [KEY, wideIntegerOf('increment')], wide(), [TTL]),
  decr: command('kl_incrby_decimal', [KEY, fixedInteger(-1)], wide(), [TTL]),
  decrby: command('kl_incrby_decimal', [KEY, wideIntegerOf('increment', { negate: true })], wide(), [TTL]),
});
