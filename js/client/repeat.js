'use strict';
// Commands that take one element or an array of elements and run the
// library's one-element function for each in turn.
const { kl, text, byteLength, seconds } = require('./support.js');
const { $handle, $status, NOTFOUND, request } = require('./core.js');

/** (key, value | values, options): fnName(client, key, len, value, len, ttl) per value; true. */
function eachValue(fnName, name) {
  const fn = kl[fnName];
  return function* addEach(key, values, options) {
    const k = text(key, 'key', name);
    for (const value of Array.isArray(values) ? values : [values]) {
      const v = text(value, 'value', name);
      const ttl = seconds(options?.ttl, 'ttl', name);
      this[$status](yield request(fn, this[$handle], k, byteLength(k), v, byteLength(v), ttl), name, key);
    }
    return true;
  };
}

/**
 * (key, member | members): fnName(client, key, len, member, len) per member;
 * for one member whether it was there, for an array how many were.
 */
function removeEach(fnName, name) {
  const fn = kl[fnName];
  return function* remove(key, members) {
    const k = text(key, 'key', name);
    const self = this;
    function* one(member) {
      const m = text(member, 'member', name);
      return self[$status](yield request(fn, self[$handle], k, byteLength(k), m, byteLength(m)), name, key, [NOTFOUND]);
    }
    if (!Array.isArray(members)) return yield* one(members);
    let n = 0;
    for (const m of members) if (yield* one(m)) n++;
    return n;
  };
}

module.exports = { eachValue, removeEach };
