'use strict';
// Commands on keys of any type: DEL, EXISTS, EXPIRE/PERSIST/TTL, TYPE,
// RENAME, KEYS, RANDOMKEY, MOVE, SORT, and the repair of a dirty key.
const { kl, codes, text, byteLength, seconds, integer, textList } = require('../support.js');
const { $handle, $status, $answered, $sharded, NOTFOUND, request, requestAnswer } = require('../core.js');
const { answeredFunction } = require('../native.js');
const {
  command, methods, subcommand, KEY, textOf, integerOf, secondsOf, done, value, wide, routeOf, NULL_STRING,
} = require('../table.js');

module.exports = methods({
  /** DEL of one key or an array of keys: how many existed. */
  * del(keys) {
    if (!Array.isArray(keys)) {
      const k = text(keys, 'key', 'del');
      return this[$status](yield request(kl.kl_del, this[$handle], k, byteLength(k)), 'del', keys, [NOTFOUND]) ? 1 : 0;
    }
    if (keys.length === 0) return 0;
    const deleted = yield requestAnswer(answeredFunction('kl_mdel'), this[$handle], textList(keys, 'key', 'del'), false);
    return this[$answered](deleted, 'del') ?? 0;
  },

  exists: command('kl_exists', [KEY], done(NOTFOUND)),
  /** EXPIRE: true when the key exists; 0 seconds removes the TTL. */
  expire: command('kl_set_ttl', [KEY, secondsOf('ttl')], done(NOTFOUND)),

  * persist(key) {
    return yield* subcommand(this, 'expire', key, 0);
  },

  /** Seconds to live, -1 for a key without a TTL, null for a missing key. */
  ttl: command('kl_get_ttl_decimal', [KEY], wide({ missing: null })),

  /** 'string', 'list', 'set', 'zset', 'hash', or 'none' for a missing key. */
  * type(key) {
    const k = text(key, 'key', 'type');
    const t = yield requestAnswer(answeredFunction('kl_type'), this[$handle], k, byteLength(k), false);
    return this[$answered](t, 'type', key) ?? 'none';
  },

  rename: command('kl_rename', [KEY, textOf('new key')], done()),
  /** RENAMENX: true when renamed, false when newKey already existed. */
  renamenx: command('kl_renamenx', [KEY, textOf('new key')], done(codes.KL_ALREADY_EXISTS)),

  /** The keys matching a glob pattern on every server (options.group: one group only). */
  * keys(pattern = '*', options) {
    const p = text(pattern, 'pattern', 'keys');
    const group = options?.group ? text(options.group, 'group', 'keys') : NULL_STRING;
    const found = yield requestAnswer(answeredFunction('keys'), this[$handle], p, byteLength(p), group, null, options?.buffer === true);
    return this[$answered](found, 'keys') ?? [];
  },

  randomkey: command('kl_randomkey', [], value()),

  /** MOVE to database db: true when moved. */
  move: command('kl_move', [KEY, integerOf('database')], done(NOTFOUND, codes.KL_ALREADY_EXISTS)),

  /**
   * SORT. Options: by, limit: { offset, count }, get (pattern or array of up to
   * four), desc, alpha, store (then the stored list's length is returned), route.
   */
  * sort(key, options = {}) {
    const k = text(key, 'key', 'sort');
    const by = options.by ? text(options.by, 'by pattern', 'sort') : '';
    const gets = options.get === undefined ? [] : [].concat(options.get).map((g) => text(g, 'get pattern', 'sort'));
    if (gets.length > 4) throw new TypeError('keyloom sort: at most four get patterns');
    while (gets.length < 4) gets.push('');
    const offset = seconds(options.limit?.offset, 'limit.offset', 'sort');
    const limitCount = options.limit ? integer(options.limit.count ?? -1, 'limit.count', 'sort') : 0;
    const route = routeOf(options, 'sort');
    const store = options.store ? text(options.store, 'store key', 'sort') : '';
    const namesOtherKeys = (by !== '' && by !== 'nosort') || gets.some((g) => g !== '' && g !== '#') || store !== '';
    if (this[$sharded] && route === '' && namesOtherKeys) {
      // SORT runs on one server: the keys its patterns and STORE name would be
      // looked for there, while the client spreads them over several.
      throw new TypeError('keyloom sort: on a client whose keys are spread over several servers, BY and GET ' +
        "patterns and STORE name keys that may live elsewhere: write those keys with { route: '<the sorted key>' } " +
        'and give sort the same route, or sort without them');
    }
    const answer = yield requestAnswer(answeredFunction('kl_sort_whole'), this[$handle], k, byteLength(k), by, byteLength(by),
      offset, route, limitCount, options.desc ? 1 : 0, gets[0], gets[1], gets[2], gets[3], options.alpha ? 'ALPHA' : '',
      store, options.buffer === true);
    const [values, count] = this[$answered](answer, 'sort', key) ?? [[], 0];
    return store ? count : values;
  },

  /**
   * Copies key from the first group holding it to the groups lacking it (after a
   * dirty write). Options: ttl (seconds), keepTtl (the source's), commit (also
   * delete where the source has none). Returns the number of groups repaired.
   */
  * repair(key, options = {}) {
    const k = text(key, 'key', 'repair');
    let ttl = seconds(options.ttl, 'ttl', 'repair');
    if (options.keepTtl) ttl = kl.DURABLE_TTL(ttl);
    if (options.commit) ttl = kl.COMMIT(ttl);
    return this[$answered](yield requestAnswer(answeredFunction('kl_dirty'), this[$handle], k, byteLength(k), ttl, false), 'repair', key) ?? 0;
  },
});
