'use strict';
// Sets, and sets whose members carry values: SADD, SREM, SMEMBERS, SISMEMBER,
// the member values and the CIDR lookup, SCARD, SPOP, SUNION(STORE).
const { kl, codes, text, byteLength, seconds, list, textList } = require('../support.js');
const { $handle, $check, NOTFOUND, resultOf, request, $answered, requestAnswer, isFailureRecord } = require('../core.js');
const { answeredFunction } = require('../native.js');
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
    const answer = yield requestAnswer(answeredFunction('kl_smembers_whole'), this[$handle], k, byteLength(k),
      route, byteLength(route), withValues ? kl.SET_WITH_VALUES : kl.SET_DEFAULT, asBuffer === true);
    const [members, values] = this[$answered](answer, 'smembers', key) ?? [[], []];
    if (!withValues) return members;
    return members.map((member, i) => ({ member, value: values[i] ?? null }));
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
    const answer = yield requestAnswer(answeredFunction('kl_sval_whole'), this[$handle], k, byteLength(k), m, byteLength(m),
      route, byteLength(route), options?.buffer === true);
    return this[$answered](answer, 'sval', key, [codes.KL_SET_EMPTY_VALUE, codes.KL_NO_SET_KEY]);
  },

  /** Members are CIDR networks: the value of the most specific one holding ip, or null. */
  * svalfromip(key, ip, options) {
    const k = text(key, 'key', 'svalfromip');
    const a = text(ip, 'address', 'svalfromip');
    const answer = yield requestAnswer(answeredFunction('kl_svalfromip'), this[$handle], k, byteLength(k), a, byteLength(a),
      options?.buffer === true);
    return this[$answered](answer, 'svalfromip', key, [codes.KL_NO_SUBNET, codes.KL_NO_SET_KEY]);
  },

  scard: command('kl_scard', [KEY], count()),
  spop: command('kl_spop_whole', [KEY], value(), [ROUTE]),

  /** SUNION across shards; options: route, bestEffort, buffer. */
  * sunion(keys, options) {
    list(keys, 'keys', 'sunion');
    if (keys.length === 0) return [];
    const route = routeOf(options, 'sunion');
    const policy = options?.bestEffort ? kl.KL_BEST_EFFORT_ON_FAIL : kl.KL_NULL_ON_FAIL;
    const answer = yield requestAnswer(answeredFunction('kl_sunion_whole'), this[$handle], textList(keys, 'key', 'sunion'),
      route, byteLength(route), policy, options?.buffer === true);
    const partial = options?.bestEffort && isFailureRecord(answer) && resultOf(answer.code) === codes.KL_PARTIAL_RESULT;
    return (partial ? answer.value : this[$answered](answer, 'sunion')) ?? [];
  },

  * sunionstore(destination, keys, options) {
    list(keys, 'keys', 'sunionstore');
    const d = text(destination, 'destination', 'sunionstore');
    const ttl = seconds(options?.ttl, 'ttl', 'sunionstore');
    const policy = options?.bestEffort ? kl.KL_BEST_EFFORT_ON_FAIL : kl.KL_NULL_ON_FAIL;
    const done = yield requestAnswer(answeredFunction('kl_sunionstore'), this[$handle], d, byteLength(d),
      textList(keys, 'key', 'sunionstore'), policy, ttl, false);
    return this[$answered](done, 'sunionstore', destination);
  },
});
