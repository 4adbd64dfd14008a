'use strict';
// Server administration, on every server of every group or of one group:
// DBSIZE, FLUSHDB/FLUSHALL, SAVE/BGSAVE, INFO, CONFIG GET/SET.
const { kl, text, byteLength, assign } = require('../support.js');
const { $handle, $status, $answered, request, requestAnswer } = require('../core.js');
const { answeredFunction } = require('../native.js');
const { command, methods, GROUP, done, count, groupOf, NULL_STRING } = require('../table.js');

module.exports = methods({
  /** The number of keys, summed over every server (options.group: one group only). */
  dbsize: command('kl_dbsize', [], count(), [GROUP]),
  flushdb: command('kl_flushdb', [], done(), [GROUP]),

  * flushall(options) {
    const group = options?.group ? text(options.group, 'group', 'flushall') : NULL_STRING;
    return this[$status](yield request(kl.flushall, this[$handle], group, null), 'flushall');
  },

  save: command('kl_save', [], done(), [GROUP]),
  bgsave: command('kl_bgsave', [], done(), [GROUP]),

  /** INFO: one text per server addressed, in group and server order. */
  * info(options) {
    const group = groupOf(options, 'info');
    return this[$answered](yield requestAnswer(answeredFunction('kl_info'), this[$handle], group, null, false), 'info') ?? [];
  },

  /** CONFIG GET: { name: value } (options.server 'host:port' narrows it to one server). */
  * configGet(parameter, options) {
    const p = text(parameter, 'parameter', 'configGet');
    const server = options?.server ? text(options.server, 'server', 'configGet') : '';
    const group = groupOf(options, 'configGet');
    const flat = this[$answered](yield requestAnswer(answeredFunction('kl_config_get'), this[$handle], p, byteLength(p), server,
      byteLength(server), group, null, false), 'configGet') ?? [];
    const out = {};
    for (let i = 0; i + 1 < flat.length; i += 2) assign(out, flat[i], flat[i + 1]);
    return out;
  },

  * configSet(parameter, value, options) {
    const p = text(parameter, 'parameter', 'configSet');
    const v = text(value, 'value', 'configSet');
    const server = options?.server ? text(options.server, 'server', 'configSet') : '';
    const group = groupOf(options, 'configSet');
    return this[$status](yield request(kl.kl_config_set, this[$handle], p, byteLength(p), v, byteLength(v), server,
      byteLength(server), group, null), 'configSet');
  },
});
