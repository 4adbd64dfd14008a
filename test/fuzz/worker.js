'use strict';
// One fuzz batch, run in its own process by test/fuzz/run.js so that a crash
// is reported with the seed and the last call.
//   node test/fuzz/worker.js --seed N --calls N --seconds N --mode probe|real
// The addon comes from $KEYLOOM_BUILD_DIR; in probe mode LD_LIBRARY_PATH points
// at <build>/probe, in real mode $KEYLOOM_FUZZ_SERVERS lists "port,port" of
// live servers. Before every call one line describing it goes to fd 3.
// The summary is one JSON line on stdout; exit status 1 when an assertion failed.
const fs = require('node:fs');
const { functions } = require('../addon/signatures');
const { Rng } = require('./rng');

const argv = process.argv.slice(2);
const opt = (name, def) => {
  const i = argv.indexOf(`--${name}`);
  return i >= 0 ? argv[i + 1] : def;
};
const seed = Number(opt('seed', '1')) >>> 0;
const maxCalls = Number(opt('calls', '5000'));
const maxMs = Number(opt('seconds', '10')) * 1000;
const mode = opt('mode', 'probe');
const real = mode === 'real';
const k = require(require('../helpers/paths').addonPath);
const rng = new Rng(seed);

let traceFd = 3;
try { fs.fstatSync(3); } catch { traceFd = -1; }
const probeLog = !real && process.env.KEYLOOM_PROBE_LOG ? process.env.KEYLOOM_PROBE_LOG : null;
const logSize = () => (probeLog ? fs.statSync(probeLog).size : 0);

// ---------------------------------------------------------------------------
// Types and descriptors

const DESC = {
  'kl_client *': '_p_kl_client', 'kl_mm_t *': '_p_kl_mm_t',
  'char **': '_p_p_char', 'char const **': '_p_p_char', 'char ***': '_p_p_p_char',
  'size_t *': '_p_size_t', 'size_t const *': '_p_size_t', 'size_t **': '_p_p_size_t',
  'int *': '_p_int', 'int **': '_p_p_int',
  'unsigned int *': '_p_unsigned_int', 'unsigned int **': '_p_p_unsigned_int',
  'double *': '_p_double', 'double **': '_p_p_double',
  'kl_return_t *': '_p_kl_return_t', 'kl_return_t **': '_p_p_kl_return_t',
};
const INTS = new Set(['int', 'setFlags', 'zSetFlags', 'kl_return_t', 'kl_hash',
  'kl_server_distribution', 'kl_client_version']);
// family word of the cell functions for each cell descriptor
const FAMILY = {
  _p_int: 'intp', _p_p_int: 'intpp', _p_unsigned_int: 'uintp', _p_size_t: 'ulongp',
  _p_double: 'doublep', _p_p_double: 'doublepp', _p_p_unsigned_int: 'uintpp',
  _p_p_size_t: 'ulongpp', _p_kl_return_t: 'kl_return_tp', _p_p_kl_return_t: 'kl_return_tpp',
  _p_p_char: 'charpp', _p_p_p_char: 'charppp',
};

const descOf = new WeakMap(); // proxy -> descriptor it was made with
function tag(p, desc) {
  if (p !== null && typeof p === 'object') descOf.set(p, desc);
  return p;
}

// Truncation toward zero to int64 as the processor does it; null for the
// values that become the most negative int64 (NaN, infinities, |x| >= 2^63).
function trunc64(x) {
  if (Number.isNaN(x) || !Number.isFinite(x) || Math.abs(x) >= 2 ** 63) return null;
  return Math.trunc(x);
}

// Would value v pass the conversion for a parameter of C type t?
function converts(t, v) {
  if (t === 'binary encoded string') return typeof v === 'string';
  if (t === 'char *' || t === 'char const *') return typeof v === 'string';
  if (t === 'size_t') {
    if (typeof v !== 'number') return false;
    const n = trunc64(v);
    return n !== null && n >= 0;
  }
  if (t === 'unsigned int') {
    if (typeof v !== 'number') return false;
    const n = trunc64(v);
    return n !== null && n >= 0 && n <= 4294967295;
  }
  if (INTS.has(t) || t === 'double') return typeof v === 'number';
  const want = DESC[t];
  if (!want) throw new Error(`unknown type ${t}`);
  if (v === null) return true;
  return typeof v === 'object' && descOf.get(v) === want;
}

// ---------------------------------------------------------------------------
// Values of every kind

const STRINGS = ['', 'a', 'key', 'k\u00e9y', '\u2713', 'a\0b', '\0', '_NL_', '\ud800',
  '\ud83d\ude00', 'x'.repeat(300), 'user:1', '127.0.0.1', '10.0.0.0/8', '::1', '*', '?',
  'default', 'group-b', '\u00ff\u0100', 'timeout', '%s%n%x'];
const EDGE_NUMBERS = [0, -0, -0.5, 0.5, 1, -1, 2, 3.99, -3.99, 7, 2 ** 31 - 1, 2 ** 31, -(2 ** 31),
  2 ** 32 - 1, 2 ** 32, 2 ** 32 + 5, 2 ** 53, 2 ** 63, -(2 ** 63), 1e19, NaN, Infinity, -Infinity,
  Number.MIN_VALUE, Number.MAX_VALUE, 128, 255, 4294967295.7];

function anyString() {
  if (rng.chance(0.7)) return rng.pick(STRINGS);
  return rng.string(rng.int(0, 24));
}

// A random value of any kind, including proxies of every descriptor.
function anyValue() {
  switch (rng.int(0, 17)) {
    case 0: case 1: return rng.pick(EDGE_NUMBERS);
    case 2: return rng.int(-1000, 1000);
    case 3: case 4: return anyString();
    case 5: return Buffer.from(anyString());
    case 6: return rng.chance(0.5) ? new String(anyString()) : new Number(rng.pick(EDGE_NUMBERS));
    case 7: return rng.pick([0n, 1n, -1n, 2n ** 64n]);
    case 8: return Symbol('fuzz');
    case 9: return rng.pick([{}, { length: 3 }, Object.create(null), new Date(0), () => 1, /x/]);
    case 10: return rng.pick([[], [1, 2], ['a'], new Uint8Array(4)]);
    case 11: return new Proxy({}, {});
    case 12: case 13: case 14: return anyProxy();
    case 15: return null;
    case 16: return undefined;
    default: return rng.chance(0.5);
  }
}

// ---------------------------------------------------------------------------
// Objects the fuzzer keeps: cells of every family, arrays, clients. None of
// them is ever freed while it may still be used.

const pool = { cells: {}, arrays: [], clients: [] };
const newCell = (family) => tag(k[`new_${family}`](), family === 'charpp' ? '_p_p_char'
  : family === 'charppp' ? '_p_p_p_char' : Object.keys(FAMILY).find((d) => FAMILY[d] === family));
for (const [desc, family] of Object.entries(FAMILY)) {
  pool.cells[desc] = [];
  for (let i = 0; i < 3; i++) pool.cells[desc].push({ p: newCell(family), target: null });
}
// element counts of pointer targets, for the pointer-cell model
const sizeOf = new WeakMap();
for (const list of Object.values(pool.cells)) for (const c of list) sizeOf.set(c.p, 1);

function makeArray(kind, n) {
  const p = tag(k[`new_${kind}_array`](n), { charp: '_p_p_char', uint: '_p_unsigned_int',
    ulong: '_p_size_t', double: '_p_double' }[kind]);
  if (p) sizeOf.set(p, n);
  return p;
}
for (const kind of ['charp', 'uint', 'ulong', 'double']) {
  for (const n of [1, 4]) pool.arrays.push({ kind, p: makeArray(kind, n), n });
}

function anyProxy() {
  if (pool.clients.length && rng.chance(0.15)) return rng.pick(pool.clients);
  if (rng.chance(0.2)) return rng.pick(pool.arrays).p;
  const list = pool.cells[rng.pick(Object.keys(pool.cells))];
  return rng.pick(list).p;
}

// Servers of the real mode.
const servers = (process.env.KEYLOOM_FUZZ_SERVERS || '').split(',').filter(Boolean).map(Number);
let live = null; // the client commands go to (real mode: with the servers added)
function newLiveClient() {
  const c = tag(k.kl_client_create(0, 1, null, 1), '_p_kl_client');
  if (real && c) {
    servers.forEach((port, i) => k.kl_server_add(c, '127.0.0.1', port, i % 2 ? 'b' : 'a'));
    k.kl_client_connection_timeout(c, 1000);
    k.kl_client_reconnect_attempt_timeout(c, 50);
  }
  return c;
}
live = newLiveClient();
pool.clients.push(live);

// ---------------------------------------------------------------------------
// Valid arguments, one generator per argument role

const cleanups = [];
const later = (fn) => cleanups.push(fn);
function freshCell(type) {
  const desc = DESC[type];
  const family = FAMILY[desc];
  const p = newCell(family);
  later(() => k[`delete_${family}`](p));
  return p;
}
function freshArrayOf(kind, values, lens) {
  const n = values.length;
  const p = makeArray(kind, n);
  values.forEach((v, i) => {
    if (kind === 'charp') k.charp_array_set(p, i, v, lens[i]);
    else k[`${kind}_array_set`](p, i, v);
  });
  later(() => (kind === 'charp' ? k.delete_charp_array(p, n) : k[`delete_${kind}_array`](p)));
  return p;
}
const byteLen = (s) => Buffer.byteLength(s, 'utf8');
const validInt = () => (rng.chance(0.5) ? rng.pick(EDGE_NUMBERS) : rng.int(-5, 20));
const validUint = () => rng.pick([0, 1, 2, 5, 100, 4294967295, 0.9, -0.5, 3000000000]);
const validSize = () => (real ? rng.pick([0, 1, 2, 3, 60, -0.5, 2.9])
  : rng.pick([0, 1, 2, 3, 60, -0.5, 2.9, 2 ** 32, 2 ** 53]));

// Input arrays of the library functions: [array, count, lengths] positions
// (0-based), and the positions of numeric arrays that share the count.
const INPUT_ARRAYS = {
  kl_mget_whole: { text: [[1, 2, 3]] },
  kl_mset: { text: [[1, 2, 3], [4, 2, 5]] },
  kl_msetex: { text: [[1, 2, 3], [4, 2, 5]], ulong: [[6, 2]] },
  kl_mdel: { text: [[1, 2, 3]] },
  kl_sunion_whole: { text: [[1, 2, 3]] },
  kl_sunionstore: { text: [[3, 4, 5]] },
  kl_zmadd: { text: [[4, 5, 6]], double: [[3, 5]] },
  kl_zmaddval: { text: [[4, 5, 6], [7, 5, 8]], double: [[3, 5]] },
  kl_zmrem: { text: [[3, 4, 5]] },
  kl_hmset: { text: [[3, 4, 5], [6, 4, 7]] },
  kl_hmget: { text: [[3, 4, 5]] },
  kl_hmget_whole: { text: [[3, 4, 5]] },
  kl_mhmget: { text: [[1, 2, 3], [4, 5, 6]] },
  kl_mhmget_whole: { text: [[1, 2, 3], [4, 5, 6]] },
  kl_hmdel: { text: [[3, 4, 5]] },
  kl_dmadd: { text: [[3, 4, 5], [6, 4, 7]] },
};

// Arguments for a library function (or one of the module's own wrappers of
// one) that are safe to pass on; returns null when there is no safe call.
function libraryArgs(f) {
  const types = f.args;
  const args = new Array(types.length);
  const fixed = new Set();
  const arrays = INPUT_ARRAYS[f.name];
  if (arrays) {
    const counts = new Map();
    for (const [a, c, l] of arrays.text) {
      let n = counts.get(c);
      if (n === undefined) { n = rng.int(real ? 1 : 0, 4); counts.set(c, n); }
      const values = Array.from({ length: n }, () => anyString());
      const lens = values.map((s) => rng.int(0, byteLen(s)));
      args[a] = rng.chance(0.05) ? null : freshArrayOf('charp', values, values.map(byteLen));
      args[c] = rng.chance(0.1) ? rng.int(0, n) : n;
      args[l] = rng.chance(0.05) ? null : freshArrayOf('ulong', lens);
      fixed.add(a).add(c).add(l);
    }
    for (const [a, c] of arrays.double || []) {
      const n = counts.get(c);
      args[a] = freshArrayOf('double', Array.from({ length: n }, () => rng.pick([0, 1.5, -2, 1e300, NaN, Infinity])));
      fixed.add(a);
    }
    for (const [a, c] of arrays.ulong || []) {
      const n = counts.get(c);
      args[a] = freshArrayOf('ulong', Array.from({ length: n }, () => rng.int(0, 100)));
      fixed.add(a);
    }
  }
  for (let i = 0; i < types.length; i++) {
    if (fixed.has(i)) continue;
    const t = types[i];
    if (t === 'kl_client *') {
      if (rng.chance(0.08)) args[i] = null;
      else if (f.name === 'kl_client_destroy' || f.name === 'kl_server_add' || f.name === 'server_add'
        || (real && ['kl_auth', 'kl_select', 'kl_set_client_version', 'kl_set_database_key'].includes(f.name) && rng.chance(0.7))) {
        const c = tag(k.kl_client_create(0, 1, null, 1), '_p_kl_client');
        if (real && c && f.name !== 'kl_server_add' && f.name !== 'server_add') {
          servers.forEach((port) => k.kl_server_add(c, '127.0.0.1', port, ''));
          k.kl_client_connection_timeout(c, 1000);
        }
        if (f.name !== 'kl_client_destroy') later(() => k.kl_client_destroy(c));
        args[i] = c;
      } else args[i] = real ? live : rng.pick(pool.clients);
    } else if (t === 'kl_mm_t *') args[i] = null;
    else if (t === 'char *' || t === 'char const *' || t === 'binary encoded string') {
      let s = anyString();
      if (t === 'binary encoded string') s = s.replace(/[^\x01-\xff]/g, 'b');
      if (real && (f.name === 'kl_server_add' || f.name === 'server_add') && i === 1) {
        s = rng.pick(['127.0.0.1', '', '::1', '256.1.1.1', '1.2.3', 'a\0b', '127.0.0.1:80', '_NL_']);
      }
      args[i] = s;
      if (types[i + 1] === 'size_t' && !fixed.has(i + 1)) {
        const len = t === 'binary encoded string' ? s.length : byteLen(s);
        args[i + 1] = rng.chance(0.7) ? len : rng.int(0, len);
        i++;
      }
    } else if (t === 'size_t') args[i] = validSize();
    else if (t === 'unsigned int') args[i] = validUint();
    else if (INTS.has(t)) args[i] = validInt();
    else if (t === 'double') args[i] = rng.pick(EDGE_NUMBERS);
    else if (DESC[t]) args[i] = rng.chance(0.15) ? null : freshCell(t);
    else throw new Error(`no generator for ${t}`);
  }
  if (f.name === 'kl_free_reply_p') return null; // always calls through the null manager
  if (f.name === 'kl_free_reply_pp') args[0] = null; // only a null reply is safe with it
  if (f.name === 'kl_client_create' && real) {
    // a client with a bad hash or distribution must still be destroyable
  }
  return args;
}

// Arguments for the module's own cell, array and reader functions.
function moduleArgs(f) {
  const name = f.name;
  const pick = (desc) => rng.pick(pool.cells[desc]);
  let m;
  if ((m = /^new_(\w+)$/.exec(name)) && f.args.length === 0) return [];
  if ((m = /^copy_(\w+)$/.exec(name))) {
    const t = f.args[0];
    return [DESC[t] ? (rng.chance(0.3) ? null : pick(DESC[t]).p) : numberFor(t)];
  }
  if (name === 'delete_charp') return [null];
  if ((m = /^delete_(\w+)_array$/.exec(name))) {
    if (rng.chance(0.3)) return m[1] === 'charp' ? [null, validInt()] : [null];
    const n = rng.int(0, 3);
    const p = makeArray(m[1], n);
    if (m[1] === 'charp') {
      for (let i = 0; i < n; i++) if (rng.chance(0.7)) { const s = anyString(); k.charp_array_set(p, i, s, byteLen(s)); }
      return [p, rng.int(-2, n)];
    }
    return [p];
  }
  if ((m = /^delete_(\w+)$/.exec(name))) {
    if (rng.chance(0.3)) return [null];
    return [newCell(m[1])];
  }
  if ((m = /^(\w+)_assign$/.exec(name))) {
    const cell = pick(DESC[f.args[0]]);
    const t = f.args[1];
    if (DESC[t]) {
      const target = rng.chance(0.2) ? null : rng.chance(0.7) ? pick(DESC[t]).p
        : (pool.arrays.find((a) => descOf.get(a.p) === DESC[t]) || pick(DESC[t])).p;
      return { args: [cell.p, target], post: () => { cell.target = target; } };
    }
    return [cell.p, numberFor(t)];
  }
  if ((m = /^(\w+)_value$/.exec(name)) && f.args.length === 1) return [pick(DESC[f.args[0]]).p];
  if ((m = /^(\w+)_array_set$/.exec(name))) {
    const a = rng.pick(pool.arrays.filter((x) => x.kind === m[1]));
    const idx = rng.int(0, a.n - 1);
    if (m[1] === 'charp') {
      const s = anyString();
      return [a.p, idx, s, rng.int(0, byteLen(s))];
    }
    return [a.p, idx, numberFor(f.args[2])];
  }
  if ((m = /^(\w+)_array_get$/.exec(name))) {
    const a = rng.pick(pool.arrays.filter((x) => x.kind === m[1]));
    return [a.p, rng.int(0, a.n - 1)];
  }
  if (/^new_\w+_array$/.test(name)) return [rng.pick([0, 1, 2, 5, -1, -(2 ** 31), 2 ** 32 + 1, 0.5])];
  if (/_index_value$/.test(name)) {
    const cell = pick(DESC[f.args[0]]);
    const n = cell.target ? sizeOf.get(cell.target) || 1 : 1;
    return [cell.p, cell.target ? rng.int(0, n - 1) : validInt()];
  }
  if (/_to_charpp$/.test(name)) return [rng.chance(0.3) ? null : pick(DESC[f.args[0]]).p];
  if (name === 'charpp_value' || name === 'charpp_value_raw') return textReaderArgs();
  if (name === 'charppp_value' || name === 'charppp_value_raw') {
    // a char *** cell only the library fills: a fresh (null) one or null
    return [rng.chance(0.3) ? null : freshCell('char ***'), rng.chance(0.5) ? null : pick('_p_p_size_t').p, validInt()];
  }
  if (name === 'COMMIT' || name === 'DURABLE_TTL') return [validInt()];
  return undefined;
}

function numberFor(t) {
  if (t === 'size_t') return rng.pick([0, 1, 3000000000, 4294967296, 5000000000, 2 ** 53, -0.5, 2 ** 62]);
  if (t === 'unsigned int') return validUint();
  if (t === 'double') return rng.pick(EDGE_NUMBERS);
  return validInt();
}

// A char ** reply and its length cell whose contents agree: a one-element
// charp_array holding a known text, read with a length that does not run past it.
function textReaderArgs() {
  if (rng.chance(0.2)) return [null, rng.chance(0.5) ? null : freshCell('size_t *')];
  if (rng.chance(0.2)) return [freshCell('char **'), freshCell('size_t *')];
  const s = rng.pick(['abc', 'a\0b', '_NL_', '\0', '\u00e9', '', anyString()]);
  const L = byteLen(s);
  const arr = freshArrayOf('charp', [s], [L]);
  const len = freshCell('size_t *');
  k.ulongp_assign(len, rng.pick([0, L, rng.int(0, L)]));
  return [arr, rng.chance(0.1) ? null : len];
}

function validArgs(f) {
  if (f.group === 'library' || f.group === 'own' && f.calls) return libraryArgs(f);
  return moduleArgs(f);
}

// What the real mode never calls with arguments that pass conversion.
const NEVER = new Set(['kl_free_reply_p']);

// ---------------------------------------------------------------------------
// Checks

const failures = [];
function fail(msg) {
  if (failures.length < 20) failures.push(msg);
}
function describe(v) {
  if (v === null) return 'null';
  if (v === undefined) return 'undefined';
  if (typeof v === 'number') return Object.is(v, -0) ? '-0' : String(v);
  if (typeof v === 'string') return JSON.stringify(v.length > 40 ? `${v.slice(0, 40)}...(${v.length})` : v);
  if (typeof v === 'bigint') return `${v}n`;
  if (typeof v === 'symbol') return 'Symbol()';
  if (typeof v === 'boolean') return String(v);
  if (typeof v === 'function') return 'function';
  if (descOf.has(v)) return `<${descOf.get(v)} 0x${v.getCPtr().toString(16)}>`;
  if (Buffer.isBuffer(v)) return `Buffer(${v.length})`;
  if (v instanceof String) return `String(${JSON.stringify(String(v))})`;
  if (v instanceof Number) return `Number(${Number(v)})`;
  if (Array.isArray(v)) return `[array ${v.length}]`;
  return `{${Object.prototype.toString.call(v)}}`;
}

function checkResult(f, r) {
  const kind = f.result;
  const int32 = (x) => typeof x === 'number' && Number.isInteger(x) && x >= -(2 ** 31) && x < 2 ** 31;
  let ok;
  if (kind === 'code' || kind === 'int') ok = int32(r);
  else if (kind === 'uint8') ok = int32(r) && r >= 0 && r <= 255;
  else if (kind === 'number') ok = typeof r === 'number';
  else if (kind === 'string') ok = r === undefined || typeof r === 'string';
  else if (kind === 'text') ok = r === null || typeof r === 'string';
  else if (kind === 'undefined') ok = r === undefined;
  else if (kind === 'null') ok = r === null;
  else if (kind.startsWith('proxy:')) {
    ok = r === null || (typeof r === 'object' && typeof r.getCPtr === 'function' && typeof r.equals === 'function');
    if (ok) tag(r, kind.slice(6));
  } else ok = false;
  if (!ok) fail(`${f.name}: result ${describe(r)} is not of kind ${kind}`);
}

// ---------------------------------------------------------------------------
// The loop

const names = functions.filter((f) => !(real && NEVER.has(f.name)));
let calls = 0;
let thrown = 0;
let reached = 0;
const started = Date.now();

function trace(i, f, args, note) {
  if (traceFd < 0) return;
  fs.writeSync(traceFd, `${i} ${note} ${f.name}(${args.map(describe).join(', ')})\n`);
}

function runOne(i) {
  const f = rng.pick(names);
  const arity = f.args.length;
  const roll = rng.next();
  let args;
  let post;
  let expected = null; // message expected, or null when the call must succeed
  if (roll < 0.1 || arity === 0 && roll < 0.2) {
    let n;
    do n = rng.int(0, arity + 3); while (n === arity);
    args = Array.from({ length: n }, anyValue);
    expected = `Illegal number of arguments for _wrap_${f.name}.`;
  } else {
    let v = validArgs(f);
    if (v && !Array.isArray(v)) { post = v.post; v = v.args; }
    if (roll < 0.55 && arity > 0 || !v) {
      if (!v) v = f.args.map(() => null);
      // argument kpos fails; the ones after it are never looked at
      const kpos = rng.int(0, arity - 1);
      const t = f.args[kpos];
      let bad;
      for (let tries = 0; tries < 20 && (bad === undefined || converts(t, bad)); tries++) bad = anyValue();
      if (converts(t, bad)) bad = Symbol('bad');
      args = v.slice();
      args[kpos] = bad;
      for (let j = kpos + 1; j < arity; j++) if (rng.chance(0.5)) args[j] = anyValue();
      // an earlier argument may itself fail (a generator gave null where no null passes)
      let first = kpos;
      for (let j = 0; j < kpos; j++) if (!converts(f.args[j], args[j])) { first = j; break; }
      expected = `in method '${f.name}', argument ${first + 1} of type '${f.args[first]}'`;
      post = undefined;
    } else {
      args = v;
      for (let j = 0; j < arity; j++) {
        if (!converts(f.args[j], args[j])) {
          expected = `in method '${f.name}', argument ${j + 1} of type '${f.args[j]}'`;
          post = undefined;
          break;
        }
      }
    }
  }
  trace(i, f, args, expected ? 'throws' : 'calls');
  const before = probeLog && f.calls ? logSize() : 0;
  let result;
  let error;
  let threw = false;
  try {
    result = k[f.name](...args);
  } catch (e) {
    threw = true;
    error = e;
  }
  if (expected) {
    thrown++;
    if (!threw) fail(`${f.name}(${args.map(describe).join(', ')}): expected "${expected}", returned ${describe(result)}`);
    else if (!(error instanceof Error) || Object.getPrototypeOf(error) !== Error.prototype) {
      fail(`${f.name}: threw a ${error && error.constructor && error.constructor.name}, not a plain Error`);
    } else if (error.message !== expected) {
      fail(`${f.name}(${args.map(describe).join(', ')}): expected "${expected}", got "${error.message}"`);
    }
    if (probeLog && f.calls && logSize() !== before) fail(`${f.name}: the library was called after an argument error`);
  } else {
    reached++;
    if (threw) fail(`${f.name}(${args.map(describe).join(', ')}): unexpected throw ${error && error.message}`);
    else {
      checkResult(f, result);
      if (post) post(result);
      afterCall(f, args, result);
    }
  }
  while (cleanups.length) cleanups.pop()();
}

// Follow-ups on a completed call: keep made objects bounded, reset the live
// client when a call changed its time-outs, check the pure functions.
const made = [];
function afterCall(f, args, r) {
  if (f.name === 'kl_client_create' || f.name === 'kl_group_client') {
    if (r) {
      if (!real && pool.clients.length < 6) pool.clients.push(r);
      else k.kl_client_destroy(r);
    }
  } else if (/^(new|copy)_/.test(f.name) && r && descOf.has(r) && f.args.length <= 1 && !/_array$/.test(f.name)) {
    made.push(r);
    if (made.length > 64) {
      const p = made.shift();
      const d = descOf.get(p);
      if (d !== '_p_kl_mm_t') k[`delete_${FAMILY[d]}`](p);
    }
  } else if (/^new_\w+_array$/.test(f.name) && r) {
    const kind = f.name.slice(4, -6);
    if (kind === 'charp') k.delete_charp_array(r, 0); else k[`delete_${kind}_array`](r);
  } else if (f.name === 'kl_get_result' && Math.abs(args[0]) < 2 ** 53 && r !== ((args[0] | 0) & ~128)) {
    fail(`kl_get_result(${describe(args[0])}) = ${r}`);
  } else if (f.name === 'kl_is_dirty' && Math.abs(args[0]) < 2 ** 53 && r !== (((args[0] | 0) & 128) ? 1 : 0)) {
    fail(`kl_is_dirty(${describe(args[0])}) = ${r}`);
  } else if (real && args[0] === live && /timeout|kl_set_client_version|kl_quit/.test(f.name)) {
    k.kl_client_connection_timeout(live, 1000);
    k.kl_client_reconnect_attempt_timeout(live, 50);
  }
}

let i = 0;
for (; i < maxCalls && Date.now() - started < maxMs; i++) {
  runOne(i);
  calls++;
  if (real && i % 300 === 299) {
    // bound the drift of the live client's state (auth, database, prefixes)
    k.kl_client_destroy(live);
    pool.clients[0] = live = newLiveClient();
  }
}
trace(i, { name: 'end' }, [], 'done');
process.stdout.write(`${JSON.stringify({ seed, mode, calls, thrown, reached, failures })}\n`);
process.exitCode = failures.length ? 1 : 0;
