'use strict';
// The idiomatic client: require('keyloom/client'). Methods named after the commands,
// strings and Buffers in, strings (or Buffers on request) and plain values out,
// KeyloomError on failure, and no cell, array or reply left behind on any path.
// Everything goes through the exact layer (js/exact); see support.js for
// the conversions and the Scope that owns what a command allocates.
const {
  kl, codes, DIRTY, KeyloomError, text, byteLength, list, pairs, seconds, integer, number,
  decode, scoped, element, elements, countOf,
} = require('./support.js');

const HASHES = {
  default: kl.KL_HASH_DEFAULT, md5: kl.KL_HASH_MD5, crc: kl.KL_HASH_CRC,
  fnv1_64: kl.KL_HASH_FNV1_64, fnv1a_64: kl.KL_HASH_FNV1A_64,
  fnv1_32: kl.KL_HASH_FNV1_32, fnv1a_32: kl.KL_HASH_FNV1A_32,
  hsieh: kl.KL_HASH_HSIEH, murmur: kl.KL_HASH_MURMUR,
};
const DISTRIBUTIONS = {
  modula: kl.KL_DISTRIBUTION_MODULA,
  consistent: kl.KL_DISTRIBUTION_CONSISTENT,
  ketama: kl.KL_DISTRIBUTION_CONSISTENT_KETAMA,
  consistent_ketama: kl.KL_DISTRIBUTION_CONSISTENT_KETAMA,
};
const VERSIONS = { auto: kl.CLIENT_VERSION_AUTO, 1: kl.CLIENT_VERSION_1, 2: kl.CLIENT_VERSION_2 };
const NULL_STRING = '_NL_'; // the addon's null-string sentinel (keys, flushall)

const NOTFOUND = codes.KL_NOTFOUND;
const resultOf = (rc) => rc & ~DIRTY;

function choose(table, name, what) {
  if (typeof name === 'number') return name;
  const key = String(name).toLowerCase().replace(/-/g, '_');
  if (!(key in table)) {
    throw new TypeError(`keyloom createClient: unknown ${what} '${name}' (one of ${Object.keys(table).join(', ')})`);
  }
  return table[key];
}

/** 'host:port', '[v6]:port', 'host' (port 6379) or { host, port } to [host, port]. */
function parseServer(server) {
  if (server && typeof server === 'object') {
    if (typeof server.host !== 'string') throw new TypeError('keyloom createClient: a server object needs a host');
    return [server.host, server.port === undefined ? 6379 : Number(server.port)];
  }
  if (typeof server !== 'string' || server === '') {
    throw new TypeError(`keyloom createClient: a server is 'host:port' or { host, port }, not ${JSON.stringify(server)}`);
  }
  const v6 = /^\[([^\]]+)\](?::(\d+))?$/.exec(server);
  if (v6) return [v6[1], v6[2] ? Number(v6[2]) : 6379];
  const i = server.lastIndexOf(':');
  if (i < 0) return [server, 6379];
  return [server.slice(0, i), Number(server.slice(i + 1))];
}

function serverList(servers) {
  if (typeof servers === 'string') return servers.split(',').map((s) => s.trim()).filter(Boolean);
  return servers;
}

/** The servers of KEYLOOM_SERVERS (host:port[,host:port...]), or 127.0.0.1:6379. */
function defaultServers() {
  const env = process.env.KEYLOOM_SERVERS;
  return env ? serverList(env) : ['127.0.0.1:6379'];
}

const clients = new FinalizationRegistry((handle) => kl.kl_client_destroy(handle));

class KeyloomClient {
  #h;
  #onDirty;

  constructor(handle, onDirty) {
    this.#h = handle;
    this.#onDirty = onDirty;
    clients.register(this, handle, this);
  }

  // ---- plumbing ----------------------------------------------------------------

  get #handle() {
    if (this.#h === null) {
      throw new KeyloomError(codes.KL_INVALID_CLIENT, { message: 'keyloom: the client is closed' });
    }
    return this.#h;
  }

  /** The exact layer's kl_client proxy, for calls this client does not wrap. */
  get handle() {
    return this.#handle;
  }

  get closed() {
    return this.#h === null;
  }

  #check(rc, command, key) {
    if (rc === 0) return;
    const r = resultOf(rc);
    if (r !== 0) throw new KeyloomError(r, { command, key });
    if (this.#onDirty) this.#onDirty({ command, key, code: rc });
  }

  // A command whose only answer is its code: true on success; `soft` codes give false.
  #status(rc, command, key, soft) {
    const r = resultOf(rc);
    if (soft && soft.includes(r)) return false;
    this.#check(rc, command, key);
    return true;
  }

  // A read of one value through a char ** and a size_t * cell.
  #one(command, key, asBuffer, call) {
    return scoped((s) => {
      const o = s.value();
      const rc = call(o.v, o.n);
      if (resultOf(rc) === NOTFOUND) return null;
      this.#check(rc, command, key);
      return decode(kl.charpp_value_raw(o.v, o.n), asBuffer);
    });
  }

  // A read of several values through a count cell, a char *** and a size_t ** cell.
  #many(command, key, asBuffer, call, okCodes) {
    return scoped((s) => {
      const count = s.count();
      const o = s.strings(count);
      const rc = call(o.arr, count, o.lens);
      const r = resultOf(rc);
      if (r === NOTFOUND) return [];
      if (!(okCodes && okCodes.includes(r))) this.#check(rc, command, key);
      return elements(o.arr, o.lens, countOf(count), asBuffer);
    });
  }

  // A read of an integer through an int * or unsigned int * cell.
  #integer(command, key, unsigned, call, missing = 0) {
    return scoped((s) => {
      const cell = unsigned ? s.uint() : s.int();
      const rc = call(cell);
      if (resultOf(rc) === NOTFOUND) return missing;
      this.#check(rc, command, key);
      return unsigned ? kl.uintp_value(cell) >>> 0 : kl.intp_value(cell);
    });
  }

  // ---- client -----------------------------------------------------------------

  /** Closes the connections and frees the client; later calls throw KL_INVALID_CLIENT. */
  close() {
    if (this.#h === null) return;
    const h = this.#h;
    this.#h = null;
    clients.unregister(this);
    kl.kl_client_destroy(h);
  }

  /** A new client with the same settings and servers and its own connections. */
  duplicate() {
    const h = kl.kl_group_client(this.#handle);
    if (h === null) throw new KeyloomError(codes.KL_MEMORY_FAILURE, { command: 'duplicate' });
    return new KeyloomClient(h, this.#onDirty);
  }

  /**
   * AUTH on every server, remembered for reconnects: auth(password) for the
   * default user, auth(username, password) for an ACL user.
   */
  auth(usernameOrPassword, password) {
    let secret = text(usernameOrPassword, password === undefined ? 'password' : 'username', 'auth');
    if (password !== undefined) {
      if (secret.includes('\0')) throw new TypeError('keyloom auth: a username cannot contain NUL');
      // The library reads "username\0password" as AUTH username password.
      secret = `${secret}\0${text(password, 'password', 'auth')}`;
    }
    return this.#status(kl.kl_auth(this.#handle, secret, byteLength(secret)), 'auth');
  }

  /** Closes every connection; they reopen on the next command. */
  quit() {
    return this.#status(kl.kl_quit(this.#handle), 'quit');
  }

  select(db) {
    return this.#status(kl.kl_select(this.#handle, integer(db, 'database', 'select'), null), 'select');
  }

  // ---- strings and keys -------------------------------------------------------

  get(key, options) {
    const k = text(key, 'key', 'get');
    const route = routeOf(options, 'get');
    return this.#one('get', key, options?.buffer, (v, n) =>
      kl.kl_get_whole(this.#handle, k, byteLength(k), v, n, route, byteLength(route)));
  }

  getBuffer(key, options) {
    return this.get(key, { ...options, buffer: true });
  }

  /**
   * SET. A Buffer value is stored byte for byte. Options: ttl (seconds), nx (only
   * when absent), xx (only when present), route (store on the routing string's
   * server; not with ttl). Returns true, or false when nx/xx prevented the write.
   */
  set(key, value, options) {
    const ttl = seconds(options?.ttl, 'ttl', 'set');
    if (options?.nx) return this.setnx(key, value, options);
    if (options?.xx) return this.setifx(key, value, options);
    const k = text(key, 'key', 'set');
    if (options?.route !== undefined && options.route !== '') {
      if (ttl > 0) throw new TypeError('keyloom set: route and ttl cannot be combined');
      this.getset(key, value, { route: options.route });
      return true;
    }
    if (value instanceof Uint8Array) {
      const bytes = Buffer.isBuffer(value) ? value : Buffer.from(value.buffer, value.byteOffset, value.byteLength);
      // kl_set_binary takes one byte per character and hands the copy to the library.
      const rc = kl.kl_set_binary(this.#handle, k, byteLength(k), bytes.toString('latin1'), bytes.length, ttl);
      return this.#status(rc, 'set', key);
    }
    const v = text(value, 'value', 'set');
    return this.#status(kl.kl_set(this.#handle, k, byteLength(k), v, byteLength(v), ttl), 'set', key);
  }

  /** SET NX: true when set, false when the key already existed. */
  setnx(key, value, options) {
    return this.#store(kl.kl_setnx, 'setnx', key, value, options, [codes.KL_ALREADY_EXISTS]);
  }

  /** SET XX: true when set, false when the key did not exist. */
  setifx(key, value, options) {
    return this.#store(kl.kl_setifx, 'setifx', key, value, options, [NOTFOUND]);
  }

  append(key, value, options) {
    return this.#store(kl.kl_append, 'append', key, value, options);
  }

  // kl_setnx, kl_setifx, kl_append, the pushes, kl_sadd: (client, key, len, value, len, ttl).
  #store(fn, command, key, value, options, soft) {
    const k = text(key, 'key', command);
    const v = text(value, 'value', command);
    const ttl = seconds(options?.ttl, 'ttl', command);
    return this.#status(fn(this.#handle, k, byteLength(k), v, byteLength(v), ttl), command, key, soft);
  }

  /** GETSET: stores value and returns the old one (null when there was none). */
  getset(key, value, options) {
    const k = text(key, 'key', 'getset');
    const v = text(value, 'value', 'getset');
    const route = routeOf(options, 'getset');
    return this.#one('getset', key, options?.buffer, (o, n) =>
      kl.kl_getset_whole(this.#handle, k, byteLength(k), v, byteLength(v), o, n, route, byteLength(route)));
  }

  /**
   * MGET over every shard: one value (or null) per key, in the keys' order.
   * Options: buffer, route, bestEffort (nulls for unreachable shards instead of an error).
   */
  mget(keys, options) {
    list(keys, 'keys', 'mget');
    if (keys.length === 0) return [];
    const route = routeOf(options, 'mget');
    const policy = options?.bestEffort ? kl.KL_BEST_EFFORT_ON_FAIL : kl.KL_NULL_ON_FAIL;
    return scoped((s) => {
      const input = s.texts(keys, 'key', 'mget');
      const count = s.count();
      const o = s.strings(count);
      const rc = kl.kl_mget_whole(this.#handle, input.arr, input.n, input.lens, o.arr, count, o.lens,
        route, byteLength(route), policy);
      if (!(options?.bestEffort && resultOf(rc) === codes.KL_PARTIAL_RESULT)) this.#check(rc, 'mget');
      const n = countOf(count);
      const out = elements(o.arr, o.lens, n, options?.buffer);
      while (out.length < keys.length) out.push(null);
      return out;
    });
  }

  /** MSET of an object, a Map or [key, value] pairs; options.ttl gives every key a TTL. */
  mset(entries, options) {
    const all = pairs(entries, 'entries', 'mset');
    if (all.length === 0) return true;
    const ttl = seconds(options?.ttl, 'ttl', 'mset');
    return scoped((s) => {
      const keys = s.texts(all.map((p) => p[0]), 'key', 'mset');
      const values = s.texts(all.map((p) => p[1]), 'value', 'mset');
      const h = this.#handle;
      const rc = ttl > 0
        ? kl.kl_msetex(h, keys.arr, keys.n, keys.lens, values.arr, values.lens, s.sizes(all.map(() => ttl)))
        : kl.kl_mset(h, keys.arr, keys.n, keys.lens, values.arr, values.lens);
      return this.#status(rc, 'mset');
    });
  }

  /** DEL of one key or an array of keys: how many existed. */
  del(keys) {
    if (!Array.isArray(keys)) {
      const k = text(keys, 'key', 'del');
      return this.#status(kl.kl_del(this.#handle, k, byteLength(k)), 'del', keys, [NOTFOUND]) ? 1 : 0;
    }
    if (keys.length === 0) return 0;
    return scoped((s) => {
      const input = s.texts(keys, 'key', 'del');
      const deleted = s.int();
      this.#check(kl.kl_mdel(this.#handle, input.arr, input.n, input.lens, deleted), 'del');
      return kl.intp_value(deleted);
    });
  }

  exists(key) {
    const k = text(key, 'key', 'exists');
    return this.#status(kl.kl_exists(this.#handle, k, byteLength(k)), 'exists', key, [NOTFOUND]);
  }

  incr(key, options) {
    return this.#counter(kl.kl_incr, 'incr', key, undefined, options);
  }

  incrby(key, by, options) {
    return this.#counter(kl.kl_incrby, 'incrby', key, by, options);
  }

  decr(key, options) {
    return this.#counter(kl.kl_decr, 'decr', key, undefined, options);
  }

  decrby(key, by, options) {
    return this.#counter(kl.kl_decrby, 'decrby', key, by, options);
  }

  // The counters: the new value (32-bit); options.ttl applies when the counter is created.
  #counter(fn, command, key, by, options) {
    const k = text(key, 'key', command);
    const ttl = seconds(options?.ttl, 'ttl', command);
    const step = by === undefined ? undefined : integer(by, 'increment', command);
    return scoped((s) => {
      const cell = s.int();
      const h = this.#handle;
      const rc = step === undefined
        ? fn(h, k, byteLength(k), cell, ttl)
        : fn(h, k, byteLength(k), step, cell, ttl);
      this.#check(rc, command, key);
      return kl.intp_value(cell);
    });
  }

  /** EXPIRE: true when the key exists; 0 seconds removes the TTL. */
  expire(key, ttl) {
    const k = text(key, 'key', 'expire');
    const t = seconds(ttl, 'ttl', 'expire');
    return this.#status(kl.kl_set_ttl(this.#handle, k, byteLength(k), t), 'expire', key, [NOTFOUND]);
  }

  persist(key) {
    return this.expire(key, 0);
  }

  /** Seconds to live, -1 for a key without a TTL, null for a missing key. */
  ttl(key) {
    const k = text(key, 'key', 'ttl');
    return this.#integer('ttl', key, false, (cell) => kl.kl_get_ttl(this.#handle, k, byteLength(k), cell), null);
  }

  /** 'string', 'list', 'set', 'zset', 'hash', or 'none' for a missing key. */
  type(key) {
    const k = text(key, 'key', 'type');
    const t = this.#one('type', key, false, (v) => kl.kl_type(this.#handle, k, byteLength(k), v));
    return t ?? 'none';
  }

  rename(key, newKey) {
    const a = text(key, 'key', 'rename');
    const b = text(newKey, 'new key', 'rename');
    return this.#status(kl.kl_rename(this.#handle, a, byteLength(a), b, byteLength(b)), 'rename', key);
  }

  /** RENAMENX: true when renamed, false when newKey already existed. */
  renamenx(key, newKey) {
    const a = text(key, 'key', 'renamenx');
    const b = text(newKey, 'new key', 'renamenx');
    return this.#status(kl.kl_renamenx(this.#handle, a, byteLength(a), b, byteLength(b)), 'renamenx', key,
      [codes.KL_ALREADY_EXISTS]);
  }

  /** The keys matching a glob pattern on every server (options.group: one group only). */
  keys(pattern = '*', options) {
    const p = text(pattern, 'pattern', 'keys');
    const group = options?.group ? text(options.group, 'group', 'keys') : NULL_STRING;
    return this.#many('keys', undefined, options?.buffer, (arr, count, lens) =>
      kl.keys(this.#handle, p, byteLength(p), arr, count, lens, group, null));
  }

  randomkey() {
    return this.#one('randomkey', undefined, false, (v, n) => kl.kl_randomkey(this.#handle, v, n));
  }

  /** MOVE to database db: true when moved. */
  move(key, db) {
    const k = text(key, 'key', 'move');
    return this.#status(kl.kl_move(this.#handle, k, byteLength(k), integer(db, 'database', 'move')), 'move', key,
      [NOTFOUND, codes.KL_ALREADY_EXISTS]);
  }

  /** The number of keys, summed over every server (options.group: one group only). */
  dbsize(options) {
    const group = groupOf(options, 'dbsize');
    return this.#integer('dbsize', undefined, true, (cell) => kl.kl_dbsize(this.#handle, cell, group, null));
  }

  flushdb(options) {
    return this.#status(kl.kl_flushdb(this.#handle, groupOf(options, 'flushdb'), null), 'flushdb');
  }

  flushall(options) {
    const group = options?.group ? text(options.group, 'group', 'flushall') : NULL_STRING;
    return this.#status(kl.flushall(this.#handle, group, null), 'flushall');
  }

  save(options) {
    return this.#status(kl.kl_save(this.#handle, groupOf(options, 'save'), null), 'save');
  }

  bgsave(options) {
    return this.#status(kl.kl_bgsave(this.#handle, groupOf(options, 'bgsave'), null), 'bgsave');
  }

  /** INFO: one text per server addressed, in group and server order. */
  info(options) {
    const group = groupOf(options, 'info');
    return scoped((s) => {
      const arr = kl.new_charppp();
      s.add(kl.delete_charppp, arr);
      const seen = { n: 0 };
      s.add((cell, counted) => kl.kl_free_php_reply_pp(cell, counted.n), arr, seen);
      this.#check(kl.kl_info(this.#handle, arr, group, null), 'info');
      const out = [];
      for (;;) { // a null-terminated array of NUL-terminated texts
        const t = kl.charppp_value_raw(arr, null, seen.n);
        if (t === null) break;
        out.push(decode(t, false));
        seen.n++;
      }
      return out;
    });
  }

  /** CONFIG GET: { name: value } (options.server 'host:port' narrows it to one server). */
  configGet(parameter, options) {
    const p = text(parameter, 'parameter', 'configGet');
    const server = options?.server ? text(options.server, 'server', 'configGet') : '';
    const group = groupOf(options, 'configGet');
    const flat = this.#many('configGet', undefined, false, (arr, count, lens) =>
      kl.kl_config_get(this.#handle, p, byteLength(p), server, byteLength(server), arr, count, lens, group, null));
    const out = {};
    for (let i = 0; i + 1 < flat.length; i += 2) assign(out, flat[i], flat[i + 1]);
    return out;
  }

  configSet(parameter, value, options) {
    const p = text(parameter, 'parameter', 'configSet');
    const v = text(value, 'value', 'configSet');
    const server = options?.server ? text(options.server, 'server', 'configSet') : '';
    const group = groupOf(options, 'configSet');
    return this.#status(kl.kl_config_set(this.#handle, p, byteLength(p), v, byteLength(v), server,
      byteLength(server), group, null), 'configSet');
  }

  /**
   * SORT. Options: by, limit: { offset, count }, get (pattern or array of up to
   * four), desc, alpha, store (then the stored list's length is returned), route.
   */
  sort(key, options = {}) {
    const k = text(key, 'key', 'sort');
    const by = options.by ? text(options.by, 'by pattern', 'sort') : '';
    const gets = options.get === undefined ? [] : [].concat(options.get).map((g) => text(g, 'get pattern', 'sort'));
    if (gets.length > 4) throw new TypeError('keyloom sort: at most four get patterns');
    while (gets.length < 4) gets.push('');
    const offset = seconds(options.limit?.offset, 'limit.offset', 'sort');
    const limitCount = options.limit ? integer(options.limit.count ?? -1, 'limit.count', 'sort') : 0;
    const route = routeOf(options, 'sort');
    const store = options.store ? text(options.store, 'store key', 'sort') : '';
    return scoped((s) => {
      const count = s.count();
      const o = s.strings(count);
      const rc = kl.kl_sort_whole(this.#handle, o.arr, count, o.lens, k, byteLength(k), by, byteLength(by), offset,
        route, limitCount, options.desc ? 1 : 0, gets[0], gets[1], gets[2], gets[3], options.alpha ? 'ALPHA' : '', store);
      this.#check(rc, 'sort', key);
      if (store) return countOf(count);
      return elements(o.arr, o.lens, countOf(count), options.buffer);
    });
  }

  /**
   * Copies key from the first group holding it to the groups lacking it (after a
   * dirty write). Options: ttl (seconds), keepTtl (the source's), commit (also
   * delete where the source has none). Returns the number of groups repaired.
   */
  repair(key, options = {}) {
    const k = text(key, 'key', 'repair');
    let ttl = seconds(options.ttl, 'ttl', 'repair');
    if (options.keepTtl) ttl = kl.DURABLE_TTL(ttl);
    if (options.commit) ttl = kl.COMMIT(ttl);
    return this.#integer('repair', key, false, (cell) => kl.kl_dirty(this.#handle, k, byteLength(k), ttl, cell));
  }

  // ---- lists ------------------------------------------------------------------

  /** LPUSH one value or each of an array of values in turn; options.ttl. */
  lpush(key, values, options) {
    return this.#each(kl.kl_lpush, 'lpush', key, values, options);
  }

  rpush(key, values, options) {
    return this.#each(kl.kl_rpush, 'rpush', key, values, options);
  }

  #each(fn, command, key, values, options) {
    for (const v of Array.isArray(values) ? values : [values]) this.#store(fn, command, key, v, options);
    return true;
  }

  lrange(key, start = 0, stop = -1, options) {
    const k = text(key, 'key', 'lrange');
    const route = routeOf(options, 'lrange');
    const a = integer(start, 'start', 'lrange');
    const b = integer(stop, 'stop', 'lrange');
    return this.#many('lrange', key, options?.buffer, (arr, count, lens) =>
      kl.kl_lrange_whole(this.#handle, k, byteLength(k), a, b, arr, count, lens, route, byteLength(route)));
  }

  lindex(key, index, options) {
    const k = text(key, 'key', 'lindex');
    const route = routeOf(options, 'lindex');
    const i = integer(index, 'index', 'lindex');
    return this.#one('lindex', key, options?.buffer, (v, n) =>
      kl.kl_lindex_whole(this.#handle, k, byteLength(k), i, v, n, route, byteLength(route)));
  }

  lset(key, index, value, options) {
    const k = text(key, 'key', 'lset');
    const v = text(value, 'value', 'lset');
    const i = integer(index, 'index', 'lset');
    const ttl = seconds(options?.ttl, 'ttl', 'lset');
    return this.#status(kl.kl_lset(this.#handle, k, byteLength(k), i, v, byteLength(v), ttl), 'lset', key);
  }

  /** LREM count value: how many were removed. */
  lrem(key, count, value) {
    const k = text(key, 'key', 'lrem');
    const v = text(value, 'value', 'lrem');
    const c = integer(count, 'count', 'lrem');
    return this.#integer('lrem', key, true, (cell) => kl.kl_lrem(this.#handle, k, byteLength(k), c, v, byteLength(v), cell));
  }

  lpop(key, options) {
    return this.#pop(kl.kl_lpop_whole, 'lpop', key, options);
  }

  rpop(key, options) {
    return this.#pop(kl.kl_rpop_whole, 'rpop', key, options);
  }

  spop(key, options) {
    return this.#pop(kl.kl_spop_whole, 'spop', key, options);
  }

  #pop(fn, command, key, options) {
    const k = text(key, 'key', command);
    const route = routeOf(options, command);
    return this.#one(command, key, options?.buffer, (v, n) =>
      fn(this.#handle, k, byteLength(k), v, n, route, byteLength(route)));
  }

  llen(key) {
    const k = text(key, 'key', 'llen');
    return this.#integer('llen', key, true, (cell) => kl.kl_llen(this.#handle, k, byteLength(k), cell));
  }

  ltrim(key, start, stop) {
    const k = text(key, 'key', 'ltrim');
    return this.#status(kl.kl_ltrim(this.#handle, k, byteLength(k), integer(start, 'start', 'ltrim'),
      integer(stop, 'stop', 'ltrim')), 'ltrim', key);
  }

  // ---- sets -------------------------------------------------------------------

  /** SADD one member or each of an array of members; options.ttl. */
  sadd(key, members, options) {
    return this.#each(kl.kl_sadd, 'sadd', key, members, options);
  }

  /** SADD member with a value attached to it. */
  saddval(key, member, value, options) {
    const k = text(key, 'key', 'saddval');
    const m = text(member, 'member', 'saddval');
    const v = text(value, 'value', 'saddval');
    const ttl = seconds(options?.ttl, 'ttl', 'saddval');
    return this.#status(kl.kl_saddval(this.#handle, k, byteLength(k), m, byteLength(m), v, byteLength(v), ttl),
      'saddval', key);
  }

  /** SREM: for one member true/false, for an array how many were members. */
  srem(key, members) {
    return this.#removeEach(kl.kl_srem, 'srem', key, members);
  }

  #removeEach(fn, command, key, members) {
    const k = text(key, 'key', command);
    const one = (member) => {
      const m = text(member, 'member', command);
      return this.#status(fn(this.#handle, k, byteLength(k), m, byteLength(m)), command, key, [NOTFOUND]);
    };
    if (!Array.isArray(members)) return one(members);
    let n = 0;
    for (const m of members) if (one(m)) n++;
    return n;
  }

  /** SMEMBERS; with options.withValues, [{ member, value }]. */
  smembers(key, options) {
    const k = text(key, 'key', 'smembers');
    const route = routeOf(options, 'smembers');
    const withValues = Boolean(options?.withValues);
    const asBuffer = options?.buffer;
    return scoped((s) => {
      const count = s.count();
      const m = s.strings(count);
      const v = s.strings(count);
      const rc = kl.kl_smembers_whole(this.#handle, k, byteLength(k), m.arr, count, m.lens, route, byteLength(route),
        withValues ? kl.SET_WITH_VALUES : kl.SET_DEFAULT, v.arr, v.lens);
      if (resultOf(rc) === NOTFOUND) return [];
      this.#check(rc, 'smembers', key);
      const n = countOf(count);
      const members = elements(m.arr, m.lens, n, asBuffer);
      if (!withValues) return members;
      return members.map((member, i) => ({ member, value: element(v.arr, v.lens, i, asBuffer) }));
    });
  }

  sismember(key, member) {
    const k = text(key, 'key', 'sismember');
    const m = text(member, 'member', 'sismember');
    return this.#status(kl.kl_sismember(this.#handle, k, byteLength(k), m, byteLength(m)), 'sismember', key,
      [NOTFOUND, codes.KL_NO_SET_KEY]);
  }

  /** 'value' (a member with a value), 'empty' (without), 'not-member' or 'no-set'. */
  sismemberval(key, member) {
    const k = text(key, 'key', 'sismemberval');
    const m = text(member, 'member', 'sismemberval');
    const rc = kl.kl_sismemberval(this.#handle, k, byteLength(k), m, byteLength(m));
    switch (resultOf(rc)) {
      case codes.KL_SET_EMPTY_VALUE: return 'empty';
      case NOTFOUND: return 'not-member';
      case codes.KL_NO_SET_KEY: return 'no-set';
      default: this.#check(rc, 'sismemberval', key); return 'value';
    }
  }

  /** The value attached to a member, or null. */
  sval(key, member, options) {
    const k = text(key, 'key', 'sval');
    const m = text(member, 'member', 'sval');
    const route = routeOf(options, 'sval');
    return scoped((s) => {
      const o = s.value();
      const rc = kl.kl_sval_whole(this.#handle, k, byteLength(k), m, byteLength(m), o.v, o.n, route, byteLength(route));
      const r = resultOf(rc);
      if (r === NOTFOUND || r === codes.KL_SET_EMPTY_VALUE || r === codes.KL_NO_SET_KEY) return null;
      this.#check(rc, 'sval', key);
      return decode(kl.charpp_value_raw(o.v, o.n), options?.buffer);
    });
  }

  /** Members are CIDR networks: the value of the most specific one holding ip, or null. */
  svalfromip(key, ip, options) {
    const k = text(key, 'key', 'svalfromip');
    const a = text(ip, 'address', 'svalfromip');
    return scoped((s) => {
      const o = s.value();
      const rc = kl.kl_svalfromip(this.#handle, k, byteLength(k), a, byteLength(a), o.v, o.n);
      const r = resultOf(rc);
      if (r === NOTFOUND || r === codes.KL_NO_SUBNET || r === codes.KL_NO_SET_KEY) return null;
      this.#check(rc, 'svalfromip', key);
      return decode(kl.charpp_value_raw(o.v, o.n), options?.buffer);
    });
  }

  scard(key) {
    const k = text(key, 'key', 'scard');
    return this.#integer('scard', key, true, (cell) => kl.kl_scard(this.#handle, k, byteLength(k), cell));
  }

  /** SUNION across shards; options: route, bestEffort, buffer. */
  sunion(keys, options) {
    list(keys, 'keys', 'sunion');
    if (keys.length === 0) return [];
    const route = routeOf(options, 'sunion');
    const policy = options?.bestEffort ? kl.KL_BEST_EFFORT_ON_FAIL : kl.KL_NULL_ON_FAIL;
    return scoped((s) => {
      const input = s.texts(keys, 'key', 'sunion');
      const count = s.count();
      const o = s.strings(count);
      const rc = kl.kl_sunion_whole(this.#handle, input.arr, input.n, input.lens, o.arr, count, o.lens,
        route, byteLength(route), policy);
      const r = resultOf(rc);
      if (r === NOTFOUND) return [];
      if (!(options?.bestEffort && r === codes.KL_PARTIAL_RESULT)) this.#check(rc, 'sunion');
      return elements(o.arr, o.lens, countOf(count), options?.buffer);
    });
  }

  sunionstore(destination, keys, options) {
    list(keys, 'keys', 'sunionstore');
    const d = text(destination, 'destination', 'sunionstore');
    const ttl = seconds(options?.ttl, 'ttl', 'sunionstore');
    const policy = options?.bestEffort ? kl.KL_BEST_EFFORT_ON_FAIL : kl.KL_NULL_ON_FAIL;
    return scoped((s) => {
      const input = s.texts(keys, 'key', 'sunionstore');
      return this.#status(kl.kl_sunionstore(this.#handle, d, byteLength(d), input.arr, input.n, input.lens, policy, ttl),
        'sunionstore', destination);
    });
  }

  // ---- sorted sets ------------------------------------------------------------

  /**
   * ZADD key score member, or ZADD key [{ member, score, value? }, ...] in one call.
   * Entries with values attach them (as zaddval). options.ttl.
   */
  zadd(key, score, member, options) {
    const k = text(key, 'key', 'zadd');
    if (Array.isArray(score)) return this.#zaddMany(k, key, score, member);
    const ttl = seconds(options?.ttl, 'ttl', 'zadd');
    const m = text(member, 'member', 'zadd');
    return this.#status(kl.kl_zadd(this.#handle, k, byteLength(k), number(score, 'score', 'zadd'), m, byteLength(m), ttl),
      'zadd', key);
  }

  #zaddMany(k, key, entries, options) {
    if (entries.length === 0) return true;
    const ttl = seconds(options?.ttl, 'ttl', 'zadd');
    const withValues = entries.some((e) => e.value !== undefined);
    return scoped((s) => {
      const scores = s.numbers(entries.map((e) => e.score), 'score', 'zadd');
      const members = s.texts(entries.map((e) => e.member), 'member', 'zadd');
      let rc;
      if (withValues) {
        const values = s.texts(entries.map((e) => e.value ?? ''), 'value', 'zadd');
        rc = kl.kl_zmaddval(this.#handle, k, byteLength(k), scores, members.arr, members.n, members.lens,
          values.arr, values.lens, ttl);
      } else {
        rc = kl.kl_zmadd(this.#handle, k, byteLength(k), scores, members.arr, members.n, members.lens, ttl);
      }
      return this.#status(rc, 'zadd', key);
    });
  }

  /** ZADD score member with a value attached to the member. */
  zaddval(key, score, member, value, options) {
    const k = text(key, 'key', 'zaddval');
    const m = text(member, 'member', 'zaddval');
    const v = text(value, 'value', 'zaddval');
    const ttl = seconds(options?.ttl, 'ttl', 'zaddval');
    return this.#status(kl.kl_zaddval(this.#handle, k, byteLength(k), number(score, 'score', 'zaddval'), m, byteLength(m),
      v, byteLength(v), ttl), 'zaddval', key);
  }

  /** Raises member's score to score only when higher, and then sets its value: false when it was not higher. */
  zaddvalmax(key, score, member, value, options) {
    const k = text(key, 'key', 'zaddvalmax');
    const m = text(member, 'member', 'zaddvalmax');
    const v = text(value, 'value', 'zaddvalmax');
    const ttl = seconds(options?.ttl, 'ttl', 'zaddvalmax');
    return this.#status(kl.kl_zaddvalmax(this.#handle, k, byteLength(k), m, byteLength(m), v, byteLength(v),
      number(score, 'score', 'zaddvalmax'), ttl), 'zaddvalmax', key, [codes.KL_ALREADY_EXISTS]);
  }

  /** Keeps only the n highest-scored members (n < 0: the |n| lowest). */
  zaddmaxinc(key, n, options) {
    const k = text(key, 'key', 'zaddmaxinc');
    const ttl = seconds(options?.ttl, 'ttl', 'zaddmaxinc');
    return this.#status(kl.kl_zaddmaxinc(this.#handle, k, byteLength(k), integer(n, 'n', 'zaddmaxinc'), ttl),
      'zaddmaxinc', key);
  }

  /** Adds member after removing members scored within distance of score: the first removed, or null. */
  zadddis(key, score, member, distance, options) {
    const k = text(key, 'key', 'zadddis');
    const m = text(member, 'member', 'zadddis');
    const ttl = seconds(options?.ttl, 'ttl', 'zadddis');
    const sc = number(score, 'score', 'zadddis');
    const d = number(distance, 'distance', 'zadddis');
    return scoped((s) => {
      const o = s.value();
      this.#check(kl.kl_zadddis(this.#handle, k, byteLength(k), sc, m, byteLength(m), d, o.v, ttl), 'zadddis', key);
      return decode(kl.charpp_value_raw(o.v, o.n), options?.buffer);
    });
  }

  /** ZREM: for one member true/false, for an array how many were present. */
  zrem(key, members) {
    if (!Array.isArray(members)) return this.#removeEach(kl.kl_zrem, 'zrem', key, members);
    if (members.length === 0) return 0;
    const k = text(key, 'key', 'zrem');
    return scoped((s) => {
      const input = s.texts(members, 'member', 'zrem');
      const removed = s.int();
      const rc = kl.kl_zmrem(this.#handle, k, byteLength(k), input.arr, input.n, input.lens, removed);
      if (resultOf(rc) === NOTFOUND) return 0;
      this.#check(rc, 'zrem', key);
      return kl.intp_value(removed);
    });
  }

  /**
   * ZRANGE by rank. Options: withScores, withValues, reverse, route, buffer.
   * Plain: an array of members; with scores or values: [{ member, score?, value? }].
   */
  zrange(key, start = 0, stop = -1, options) {
    const a = integer(start, 'start', 'zrange');
    const b = integer(stop, 'stop', 'zrange');
    return this.#zrange('zrange', key, options, (k, kn, out, route, rn, flags) =>
      kl.kl_zrange_whole(this.#handle, k, kn, a, b, out.m.arr, out.count, out.m.lens, route, rn, flags,
        out.scores, out.v.arr, out.v.lens));
  }

  /** ZRANGEBYSCORE min max (reverse keeps min and max as they are); options as zrange. */
  zrangebyscore(key, min = -Infinity, max = Infinity, options) {
    const lo = number(min, 'min', 'zrangebyscore');
    const hi = number(max, 'max', 'zrangebyscore');
    return this.#zrange('zrangebyscore', key, options, (k, kn, out, route, rn, flags) =>
      kl.kl_zrangebyscore_whole(this.#handle, k, kn, lo, hi, out.m.arr, out.count, out.m.lens, route, rn, flags,
        out.scores, out.v.arr, out.v.lens));
  }

  #zrange(command, key, options, call) {
    const k = text(key, 'key', command);
    const route = routeOf(options, command);
    const withScores = Boolean(options?.withScores);
    const withValues = Boolean(options?.withValues);
    const flags = (withScores ? kl.ZSET_WITH_SCORES : 0) | (withValues ? kl.ZSET_WITH_VALUES : 0) |
      (options?.reverse ? kl.ZSET_REVERSE : 0);
    const asBuffer = options?.buffer;
    return scoped((s) => {
      const count = s.count();
      const out = { count, m: s.strings(count), scores: s.doubles(), v: s.strings(count) };
      const rc = call(k, byteLength(k), out, route, byteLength(route), flags);
      if (resultOf(rc) === NOTFOUND) return [];
      this.#check(rc, command, key);
      const n = countOf(count);
      const members = elements(out.m.arr, out.m.lens, n, asBuffer);
      if (!withScores && !withValues) return members;
      return members.map((member, i) => {
        const entry = { member };
        if (withScores) entry.score = kl.doublepp_index_value(out.scores, i);
        if (withValues) entry.value = element(out.v.arr, out.v.lens, i, asBuffer);
        return entry;
      });
    });
  }

  /** ZSCORE: the score or null; with options.withValue, { score, value } or null. */
  zscore(key, member, options) {
    const k = text(key, 'key', 'zscore');
    const m = text(member, 'member', 'zscore');
    return scoped((s) => {
      const score = s.double();
      const o = s.value();
      const rc = kl.kl_zscore(this.#handle, k, byteLength(k), m, byteLength(m), score, o.v, o.n);
      if (resultOf(rc) === NOTFOUND) return null;
      this.#check(rc, 'zscore', key);
      const sc = kl.doublep_value(score);
      if (!options?.withValue) return sc;
      return { score: sc, value: decode(kl.charpp_value_raw(o.v, o.n), options.buffer) };
    });
  }

  /** ZRANK (ZREVRANK with options.reverse): the rank or null. */
  zrank(key, member, options) {
    const k = text(key, 'key', 'zrank');
    const m = text(member, 'member', 'zrank');
    return scoped((s) => {
      const rank = s.uint();
      const o = s.value();
      const rc = kl.kl_zrank(this.#handle, k, byteLength(k), m, byteLength(m), rank,
        options?.reverse ? kl.ZSET_REVERSE : kl.ZSET_DEFAULT, o.v, o.n);
      if (resultOf(rc) === NOTFOUND) return null;
      this.#check(rc, 'zrank', key);
      return kl.uintp_value(rank) >>> 0;
    });
  }

  zcard(key) {
    const k = text(key, 'key', 'zcard');
    return this.#integer('zcard', key, true, (cell) => kl.kl_zcard(this.#handle, k, byteLength(k), cell));
  }

  zcount(key, min = -Infinity, max = Infinity) {
    const k = text(key, 'key', 'zcount');
    const lo = number(min, 'min', 'zcount');
    const hi = number(max, 'max', 'zcount');
    return this.#integer('zcount', key, true, (cell) => kl.kl_zcount(this.#handle, k, byteLength(k), lo, hi, cell));
  }

  /** ZINCRBY key increment member: the new score. */
  zincrby(key, increment, member, options) {
    const k = text(key, 'key', 'zincrby');
    const m = text(member, 'member', 'zincrby');
    const by = number(increment, 'increment', 'zincrby');
    const ttl = seconds(options?.ttl, 'ttl', 'zincrby');
    return scoped((s) => {
      const score = s.double();
      this.#check(kl.kl_zincrby(this.#handle, k, byteLength(k), m, byteLength(m), by, score, ttl), 'zincrby', key);
      return kl.doublep_value(score);
    });
  }

  zremrangebyscore(key, min, max) {
    const k = text(key, 'key', 'zremrangebyscore');
    const lo = number(min, 'min', 'zremrangebyscore');
    const hi = number(max, 'max', 'zremrangebyscore');
    return this.#integer('zremrangebyscore', key, true, (cell) =>
      kl.kl_zremrangebyscore(this.#handle, k, byteLength(k), lo, hi, cell));
  }

  zremrangebyrank(key, start, stop) {
    const k = text(key, 'key', 'zremrangebyrank');
    const a = integer(start, 'start', 'zremrangebyrank');
    const b = integer(stop, 'stop', 'zremrangebyrank');
    return this.#integer('zremrangebyrank', key, true, (cell) =>
      kl.kl_zremrangebyrank(this.#handle, k, byteLength(k), a, b, cell));
  }

  // ---- hashes -----------------------------------------------------------------

  hset(key, field, value, options) {
    return this.#hstore(kl.kl_hset, 'hset', key, field, value, options);
  }

  /** HSETNX: true when set, false when the field existed. */
  hsetnx(key, field, value, options) {
    return this.#hstore(kl.kl_hsetnx, 'hsetnx', key, field, value, options, [codes.KL_ALREADY_EXISTS]);
  }

  #hstore(fn, command, key, field, value, options, soft) {
    const k = text(key, 'key', command);
    const f = text(field, 'field', command);
    const v = text(value, 'value', command);
    const ttl = seconds(options?.ttl, 'ttl', command);
    return this.#status(fn(this.#handle, k, byteLength(k), f, byteLength(f), v, byteLength(v), ttl), command, key, soft);
  }

  hget(key, field, options) {
    const k = text(key, 'key', 'hget');
    const f = text(field, 'field', 'hget');
    const route = routeOf(options, 'hget');
    return this.#one('hget', key, options?.buffer, (v, n) =>
      kl.kl_hget_whole(this.#handle, k, byteLength(k), f, byteLength(f), v, n, route, byteLength(route)));
  }

  /** HSET of many fields: an object, a Map or [field, value] pairs; options.ttl. */
  hmset(key, fields, options) {
    const k = text(key, 'key', 'hmset');
    const all = pairs(fields, 'fields', 'hmset');
    if (all.length === 0) return true;
    const ttl = seconds(options?.ttl, 'ttl', 'hmset');
    return scoped((s) => {
      const f = s.texts(all.map((p) => p[0]), 'field', 'hmset');
      const v = s.texts(all.map((p) => p[1]), 'value', 'hmset');
      return this.#status(kl.kl_hmset(this.#handle, k, byteLength(k), f.arr, f.n, f.lens, v.arr, v.lens, ttl),
        'hmset', key);
    });
  }

  /** HMGET: one value (or null) per field. */
  hmget(key, fields, options) {
    list(fields, 'fields', 'hmget');
    if (fields.length === 0) return [];
    const k = text(key, 'key', 'hmget');
    const route = routeOf(options, 'hmget');
    return scoped((s) => {
      const f = s.texts(fields, 'field', 'hmget');
      const count = s.count();
      const o = s.strings(count);
      const rc = kl.kl_hmget_whole(this.#handle, k, byteLength(k), f.arr, f.n, f.lens, o.arr, count, o.lens,
        route, byteLength(route));
      if (resultOf(rc) === NOTFOUND) return fields.map(() => null);
      this.#check(rc, 'hmget', key);
      const out = elements(o.arr, o.lens, countOf(count), options?.buffer);
      while (out.length < fields.length) out.push(null);
      return out;
    });
  }

  /** The same fields over several keys: one array of values per key. */
  mhmget(keys, fields, options) {
    list(keys, 'keys', 'mhmget');
    list(fields, 'fields', 'mhmget');
    if (keys.length === 0) return [];
    if (fields.length === 0) return keys.map(() => []);
    const route = routeOf(options, 'mhmget');
    return scoped((s) => {
      const k = s.texts(keys, 'key', 'mhmget');
      const f = s.texts(fields, 'field', 'mhmget');
      const count = s.count();
      const o = s.strings(count);
      const rc = kl.kl_mhmget_whole(this.#handle, k.arr, k.n, k.lens, f.arr, f.n, f.lens, o.arr, count, o.lens,
        route, byteLength(route));
      this.#check(rc, 'mhmget');
      const flat = elements(o.arr, o.lens, countOf(count), options?.buffer);
      return keys.map((_, i) => fields.map((__, j) => flat[i * fields.length + j] ?? null));
    });
  }

  /** HGETALL as an object ({} for a missing key); options.buffer gives Buffer values. */
  hgetall(key, options) {
    const k = text(key, 'key', 'hgetall');
    return scoped((s) => {
      const count = s.count();
      const f = s.strings(count);
      const v = s.strings(count);
      const rc = kl.kl_hgetall(this.#handle, k, byteLength(k), count, f.arr, f.lens, v.arr, v.lens);
      const out = {};
      if (resultOf(rc) === NOTFOUND) return out;
      this.#check(rc, 'hgetall', key);
      const n = countOf(count);
      for (let i = 0; i < n; i++) assign(out, element(f.arr, f.lens, i, false), element(v.arr, v.lens, i, options?.buffer));
      return out;
    });
  }

  /** HDEL: for one field true/false, for an array how many existed. */
  hdel(key, fields) {
    const k = text(key, 'key', 'hdel');
    if (!Array.isArray(fields)) {
      const f = text(fields, 'field', 'hdel');
      return this.#status(kl.kl_hdel(this.#handle, k, byteLength(k), f, byteLength(f)), 'hdel', key, [NOTFOUND]);
    }
    if (fields.length === 0) return 0;
    return scoped((s) => {
      const f = s.texts(fields, 'field', 'hdel');
      const deleted = s.int();
      const rc = kl.kl_hmdel(this.#handle, k, byteLength(k), f.arr, f.n, f.lens, deleted);
      if (resultOf(rc) === NOTFOUND) return 0;
      this.#check(rc, 'hdel', key);
      return kl.intp_value(deleted);
    });
  }

  hexists(key, field) {
    const k = text(key, 'key', 'hexists');
    const f = text(field, 'field', 'hexists');
    return this.#status(kl.kl_hexists(this.#handle, k, byteLength(k), f, byteLength(f)), 'hexists', key, [NOTFOUND]);
  }

  hlen(key) {
    const k = text(key, 'key', 'hlen');
    return this.#integer('hlen', key, false, (cell) => kl.kl_hlen(this.#handle, k, byteLength(k), cell));
  }

  /** HINCRBY key field by: the new value (32-bit); options.ttl. */
  hincrby(key, field, by, options) {
    const k = text(key, 'key', 'hincrby');
    const f = text(field, 'field', 'hincrby');
    const step = integer(by, 'increment', 'hincrby');
    const ttl = seconds(options?.ttl, 'ttl', 'hincrby');
    return scoped((s) => {
      const cell = s.int();
      this.#check(kl.kl_hincrby(this.#handle, k, byteLength(k), f, byteLength(f), step, cell, ttl), 'hincrby', key);
      return kl.intp_value(cell);
    });
  }

  // ---- dictionaries -------------------------------------------------------------

  /** Adds a word with its value; options: weight (heavier completes first), ttl. */
  dadd(key, word, value, options) {
    const k = text(key, 'key', 'dadd');
    const w = text(word, 'word', 'dadd');
    const v = text(value, 'value', 'dadd');
    const weight = seconds(options?.weight ?? 1, 'weight', 'dadd');
    const ttl = seconds(options?.ttl, 'ttl', 'dadd');
    return this.#status(kl.kl_dadd(this.#handle, k, byteLength(k), w, byteLength(w), v, byteLength(v), weight, ttl),
      'dadd', key);
  }

  /** Adds many words ({ word: value }, a Map or pairs), all with options.weight: how many were new. */
  dmadd(key, entries, options) {
    const k = text(key, 'key', 'dmadd');
    const all = pairs(entries, 'entries', 'dmadd');
    if (all.length === 0) return 0;
    const weight = seconds(options?.weight ?? 1, 'weight', 'dmadd');
    const ttl = seconds(options?.ttl, 'ttl', 'dmadd');
    return scoped((s) => {
      const w = s.texts(all.map((p) => p[0]), 'word', 'dmadd');
      const v = s.texts(all.map((p) => p[1]), 'value', 'dmadd');
      const added = s.int();
      this.#check(kl.kl_dmadd(this.#handle, k, byteLength(k), w.arr, w.n, w.lens, v.arr, v.lens, weight, added, ttl),
        'dmadd', key);
      return kl.intp_value(added);
    });
  }

  dget(key, word, options) {
    const k = text(key, 'key', 'dget');
    const w = text(word, 'word', 'dget');
    const route = routeOf(options, 'dget');
    return this.#one('dget', key, options?.buffer, (v, n) =>
      kl.kl_dget_whole(this.#handle, k, byteLength(k), w, byteLength(w), v, n, route, byteLength(route)));
  }

  /** Removes a word: true when it was there. */
  drem(key, word) {
    const k = text(key, 'key', 'drem');
    const w = text(word, 'word', 'drem');
    return this.#status(kl.kl_drem(this.#handle, k, byteLength(k), w, byteLength(w)), 'drem', key, [NOTFOUND]);
  }

  /** Completion: the words starting with prefix, heaviest first, as [{ word, value }]. */
  dclose(key, prefix, options) {
    const k = text(key, 'key', 'dclose');
    const p = text(prefix, 'prefix', 'dclose');
    const route = routeOf(options, 'dclose');
    return this.#words('dclose', key, options, (count, w, v) =>
      kl.kl_dclose_whole(this.#handle, k, byteLength(k), p, byteLength(p), count, w.arr, w.lens, v.arr, v.lens,
        route, byteLength(route)));
  }

  /** Every word of the dictionary, heaviest first, as [{ word, value }]. */
  dgetall(key, options) {
    const k = text(key, 'key', 'dgetall');
    const route = routeOf(options, 'dgetall');
    return this.#words('dgetall', key, options, (count, w, v) =>
      kl.kl_dgetall_whole(this.#handle, k, byteLength(k), count, w.arr, w.lens, v.arr, v.lens, route, byteLength(route)));
  }

  #words(command, key, options, call) {
    return scoped((s) => {
      const count = s.count();
      const w = s.strings(count);
      const v = s.strings(count);
      const rc = call(count, w, v);
      if (resultOf(rc) === NOTFOUND) return [];
      this.#check(rc, command, key);
      const n = countOf(count);
      const out = new Array(n);
      for (let i = 0; i < n; i++) {
        out[i] = { word: element(w.arr, w.lens, i, false), value: element(v.arr, v.lens, i, options?.buffer) };
      }
      return out;
    });
  }
}

if (typeof Symbol.dispose === 'symbol') {
  KeyloomClient.prototype[Symbol.dispose] = function dispose() { this.close(); };
}

function routeOf(options, command) {
  const r = options?.route;
  return r === undefined || r === null ? '' : text(r, 'route', command);
}

function groupOf(options, command) {
  return options?.group ? text(options.group, 'group', command) : '';
}

function assign(object, name, value) {
  if (name === '__proto__') {
    Object.defineProperty(object, name, { value, enumerable: true, writable: true, configurable: true });
  } else {
    object[name] = value;
  }
}

/**
 * Makes a client. Options: servers (['host:port', ...] or [{ host, port }], the
 * group "default"; KEYLOOM_SERVERS or 127.0.0.1:6379 when neither servers nor
 * groups are given), groups ({ name: [...] }, each a full copy of the data),
 * hash ('default', 'md5', 'crc', 'fnv1_64', 'fnv1a_64', 'fnv1_32', 'fnv1a_32',
 * 'hsieh', 'murmur'), distribution ('consistent', 'ketama', 'modula'),
 * connectTimeoutMs, reconnectMs, clientVersion ('auto', 1, 2), password (and
 * username for an ACL user), db,
 * onDirty({ command, key, code }) for writes that reached only some groups.
 */
function createClient(options = {}) {
  if (typeof options === 'string' || Array.isArray(options)) options = { servers: options };
  const servers = options.servers !== undefined ? serverList(options.servers)
    : options.groups === undefined ? defaultServers() : [];
  const groups = options.groups ?? {};
  const hash = choose(HASHES, options.hash ?? 'default', 'hash');
  const distribution = choose(DISTRIBUTIONS, options.distribution ?? 'consistent', 'distribution');
  const flags = options.shared ? kl.KL_FLAG_SHARED : kl.KL_FLAG_NONE;
  const members = [
    ...servers.map((s) => ['', s]),
    ...Object.entries(groups).flatMap(([name, list]) => serverList(list).map((s) => [name, s])),
  ];
  if (members.length === 0) throw new TypeError('keyloom createClient: no servers given');
  const addresses = members.map(([group, s]) => [group, ...parseServer(s)]);
  for (const [, host, port] of addresses) {
    if (!Number.isInteger(port) || port <= 0 || port > 65535) {
      throw new TypeError(`keyloom createClient: bad port for server ${host}`);
    }
  }

  const h = kl.kl_client_create(hash, distribution, kl.new_mm(), flags);
  if (h === null) throw new KeyloomError(codes.KL_MEMORY_FAILURE, { command: 'createClient' });
  const fail = (rc, command) => {
    const r = resultOf(rc);
    if (r === 0) return;
    kl.kl_client_destroy(h);
    throw new KeyloomError(r, { command });
  };
  if (options.connectTimeoutMs !== undefined) {
    fail(kl.kl_client_connection_timeout(h, seconds(options.connectTimeoutMs, 'connectTimeoutMs', 'createClient')),
      'createClient');
  }
  if (options.reconnectMs !== undefined) {
    fail(kl.kl_client_reconnect_attempt_timeout(h, seconds(options.reconnectMs, 'reconnectMs', 'createClient')),
      'createClient');
  }
  if (options.clientVersion !== undefined) {
    fail(kl.kl_set_client_version(h, choose(VERSIONS, options.clientVersion, 'clientVersion')), 'createClient');
  }
  for (const [group, host, port] of addresses) fail(kl.kl_server_add(h, host, port, group), 'createClient');
  const client = new KeyloomClient(h, options.onDirty);
  try {
    if (options.password !== undefined) {
      if (options.username !== undefined) client.auth(options.username, options.password);
      else client.auth(options.password);
    }
    if (options.db !== undefined && options.db !== 0) client.select(options.db);
  } catch (err) {
    client.close();
    throw err;
  }
  return client;
}

module.exports = {
  createClient,
  KeyloomError,
  KeyloomClient,
  codes,
  /** The library's version, "major.minor.patch". */
  get version() {
    return kl.kl_get_version();
  },
};
