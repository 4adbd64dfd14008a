'use strict';
// Real redis servers plus a client made through the exact layer (the addon's
// kl_* functions), for the end-to-end suites. Servers run on free loopback
// ports and are stopped by pid.
const path = require('node:path');
const { addonPath } = require('./paths');
const { startRedis } = require('../../scripts/local-redis');

const addon = require(path.resolve(addonPath));

/**
 * Starts `servers` redis servers, server i in group i % groups (groups named
 * "g0", "g1", ...; "" when there is one group, which the library names
 * "default"), and a client over them. Resolves to
 * { addon, client, servers, groupOf(i), stop() }.
 */
async function startCluster({
  servers = 1,
  groups = 1,
  hash = addon.KL_HASH_DEFAULT,
  distribution = addon.KL_DISTRIBUTION_CONSISTENT,
  flags = addon.KL_FLAG_NONE,
  connectTimeoutMs = 1000,
  reconnectMs = 200,
  password,
} = {}) {
  const started = [];
  try {
    for (let i = 0; i < servers; i++) started.push(await startRedis({ password }));
  } catch (err) {
    await Promise.all(started.map((s) => s.stop()));
    throw err;
  }
  const groupOf = (i) => (groups === 1 ? '' : `g${i % groups}`);
  const client = addon.kl_client_create(hash, distribution, addon.new_mm(), flags);
  addon.kl_client_connection_timeout(client, connectTimeoutMs);
  addon.kl_client_reconnect_attempt_timeout(client, reconnectMs);
  started.forEach((s, i) => {
    const r = addon.kl_server_add(client, s.host, s.port, groupOf(i));
    if (r !== addon.KL_SUCCESS) throw new Error(`kl_server_add: ${addon.kl_strerror(r)}`);
  });
  let stopped = false;
  return {
    addon,
    client,
    servers: started,
    groupOf,
    async stop() {
      if (stopped) return;
      stopped = true;
      addon.kl_client_destroy(client);
      await Promise.all(started.map((s) => s.stop()));
    },
  };
}

// ---- Small readers over the output cells, each freeing what it made ------

/** GET through kl_get_whole: { code, value } (value null unless KL_SUCCESS). */
function getValue(client, key, route = '') {
  const cell = addon.new_charpp();
  const len = addon.new_ulongp();
  try {
    const code = addon.kl_get_whole(client, key, Buffer.byteLength(key), cell, len, route, Buffer.byteLength(route));
    const value = code === addon.KL_SUCCESS ? addon.charpp_value(cell, len) : null;
    if (code === addon.KL_SUCCESS) addon.kl_free_php_reply_p(cell);
    return { code, value };
  } finally {
    addon.delete_charpp(cell);
    addon.delete_ulongp(len);
  }
}

/** Fills a char ** array and a size_t * array of byte lengths. */
function stringArray(items) {
  const array = addon.new_charp_array(items.length);
  const lens = addon.new_ulong_array(items.length);
  items.forEach((s, i) => {
    addon.charp_array_set(array, i, s, Buffer.byteLength(s));
    addon.ulong_array_set(lens, i, Buffer.byteLength(s));
  });
  return {
    array,
    lens,
    free() {
      addon.delete_charp_array(array, items.length);
      addon.delete_ulong_array(lens);
    },
  };
}

/**
 * Runs fn(valuesCell, countCell, lensCell) for a multi-value reply and reads
 * it back: { code, values } with null for missing elements; frees the reply
 * with kl_free_php_reply_pp and the cells.
 */
function readMany(fn) {
  const values = addon.new_charppp();
  const count = addon.new_ulongp();
  const lens = addon.new_ulongpp();
  try {
    const code = fn(values, count, lens);
    const out = [];
    if (addon.kl_get_result(code) === addon.KL_SUCCESS || code === addon.KL_PARTIAL_RESULT) {
      const n = addon.ulongp_value(count);
      for (let i = 0; i < n; i++) out.push(addon.charppp_value(values, lens, i));
      addon.kl_free_php_reply_pp(values, n);
      addon.kl_free_php_reply_p(addon.ulongpp_to_charpp(lens));
    }
    return { code, values: out };
  } finally {
    addon.delete_charppp(values);
    addon.delete_ulongp(count);
    addon.delete_ulongpp(lens);
  }
}

module.exports = { addon, startCluster, getValue, stringArray, readMany };
