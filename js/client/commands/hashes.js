'use strict';
// Hashes: HSET/HSETNX, HGET, HMSET/HMGET (and HMGET over several keys),
// HGETALL, HDEL, HEXISTS, HLEN, HINCRBY.
const { kl, codes, text, byteLength, seconds, list, pairs, scoped, element, elements, countOf, assign } = require('../support.js');
const { $handle, $status, $check, NOTFOUND, resultOf, request } = require('../core.js');
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
    return yield* scoped(this, function* hmset(s) {
      const f = s.texts(all.map((p) => p[0]), 'field', 'hmset');
      const v = s.texts(all.map((p) => p[1]), 'value', 'hmset');
      return this[$status](yield request(kl.kl_hmset, this[$handle], k, byteLength(k), f.arr, f.n, f.lens, v.arr, v.lens, ttl),
        'hmset', key);
    });
  },

  /** HMGET: one value (or null) per field. */
  * hmget(key, fields, options) {
    list(fields, 'fields', 'hmget');
    if (fields.length === 0) return [];
    const k = text(key, 'key', 'hmget');
    const route = routeOf(options, 'hmget');
    return yield* scoped(this, function* hmget(s) {
      const f = s.texts(fields, 'field', 'hmget');
      const n = s.count();
      const o = s.strings(n);
      const rc = yield request(kl.kl_hmget_whole, this[$handle], k, byteLength(k), f.arr, f.n, f.lens, o.arr, n, o.lens,
        route, byteLength(route));
      if (resultOf(rc) === NOTFOUND) return fields.map(() => null);
      this[$check](rc, 'hmget', key);
      const out = elements(o.arr, o.lens, countOf(n), options?.buffer);
      while (out.length < fields.length) out.push(null);
      return out;
    });
  },

  /** The same fields over several keys: one array of values per key. */
  * mhmget(keys, fields, options) {
    list(keys, 'keys', 'mhmget');
    list(fields, 'fields', 'mhmget');
    if (keys.length === 0) return [];
    if (fields.length === 0) return keys.map(() => []);
    const route = routeOf(options, 'mhmget');
    return yield* scoped(this, function* mhmget(s) {
      const k = s.texts(keys, 'key', 'mhmget');
      const f = s.texts(fields, 'field', 'mhmget');
      const n = s.count();
      const o = s.strings(n);
      const rc = yield request(kl.kl_mhmget_whole, this[$handle], k.arr, k.n, k.lens, f.arr, f.n, f.lens, o.arr, n, o.lens,
        route, byteLength(route));
      this[$check](rc, 'mhmget');
      const flat = elements(o.arr, o.lens, countOf(n), options?.buffer);
      return keys.map((_, i) => fields.map((__, j) => flat[i * fields.length + j] ?? null));
    });
  },

  /** HGETALL as an object ({} for a missing key); options.buffer gives Buffer values. */
  * hgetall(key, options) {
    const k = text(key, 'key', 'hgetall');
    return yield* scoped(this, function* hgetall(s) {
      const n = s.count();
      const f = s.strings(n);
      const v = s.strings(n);
      const rc = yield request(kl.kl_hgetall, this[$handle], k, byteLength(k), n, f.arr, f.lens, v.arr, v.lens);
      const out = {};
      if (resultOf(rc) === NOTFOUND) return out;
      this[$check](rc, 'hgetall', key);
      const total = countOf(n);
      for (let i = 0; i < total; i++) {
        assign(out, element(f.arr, f.lens, i, false), element(v.arr, v.lens, i, options?.buffer));
      }
      return out;
    });
  },

  /** HDEL: for one field true/false, for an array how many existed. */
  * hdel(key, fields) {
    const k = text(key, 'key', 'hdel');
    if (!Array.isArray(fields)) {
      const f = text(fields, 'field', 'hdel');
      return this[$status](yield request(kl.kl_hdel, this[$handle], k, byteLength(k), f, byteLength(f)), 'hdel', key, [NOTFOUND]);
    }
    if (fields.length === 0) return 0;
    return yield* scoped(this, function* hdel(s) {
      const f = s.texts(fields, 'field', 'hdel');
      const deleted = s.int();
      const rc = yield request(kl.kl_hmdel, this[$handle], k, byteLength(k), f.arr, f.n, f.lens, deleted);
      if (resultOf(rc) === NOTFOUND) return 0;
      this[$check](rc, 'hdel', key);
      return kl.intp_value(deleted);
    });
  },

  hexists: command('kl_hexists', [KEY, FIELD], done(NOTFOUND)),
  hlen: command('kl_hlen', [KEY], count()),
  /** HINCRBY key field by: the new value (a Number, or a BigInt past 2^53); options.ttl. */
  hincrby: command('kl_hincrby_decimal', [KEY, FIELD, wideIntegerOf('increment')], wide(), [TTL]),
});
