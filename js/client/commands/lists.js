'use strict';
// Lists: pushes, ranges, indexes, pops, LREM, LLEN, LTRIM.
const {
  command, methods, KEY, VALUE, integerOf, TTL, ROUTE, done, value, values, count,
} = require('../table.js');
const { eachValue } = require('../repeat.js');

module.exports = methods({
  /** LPUSH one value or each of an array of values in turn; options.ttl. */
  lpush: eachValue('kl_lpush', 'lpush'),
  rpush: eachValue('kl_rpush', 'rpush'),
  lrange: command('kl_lrange_whole', [KEY, integerOf('start', 0), integerOf('stop', -1)], values(), [ROUTE]),
  lindex: command('kl_lindex_whole', [KEY, integerOf('index')], value(), [ROUTE]),
  lset: command('kl_lset', [KEY, integerOf('index'), VALUE], done(), [TTL]),
  /** LREM count value: how many were removed. */
  lrem: command('kl_lrem', [KEY, integerOf('count'), VALUE], count()),
  lpop: command('kl_lpop_whole', [KEY], value(), [ROUTE]),
  rpop: command('kl_rpop_whole', [KEY], value(), [ROUTE]),
  llen: command('kl_llen', [KEY], count()),
  ltrim: command('kl_ltrim', [KEY, integerOf('start'), integerOf('stop')], done()),
});
