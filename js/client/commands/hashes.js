'use strict';
// Hashes: HSET/HSETNX, HGET, HMSET/HMGET (and HMGET over several keys),
// HGETALL, HDEL, HEXISTS, HLEN, HINCRBY.
const { kl, codes, text, byteLength, seconds, list, pairs, assign, textList, textPairs } = require('../support.js');
const { $handle, $status, NOTFOUND, request, $answered, requestAnswer } = require('../core.js');
const { answeredFunction } = require('../native.js');
const {
  command, methods, KEY, FIELD, VALUE, wideIntegerOf, TTL, ROUTE, done, value, count, wide, routeOf,
} = require('../table.js');

module.exports = methods({
  hset: command('kl_hset', [KEY, FIELD, VALUE], done(), [TTL]),
  /** HSETNX: true when set, false when the field existed. */
  hsetnx: command('kl_hsetnx', [KEY, FIELD, VALUE], done(codes.KL_ALREADY_EXISTS), [TTL]),
  hget: command('kl_hget_whole', [KEY, FIELD], value(), [ROUTE]),

  /** HSET of many fields: an object, a Map or [field, value] pairs; options.ttl. */
  * hmset(key, fields, options) {
    const k = text(key, 'key', 'hmset');
    const all = pairs(fields, 'fields', 'hmset');
    if (all.length === 0) return true;
    const ttl = seconds(options?.ttl, 'ttl', 'hmset');
    const done = yield requestAnswer(answeredFunction('kl_hmset'), this[$handle], k, byteLength(k),
      textPairs(all, 'field', 'value', 'hmset'), ttl, false);
    return this[$answered](done, 'hmset', key);
  },

  /** HMGET: one value (or null) per field. */
  * hmget(key, fields, options) {
    list(fields, 'fields', 'hmget');
    if (fields.length === 0) return [];
    const k = text(key, 'key', 'hmget');
    const route = routeOf(options, 'hmget');
    const answer = yield requestAnswer(answeredFunction('kl_hmget_whole'), this[$handle], k, byteLength(k),
      textList(fields, 'field', 'hmget'), route, byteLength(route), options?.buffer === true);
    const out = this[$answered](answer, 'hmget', key);
    if (out === null) return fields.map(() => null);
    while (out.length < fields.length) out.push(null);
    return out;
  },

  /** The same fields over several keys: one array of values per key. */
  * mhmget(keys, fields, options) {
    list(keys, 'keys', 'mhmget');
    list(fields, 'fields', 'mhmget');
    if (keys.length === 0) return [];
    if (fields.length === 0) return keys.map(() => []);
    const route = routeOf(options, 'mhmget');
    const answer = yield requestAnswer(answeredFunction('kl_mhmget_whole'), this[$handle], textList(keys, 'key', 'mhmget'),
      textList(fields, 'field', 'mhmget'), route, byteLength(route), options?.buffer === true);
    const flat = this[$answered](answer, 'mhmget') ?? [];
    return keys.map((_, i) => fields.map((__, j) => flat[i * fields.length + j] ?? null));
  },

  /** HGETALL as an object ({} for a missing key); options.buffer gives Buffer values. */
  * hgetall(key, options) {
    const k = text(key, 'key', 'hgetall');
    const answer = yield requestAnswer(answeredFunction('kl_hgetall'), this[$handle], k, byteLength(k), options?.buffer === true);
    const out = {};
    const [fields, values] = this[$answered](answer, 'hgetall', key) ?? [[], []];
    for (let i = 0; i < fields.length; i++) assign(out, fields[i], values[i]);
    return out;
  },

  /** HDEL: for one field true/false, for an array how many existed. */
  * hdel(key, fields) {
    const k = text(key, 'key', 'hdel');
    if (!Array.isArray(fields)) {
      const f = text(fields, 'field', 'hdel');
      return this[$status](yield request(kl.kl_hdel, this[$handle], k, byteLength(k), f, byteLength(f)), 'hdel', key, [NOTFOUND]);
    }
    if (fields.length === 0) return 0;
    const deleted = yield requestAnswer(answeredFunction('kl_hmdel'), this[$handle], k, byteLength(k),
      textList(fields, 'field', 'hdel'), false);
    return this[$answered](deleted, 'hdel', key) ?? 0;
  },

  hexists: command('kl_hexists', [KEY, FIELD], done(NOTFOUND)),
  hlen: command('kl_hlen', [KEY], count()),
  /** HINCRBY key field by: the new value (a Number, or a BigInt past 2^53); options.ttl. */
  hincrby: command('kl_hincrby_decimal', [KEY, FIELD, wideIntegerOf('increment')], wide(), [TTL]),
});
