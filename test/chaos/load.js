'use strict';
// The load of a chaos run, in a child process forked by test/chaos/run.js:
// a mixed load through the exact layer (kl_set of unique keys, kl_get_whole of
// earlier keys, kl_incr, kl_mget_whole) against two groups of two servers,
// until the parent sends 'repair'; then kl_dirty on every key written, then
// 'done' with the records. Every call is timed.
const { Rng } = require('../fuzz/rng');

const cfg = JSON.parse(process.argv[2]);
const k = require(require('../helpers/paths').addonPath);
const rng = new Rng(cfg.seed ^ 0x5bd1e995);

const client = k.kl_client_create(k.KL_HASH_DEFAULT, k.KL_DISTRIBUTION_CONSISTENT, null, k.KL_FLAG_NONE);
cfg.groups.forEach((ports, g) => {
  for (const port of ports) {
    const r = k.kl_server_add(client, '127.0.0.1', port, `group${g}`);
    if (r !== k.KL_SUCCESS) throw new Error(`kl_server_add ${port}: ${r}`);
  }
});
k.kl_client_connection_timeout(client, cfg.timeoutMs);
k.kl_client_reconnect_attempt_timeout(client, cfg.reconnectMs);

const valCell = k.new_charpp();
const lenCell = k.new_ulongp();
const intCell = k.new_intp();
const writes = []; // [key, value, code, t0, t1]
const reads = [];  // [key, code, value-or-null, t0, t1]
let maxMs = 0;
let maxOp = '';
let calls = 0;
let wrongValues = 0;
const written = new Map();

function timed(name, fn) {
  const t0 = Date.now();
  const h0 = process.hrtime.bigint();
  const r = fn();
  const ms = Number(process.hrtime.bigint() - h0) / 1e6;
  calls++;
  if (ms > maxMs) { maxMs = ms; maxOp = name; }
  return [r, t0, Date.now()];
}

let seq = 0;
function step() {
  const roll = rng.next();
  if (roll < 0.6 || written.size === 0) {
    const key = `chaos:${cfg.seed}:${seq++}`;
    const value = `v${seq}-${rng.u32().toString(36)}`;
    const [r, t0, t1] = timed('kl_set', () => k.kl_set(client, key, key.length, value, value.length, 0));
    writes.push([key, value, r, t0, t1]);
    written.set(key, value);
  } else if (roll < 0.85) {
    const key = `chaos:${cfg.seed}:${rng.int(0, seq - 1)}`;
    const [r, t0, t1] = timed('kl_get_whole', () => k.kl_get_whole(client, key, key.length, valCell, lenCell, '', 0));
    let value = null;
    if (r === k.KL_SUCCESS) {
      value = k.charpp_value(valCell, lenCell);
      k.kl_free_php_reply_p(valCell);
      // a read never returns a value other than the one written for the key
      if (written.has(key) && value !== written.get(key)) wrongValues++;
    }
    reads.push([key, r, value, t0, t1]);
  } else if (roll < 0.95) {
    const key = `chaos:${cfg.seed}:counter:${rng.int(0, 9)}`;
    timed('kl_incr', () => k.kl_incr(client, key, key.length, intCell, 0));
  } else {
    const n = rng.int(1, 5);
    const keys = k.new_charp_array(n);
    const lens = k.new_ulong_array(n);
    for (let i = 0; i < n; i++) {
      const key = `chaos:${cfg.seed}:${rng.int(0, Math.max(0, seq - 1))}`;
      k.charp_array_set(keys, i, key, key.length);
      k.ulong_array_set(lens, i, key.length);
    }
    const out = k.new_charppp();
    const count = k.new_ulongp();
    const outLens = k.new_ulongpp();
    const [r] = timed('kl_mget_whole', () => k.kl_mget_whole(client, keys, n, lens, out, count, outLens, '', 0,
      rng.chance(0.5) ? k.KL_NULL_ON_FAIL : k.KL_BEST_EFFORT_ON_FAIL));
    if (r === k.KL_SUCCESS || r === k.KL_PARTIAL_RESULT) {
      k.kl_free_php_reply_pp(out, k.ulongp_value(count));
      k.kl_free_php_reply_p(k.ulongpp_to_charpp(outLens));
    }
    k.delete_charppp(out);
    k.delete_ulongp(count);
    k.delete_ulongpp(outLens);
    k.delete_charp_array(keys, n);
    k.delete_ulong_array(lens);
  }
}

let phase = 'load';
process.on('message', (m) => { if (m === 'repair') phase = 'repair'; });

function loadLoop() {
  if (phase === 'load' && seq < cfg.maxWrites) {
    for (let i = 0; i < 20; i++) step();
    setImmediate(loadLoop);
  } else if (phase === 'load') {
    setTimeout(loadLoop, 50); // write budget spent: wait for the parent
  } else {
    setTimeout(repair, cfg.reconnectMs + 100);
  }
}

// kl_dirty on every key attempted, until it succeeds (bounded): the first
// group that holds the key is copied to the groups that do not.
function repair() {
  const groupsCell = k.new_intp();
  const dirty = [];
  let repaired = 0;
  let failed = 0;
  for (const [key] of writes) {
    let r;
    for (let attempt = 0; attempt < 5; attempt++) {
      [r] = timed('kl_dirty', () => k.kl_dirty(client, key, key.length, 0, groupsCell));
      if (r === k.KL_SUCCESS || r === k.KL_NOTFOUND) break;
      const until = Date.now() + cfg.reconnectMs + 50;
      while (Date.now() < until) { /* wait for the reconnect time-out */ }
    }
    if (r === k.KL_SUCCESS) repaired += k.intp_value(groupsCell);
    else if (r !== k.KL_NOTFOUND) { failed++; dirty.push([key, r]); }
  }
  k.delete_intp(groupsCell);
  k.delete_charpp(valCell);
  k.delete_ulongp(lenCell);
  k.delete_intp(intCell);
  k.kl_client_destroy(client);
  process.send({ writes, reads: reads.length, calls, maxMs, maxOp, wrongValues, repaired, repairFailed: dirty.slice(0, 20), failedRepairs: failed },
    () => process.exit(0));
}

loadLoop();
