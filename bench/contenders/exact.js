'use strict';
// keyloom's exact layer, called the way a user writes it: output cells made
// once, the reply read with the readers and released with the release
// functions after every call.
const path = require('node:path');
const K = require('../lib/keys');

function load(buildDir) {
  return require(path.join(buildDir, 'Release', 'keyloom.node'));
}

function connect(kl, ports) {
  const client = kl.kl_client_create(kl.KL_HASH_DEFAULT, kl.KL_DISTRIBUTION_CONSISTENT, kl.new_mm(), kl.KL_FLAG_NONE);
  if (!client) throw new Error('kl_client_create failed');
  for (const port of ports) {
    const rc = kl.kl_server_add(client, '127.0.0.1', port, '');
    if (rc !== kl.KL_SUCCESS) throw new Error(`kl_server_add: ${kl.kl_strerror(rc)}`);
  }
  return client;
}

function check(kl, rc, what) {
  if (rc !== kl.KL_SUCCESS) throw new Error(`${what}: ${kl.kl_strerror(rc)} (${rc})`);
}

// A key array and its length array, as the multi-key commands take them.
function keyArrays(kl, names) {
  const keys = kl.new_charp_array(names.length);
  const lens = kl.new_ulong_array(names.length);
  names.forEach((name, i) => {
    kl.charp_array_set(keys, i, name, name.length);
    kl.ulong_array_set(lens, i, name.length);
  });
  return { keys, lens };
}

// Reads every element of a multi-value reply, then releases the reply and its
// length array. Returns the number of characters read.
function readAll(kl, valuesCell, lensCell, n) {
  let chars = 0;
  for (let i = 0; i < n; i++) {
    const v = kl.charppp_value(valuesCell, lensCell, i);
    if (v !== null) chars += v.length;
  }
  kl.kl_free_php_reply_pp(valuesCell, n);
  kl.kl_free_php_reply_p(kl.ulongpp_to_charpp(lensCell));
  return chars;
}

function ops(kl, client, w) {
  const route = '';
  switch (w.kind) {
    case 'get': {
      const names = K.keyNames(w.prefix, w.nkeys);
      const value = kl.new_charpp();
      const len = kl.new_ulongp();
      return (i) => {
        const key = names[i % names.length];
        check(kl, kl.kl_get_whole(client, key, key.length, value, len, route, 0), 'kl_get_whole');
        const s = kl.charpp_value(value, len);
        kl.kl_free_php_reply_p(value);
        return s.length;
      };
    }
    case 'set': {
      const names = K.keyNames(w.prefix, w.nkeys);
      const v = K.valueOf(w.size);
      return (i) => {
        const key = names[i % names.length];
        check(kl, kl.kl_set(client, key, key.length, v, v.length, 0), 'kl_set');
      };
    }
    case 'mget':
    case 'mget-build': {
      const names = K.keyNames(w.prefix, w.count);
      const values = kl.new_charppp();
      const count = kl.new_ulongp();
      const lens = kl.new_ulongpp();
      const once = w.kind === 'mget' ? keyArrays(kl, names) : null;
      return () => {
        const a = once || keyArrays(kl, names);
        check(kl, kl.kl_mget_whole(client, a.keys, names.length, a.lens, values, count, lens, route, 0,
          kl.KL_NULL_ON_FAIL), 'kl_mget_whole');
        const chars = readAll(kl, values, lens, kl.ulongp_value(count));
        if (!once) {
          kl.delete_charp_array(a.keys, names.length);
          kl.delete_ulong_array(a.lens);
        }
        return chars;
      };
    }
    case 'mset': {
      const names = K.keyNames(w.prefix, w.count);
      const { keys, lens } = keyArrays(kl, names);
      const v = K.valueOf(w.size);
      const vals = kl.new_charp_array(names.length);
      const vlens = kl.new_ulong_array(names.length);
      for (let i = 0; i < names.length; i++) {
        kl.charp_array_set(vals, i, v, v.length);
        kl.ulong_array_set(vlens, i, v.length);
      }
      return () => check(kl, kl.kl_mset(client, keys, names.length, lens, vals, vlens), 'kl_mset');
    }
    case 'hgetall': {
      const count = kl.new_ulongp();
      const fields = kl.new_charppp();
      const flens = kl.new_ulongpp();
      const values = kl.new_charppp();
      const vlens = kl.new_ulongpp();
      const key = w.key;
      return () => {
        check(kl, kl.kl_hgetall(client, key, key.length, count, fields, flens, values, vlens), 'kl_hgetall');
        const n = kl.ulongp_value(count);
        // fields and values alternate for the reader: field i, value i
        let chars = 0;
        for (let i = 0; i < n; i++) {
          chars += kl.charppp_value(fields, flens, i).length + kl.charppp_value(values, vlens, i).length;
        }
        kl.kl_free_php_reply_pp(fields, n);
        kl.kl_free_php_reply_p(kl.ulongpp_to_charpp(flens));
        kl.kl_free_php_reply_pp(values, n);
        kl.kl_free_php_reply_p(kl.ulongpp_to_charpp(vlens));
        return chars;
      };
    }
    case 'zrange': {
      const members = kl.new_charppp();
      const count = kl.new_ulongp();
      const mlens = kl.new_ulongpp();
      const scores = kl.new_doublepp();
      const key = w.key;
      return () => {
        check(kl, kl.kl_zrange(client, key, key.length, 0, -1, members, count, mlens, kl.ZSET_WITH_SCORES,
          scores, null, null), 'kl_zrange');
        const n = kl.ulongp_value(count);
        let sum = 0;
        for (let i = 0; i < n; i++) {
          sum += kl.charppp_value(members, mlens, i).length + kl.doublepp_index_value(scores, i);
        }
        kl.kl_free_php_reply_pp(members, n);
        kl.kl_free_php_reply_p(kl.ulongpp_to_charpp(mlens));
        kl.kl_free_php_reply_p(kl.doublepp_to_charpp(scores));
        return sum;
      };
    }
    default:
      return null;
  }
}

async function prepare(task) {
  const kl = load(task.buildDir);
  const w = task.workload;
  if (w.kind === 'call-trivial') {
    const cell = kl.copy_intp(7);
    return { mode: 'sync', every: 4096, op: () => kl.intp_value(cell) };
  }
  if (w.kind === 'call-exists') {
    return { mode: 'sync', every: 4096, op: () => kl.kl_exists(null, 'k', 1) };
  }
  if (w.kind === 'continuum') {
    // kl_server_add of n servers into a fresh client, then one GET whose routing
    // builds the continuum (as bench/continuum_build.c: loopback hosts on port 1,
    // where nothing listens, so the connection is refused at once)
    const n = w.count;
    const host = (i) => `127.1.${Math.floor(i / 250)}.${(i % 250) + 1}`;
    return {
      mode: 'sync',
      items: n,
      op: () => {
        const c = kl.kl_client_create(kl.KL_HASH_DEFAULT, kl.KL_DISTRIBUTION_CONSISTENT, kl.new_mm(), kl.KL_FLAG_NONE);
        for (let i = 0; i < n; i++) check(kl, kl.kl_server_add(c, host(i), 1, ''), 'kl_server_add');
        const v = kl.new_charpp();
        const len = kl.new_ulongp();
        const rc = kl.kl_get_whole(c, 'k', 1, v, len, '', 0);
        if (rc !== kl.KL_SERVER_DOWN) throw new Error(`kl_get_whole gave ${rc}, expected a refused connection`);
        kl.kl_client_destroy(c);
      },
    };
  }
  const client = connect(kl, task.ports);
  const op = ops(kl, client, w);
  if (!op) return null;
  return { mode: 'sync', op, items: w.count || 1, close: () => kl.kl_client_destroy(client), kl, client };
}

module.exports = { prepare, load, connect, keyArrays, readAll, ops, check };
