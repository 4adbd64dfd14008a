'use strict';
// Sets, and sets whose members carry values: SADD, SREM, SMEMBERS, SISMEMBER,
// the member values and the CIDR lookup, SCARD, SPOP, SUNION(STORE).
const { kl, codes, text, byteLength, seconds, list, decode, scoped, element, elements, countOf } = require('../support.js');
const { $handle, $status, $check, NOTFOUND, resultOf, request } = require('../core.js');
const { command, methods, KEY, MEMBER, VALUE, TTL, ROUTE, done, value, count, routeOf } = require('../table.js');
const { eachValue, removeEach } = require('../repeat.js');

module.exports = methods({
  /** SADD one member or each of an array of members; options.ttl. */
  sadd: eachValue('kl_sadd', 'sadd'),
  /** SADD member with a value attached to it. */
  saddval: command('kl_saddval', [KEY, MEMBER, VALUE], done(), [TTL]),
  /** SREM: for one member true/false, for an array how many were members. */
  srem: removeEach('kl_srem', 'srem'),

  /** SMEMBERS; with options.withValues, [{ member, value }]. */
  * smembers(key, options) {
    const k = text(key, 'key', 'smembers');
    const route = routeOf(options, 'smembers');
    const withValues = Boolean(options?.withValues);
    const asBuffer = options?.buffer;
    return yield* scoped(this, function* smembers(s) {
      const n = s.count();
      const m = s.strings(n);
      const v = s.strings(n);
      const rc = yield request(kl.kl_smembers_whole, this[$handle], k, byteLength(k), m.arr, n, m.lens, route, byteLength(route),
        withValues ? kl.SET_WITH_VALUES : kl.SET_DEFAULT, v.arr, v.lens);
      if (resultOf(rc) === NOTFOUND) return [];
      this[$check](rc, 'smembers', key);
      const members = elements(m.arr, m.lens, countOf(n), asBuffer);
      if (!withValues) return members;
      return members.map((member, i) => ({ member, value: element(v.arr, v.lens, i, asBuffer) }));
    });
  },

  sismember: command('kl_sismember', [KEY, MEMBER], done(NOTFOUND, codes.KL_NO_SET_KEY)),

  /** 'value' (a member with a value), 'empty' (without), 'not-member' or 'no-set'. */
  * sismemberval(key, member) {
    const k = text(key, 'key', 'sismemberval');
    const m = text(member, 'member', 'sismemberval');
    const rc = yield request(kl.kl_sismemberval, this[$handle], k, byteLength(k), m, byteLength(m));
    switch (resultOf(rc)) {
      case codes.KL_SET_EMPTY_VALUE: return 'empty';
      case NOTFOUND: return 'not-member';
      case codes.KL_NO_SET_KEY: return 'no-set';
      default: this[$check](rc, 'sismemberval', key); return 'value';
    }
  },

  /** The value attached to a member, or null. */
  * sval(key, member, options) {
    const k = text(key, 'key', 'sval');
    const m = text(member, 'member', 'sval');
    const route = routeOf(options, 'sval');
    return yield* scoped(this, function* sval(s) {
      const o = s.value();
      const rc = yield request(kl.kl_sval_whole, this[$handle], k, byteLength(k), m, byteLength(m), o.v, o.n, route, byteLength(route));
      const r = resultOf(rc);
      if (r === NOTFOUND || r === codes.KL_SET_EMPTY_VALUE || r === codes.KL_NO_SET_KEY) return null;
      this[$check](rc, 'sval', key);
      return decode(kl.charpp_value_raw(o.v, o.n), options?.buffer);
    });
  },

  /** Members are CIDR networks: the value of the most specific one holding ip, or null. */
  * svalfromip(key, ip, options) {
    const k = text(key, 'key', 'svalfromip');
    const a = text(ip, 'address', 'svalfromip');
    return yield* scoped(this, function* svalfromip(s) {
      const o = s.value();
      const rc = yield request(kl.kl_svalfromip, this[$handle], k, byteLength(k), a, byteLength(a), o.v, o.n);
      const r = resultOf(rc);
      if (r === NOTFOUND || r === codes.KL_NO_SUBNET || r === codes.KL_NO_SET_KEY) return null;
      this[$check](rc, 'svalfromip', key);
      return decode(kl.charpp_value_raw(o.v, o.n), options?.buffer);
    });
  },

  scard: command('kl_scard', [KEY], count()),
  spop: command('kl_spop_whole', [KEY], value(), [ROUTE]),

  /** SUNION across shards; options: route, bestEffort, buffer. */
  * sunion(keys, options) {
    list(keys, 'keys', 'sunion');
    if (keys.length === 0) return [];
    const route = routeOf(options, 'sunion');
    const policy = options?.bestEffort ? kl.KL_BEST_EFFORT_ON_FAIL : kl.KL_NULL_ON_FAIL;
    return yield* scoped(this, function* sunion(s) {
      const input = s.texts(keys, 'key', 'sunion');
      const n = s.count();
      const o = s.strings(n);
      const rc = yield request(kl.kl_sunion_whole, this[$handle], input.arr, input.n, input.lens, o.arr, n, o.lens,
        route, byteLength(route), policy);
      const r = resultOf(rc);
      if (r === NOTFOUND) return [];
      if (!(options?.bestEffort && r === codes.KL_PARTIAL_RESULT)) this[$check](rc, 'sunion');
      return elements(o.arr, o.lens, countOf(n), options?.buffer);
    });
  },

  * sunionstore(destination, keys, options) {
    list(keys, 'keys', 'sunionstore');
    const d = text(destination, 'destination', 'sunionstore');
    const ttl = seconds(options?.ttl, 'ttl', 'sunionstore');
    const policy = options?.bestEffort ? kl.KL_BEST_EFFORT_ON_FAIL : kl.KL_NULL_ON_FAIL;
    return yield* scoped(this, function* sunionstore(s) {
      const input = s.texts(keys, 'key', 'sunionstore');
      return this[$status](yield request(kl.kl_sunionstore, this[$handle], d, byteLength(d), input.arr, input.n, input.lens, policy, ttl),
        'sunionstore', destination);
    });
  },
});
