'use strict';
// Sorted sets, and sorted sets whose members carry values: ZADD and its
// bounded forms, ZREM, ranges by rank and score, ZSCORE, ZRANK, ZCARD, ZCOUNT,
// ZINCRBY, removal by score and rank.
const { kl, codes, text, byteLength, seconds, integer, number, textList, textPairs } = require('../support.js');
const { $handle, $status, request, $answered, requestAnswer } = require('../core.js');
const { answeredFunction } = require('../native.js');
const {
  command, methods, KEY, MEMBER, VALUE, integerOf, numberOf, TTL, done, count, routeOf,
} = require('../table.js');
const { removeEach } = require('../repeat.js');

const removeOne = removeEach('kl_zrem', 'zrem');

// ZRANGE and ZRANGEBYSCORE (library function fnName, bounds a and b):
// members, or { member, score?, value? } entries.
function* range(client, command, fnName, key, a, b, options) {
  const k = text(key, 'key', command);
  const route = routeOf(options, command);
  const withScores = Boolean(options?.withScores);
  const withValues = Boolean(options?.withValues);
  const flags = (withScores ? kl.ZSET_WITH_SCORES : 0) | (withValues ? kl.ZSET_WITH_VALUES : 0) |
    (options?.reverse ? kl.ZSET_REVERSE : 0);
  const answer = yield requestAnswer(answeredFunction(fnName), client[$handle], k, byteLength(k), a, b,
    route, byteLength(route), flags, options?.buffer === true);
  const [members, scores, values] = client[$answered](answer, command, key) ?? [[], [], []];
  if (!withScores && !withValues) return members;
  return members.map((member, i) => {
    const entry = { member };
    if (withScores) entry.score = scores[i];
    if (withValues) entry.value = values[i] ?? null;
    return entry;
  });
}

function* addMany(client, k, key, entries, options) {
  if (entries.length === 0) return true;
  const ttl = seconds(options?.ttl, 'ttl', 'zadd');
  const withValues = entries.some((e) => e.value !== undefined);
  const scores = entries.map((e) => number(e.score, 'score', 'zadd'));
  const done = yield (withValues
    ? requestAnswer(answeredFunction('kl_zmaddval'), client[$handle], k, byteLength(k), scores,
      textPairs(entries.map((e) => [e.member, e.value ?? '']), 'member', 'value', 'zadd'), ttl, false)
    : requestAnswer(answeredFunction('kl_zmadd'), client[$handle], k, byteLength(k), scores,
      textList(entries.map((e) => e.member), 'member', 'zadd'), ttl, false));
  return client[$answered](done, 'zadd', key);
}

module.exports = methods({
  /**
   * ZADD key score member, or ZADD key [{ member, score, value? }, ...] in one call.
   * Entries with values attach them (as zaddval). options.ttl.
   */
  * zadd(key, score, member, options) {
    const k = text(key, 'key', 'zadd');
    if (Array.isArray(score)) return yield* addMany(this, k, key, score, member);
    const ttl = seconds(options?.ttl, 'ttl', 'zadd');
    const m = text(member, 'member', 'zadd');
    return this[$status](yield request(kl.kl_zadd, this[$handle], k, byteLength(k), number(score, 'score', 'zadd'), m, byteLength(m), ttl),
      'zadd', key);
  },

  /** ZADD score member with a value attached to the member. */
  zaddval: command('kl_zaddval', [KEY, numberOf('score'), MEMBER, VALUE], done(), [TTL]),

  /** Raises member's score to score only when higher, and then sets its value: false when it was not higher. */
  * zaddvalmax(key, score, member, value, options) {
    const k = text(key, 'key', 'zaddvalmax');
    const m = text(member, 'member', 'zaddvalmax');
    const v = text(value, 'value', 'zaddvalmax');
    const ttl = seconds(options?.ttl, 'ttl', 'zaddvalmax');
    return this[$status](yield request(kl.kl_zaddvalmax, this[$handle], k, byteLength(k), m, byteLength(m), v, byteLength(v),
      number(score, 'score', 'zaddvalmax'), ttl), 'zaddvalmax', key, [codes.KL_ALREADY_EXISTS]);
  },

  /** Keeps only the n highest-scored members (n < 0: the |n| lowest). */
  zaddmaxinc: command('kl_zaddmaxinc', [KEY, integerOf('n')], done(), [TTL]),

  /** Adds member after removing members scored within distance of score: the first removed, or null. */
  * zadddis(key, score, member, distance, options) {
    const k = text(key, 'key', 'zadddis');
    const m = text(member, 'member', 'zadddis');
    const ttl = seconds(options?.ttl, 'ttl', 'zadddis');
    const sc = number(score, 'score', 'zadddis');
    const d = number(distance, 'distance', 'zadddis');
    const removed = yield requestAnswer(answeredFunction('kl_zadddis'), this[$handle], k, byteLength(k), sc, m, byteLength(m),
      d, ttl, options?.buffer === true);
    return this[$answered](removed, 'zadddis', key);
  },

  /** ZREM: for one member true/false, for an array how many were present. */
  * zrem(key, members) {
    if (!Array.isArray(members)) return yield* removeOne.call(this, key, members);
    if (members.length === 0) return 0;
    const k = text(key, 'key', 'zrem');
    const removed = yield requestAnswer(answeredFunction('kl_zmrem'), this[$handle], k, byteLength(k),
      textList(members, 'member', 'zrem'), false);
    return this[$answered](removed, 'zrem', key) ?? 0;
  },

  /**
   * ZRANGE by rank. Options: withScores, withValues, reverse, route, buffer.
   * Plain: an array of members; with scores or values: [{ member, score?, value? }].
   */
  * zrange(key, start = 0, stop = -1, options) {
    const a = integer(start, 'start', 'zrange');
    const b = integer(stop, 'stop', 'zrange');
    return yield* range(this, 'zrange', 'kl_zrange_whole', key, a, b, options);
  },

  /** ZRANGEBYSCORE min max (reverse keeps min and max as they are); options as zrange. */
  * zrangebyscore(key, min = -Infinity, max = Infinity, options) {
    const lo = number(min, 'min', 'zrangebyscore');
    const hi = number(max, 'max', 'zrangebyscore');
    return yield* range(this, 'zrangebyscore', 'kl_zrangebyscore_whole', key, lo, hi, options);
  },

  /** ZSCORE: the score or null; with options.withValue, { score, value } or null. */
  * zscore(key, member, options) {
    const k = text(key, 'key', 'zscore');
    const m = text(member, 'member', 'zscore');
    const answer = yield requestAnswer(answeredFunction('kl_zscore'), this[$handle], k, byteLength(k), m, byteLength(m),
      options?.buffer === true);
    const both = this[$answered](answer, 'zscore', key);
    if (both === null) return null;
    const [score, value] = both;
    return options?.withValue ? { score, value } : score;
  },

  /** ZRANK (ZREVRANK with options.reverse): the rank or null. */
  * zrank(key, member, options) {
    const k = text(key, 'key', 'zrank');
    const m = text(member, 'member', 'zrank');
    const answer = yield requestAnswer(answeredFunction('kl_zrank'), this[$handle], k, byteLength(k), m, byteLength(m),
      options?.reverse ? kl.ZSET_REVERSE : kl.ZSET_DEFAULT, false);
    const both = this[$answered](answer, 'zrank', key);
    return both === null ? null : both[0];
  },

  zcard: command('kl_zcard', [KEY], count()),
  zcount: command('kl_zcount', [KEY, numberOf('min', -Infinity), numberOf('max', Infinity)], count()),

  /** ZINCRBY key increment member: the new score. */
  * zincrby(key, increment, member, options) {
    const k = text(key, 'key', 'zincrby');
    const m = text(member, 'member', 'zincrby');
    const by = number(increment, 'increment', 'zincrby');
    const ttl = seconds(options?.ttl, 'ttl', 'zincrby');
    const score = yield requestAnswer(answeredFunction('kl_zincrby'), this[$handle], k, byteLength(k), m, byteLength(m), by,
      ttl, false);
    return this[$answered](score, 'zincrby', key);
  },

  zremrangebyscore: command('kl_zremrangebyscore', [KEY, numberOf('min'), numberOf('max')], count()),
  zremrangebyrank: command('kl_zremrangebyrank', [KEY, integerOf('start'), integerOf('stop')], count()),
});
