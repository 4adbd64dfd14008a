'use strict';
// createClient's options: servers and groups, hashing, time-outs, credentials, TLS.
const { kl, codes, KeyloomError, seconds } = require('./support.js');
const { KeyloomClient, resultOf } = require('./core.js');
const { own } = require('./native.js');

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

function choose(table, name, what) {
  if (typeof name === 'number') return name;
  const key = String(name).toLowerCase().replace(/-/g, '_');
  if (!(key in table)) {
    throw new TypeError(`keyloom createClient: unknown ${what} '${name}' (one of ${Object.keys(table).join(', ')})`);
  }
  return table[key];
}

// A server string never appears in an error as given: it may hold a password.
const SERVER_FORMS = "'host:port', '[v6]:port', 'host', { host, port } or a redis[s]://[user:password@]host:port[/db] URL";

/** A redis:// or rediss:// URL to { host, port, scheme, username?, password?, db? }. */
function parseUrl(text) {
  let url;
  try {
    url = new URL(text);
  } catch {
    throw new TypeError(`keyloom createClient: a server that is not a valid URL (a server is ${SERVER_FORMS})`);
  }
  if (url.protocol !== 'redis:' && url.protocol !== 'rediss:') {
    throw new TypeError(`keyloom createClient: unknown URL scheme '${url.protocol}' (a server is ${SERVER_FORMS})`);
  }
  const out = {
    host: url.hostname.replace(/^\[(.*)\]$/, '$1'),
    port: url.port ? Number(url.port) : 6379,
    scheme: url.protocol.slice(0, -1),
  };
  if (url.username) out.username = decodeURIComponent(url.username);
  if (url.password) out.password = decodeURIComponent(url.password);
  const path = url.pathname.replace(/^\//, '');
  if (path !== '') {
    if (!/^\d+$/.test(path)) throw new TypeError('keyloom createClient: the path of a redis:// URL is a database number');
    out.db = Number(path);
  }
  if (url.search || url.hash) throw new TypeError('keyloom createClient: a redis:// URL takes no query or fragment');
  return out;
}

// A server's weight: a whole number from 1 to 2^32 - 1.
function weightOf(weight, host) {
  if (typeof weight !== 'number' || !Number.isInteger(weight)) {
    throw new TypeError(`keyloom createClient: the weight of server ${host} is a whole number`);
  }
  if (weight < 1 || weight > 0xffffffff) {
    throw new RangeError(`keyloom createClient: the weight of server ${host} is from 1 to 4294967295`);
  }
  return weight;
}

// hashTag: true for '{}', or two characters, the opening and the closing one.
function hashTagOf(value) {
  if (value === undefined || value === false) return '';
  if (value === true) return '{}';
  if (typeof value === 'string' && value.length === 2 && Buffer.byteLength(value) === 2 && !value.includes('\0')) {
    return value;
  }
  throw new TypeError("keyloom createClient: hashTag is true (for '{}') or two ASCII characters, opening and closing");
}

/** A server as { host, port } plus what a URL carries (username, password, db). */
function parseServer(server) {
  if (server && typeof server === 'object') {
    if (typeof server.host !== 'string') throw new TypeError('keyloom createClient: a server object needs a host');
    const out = { host: server.host, port: server.port === undefined ? 6379 : Number(server.port) };
    if (server.weight !== undefined) out.weight = weightOf(server.weight, server.host);
    return out;
  }
  if (typeof server !== 'string' || server === '') {
    throw new TypeError(`keyloom createClient: a server is ${SERVER_FORMS}, not ${typeof server === 'string' ? 'an empty string' : typeof server}`);
  }
  if (server.includes('://')) return parseUrl(server);
  if (server.includes('@') || server.includes('/')) {
    throw new TypeError(`keyloom createClient: a server with '@' or '/' must be a redis:// URL (a server is ${SERVER_FORMS})`);
  }
  const v6 = /^\[([^\]]+)\](?::(\d+))?$/.exec(server);
  if (v6) return { host: v6[1], port: v6[2] ? Number(v6[2]) : 6379 };
  const i = server.lastIndexOf(':');
  if (i < 0) return { host: server, port: 6379 };
  return { host: server.slice(0, i), port: Number(server.slice(i + 1)) };
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

/**
 * Makes a client. Options: servers (['host:port', ...] or [{ host, port }], the
 * group "default"; KEYLOOM_SERVERS or 127.0.0.1:6379 when neither servers nor
 * groups are given), groups ({ name: [...] }, each a full copy of the data),
 * hash ('default', 'md5', 'crc', 'fnv1_64', 'fnv1a_64', 'fnv1_32', 'fnv1a_32',
 * 'hsieh', 'murmur'), distribution ('consistent', 'ketama', 'modula'),
 * connectTimeoutMs, reconnectMs, maxReplyBytes (the most one reply may take,
 * default 512 MiB: a larger one fails its command with KL_MEMORY_FAILURE),
 * clientVersion ('auto', 1, 2), password (and
 * username for an ACL user), db,
 * onDirty({ command, key, code }) for writes that reached only some groups.
 */
const OPTIONS = new Set([
  'servers', 'groups', 'host', 'port', 'url', 'server', 'hash', 'distribution', 'shared', 'connectTimeoutMs',
  'reconnectMs', 'maxReplyBytes', 'clientVersion', 'password', 'username', 'db', 'onDirty', 'tls', 'hashTag',
]);
// Options of other clients that mean something else here, with what to write instead.
const INSTEAD = {
  keyPrefix: 'keyPrefix is not supported: put the prefix in your keys, or give each application its own db',
  socket: "socket is not an option: write { host, port } or servers: ['host:port']",
  database: 'database is not an option: write db',
  connectTimeout: 'connectTimeout is not an option: write connectTimeoutMs',
};

const TLS_OPTIONS = ['ca', 'cert', 'key', 'servername', 'rejectUnauthorized'];

// A PEM text given as a string or Buffer (ca: also an array of them).
function pemText(value, name, many = false) {
  if (value === undefined) return '';
  if (many && Array.isArray(value)) return value.map((v) => pemText(v, name)).join('\n');
  if (typeof value === 'string') return value;
  if (Buffer.isBuffer(value)) return value.toString('latin1');
  throw new TypeError(`keyloom createClient: tls.${name} is a PEM string or Buffer${many ? ' (or an array of them)' : ''}`);
}

/**
 * The TLS settings of the tls option and the servers' URL schemes, or null
 * for none. TLS is for every server of a client or for none.
 */
function tlsSettings(options, parsed) {
  const schemes = new Set(parsed.map((p) => p.scheme).filter(Boolean));
  if (schemes.size > 1) {
    throw new TypeError('keyloom createClient: rediss:// and redis:// servers in one client; TLS is for every server or none');
  }
  const { tls } = options;
  if (schemes.has('redis') && tls !== undefined && tls !== false) {
    throw new TypeError('keyloom createClient: a redis:// server with the tls option; write rediss:// for TLS');
  }
  if ((tls === undefined || tls === false) && !schemes.has('rediss')) return null;
  if (tls !== undefined && tls !== true && tls !== false && (tls === null || typeof tls !== 'object' || Array.isArray(tls))) {
    throw new TypeError('keyloom createClient: tls is true or an object { ca, cert, key, servername, rejectUnauthorized }');
  }
  const given = typeof tls === 'object' ? tls : {};
  for (const name of Object.keys(given)) {
    if (!TLS_OPTIONS.includes(name)) {
      throw new TypeError(`keyloom createClient: unknown tls option '${name}' (known: ${TLS_OPTIONS.join(', ')})`);
    }
  }
  if (given.servername !== undefined && (typeof given.servername !== 'string' || given.servername === '')) {
    throw new TypeError('keyloom createClient: tls.servername is a non-empty string');
  }
  if (given.rejectUnauthorized !== undefined && typeof given.rejectUnauthorized !== 'boolean') {
    throw new TypeError('keyloom createClient: tls.rejectUnauthorized is true or false');
  }
  return {
    ca: pemText(given.ca, 'ca', true),
    cert: pemText(given.cert, 'cert'),
    key: pemText(given.key, 'key'),
    servername: given.servername ?? '',
    verify: given.rejectUnauthorized !== false,
  };
}

function checkOptions(options, extra) {
  for (const name of Object.keys(options)) {
    if (OPTIONS.has(name) || extra.includes(name)) continue;
    throw new TypeError(`keyloom createClient: ${INSTEAD[name] ?? `unknown option '${name}' (known: ${[...OPTIONS, ...extra].join(', ')})`}`);
  }
  const given = ['servers', 'groups', 'host', 'url', 'server'].filter((n) => options[n] !== undefined);
  if (given.length > 1 && !(given.length === 2 && given.includes('servers') && given.includes('groups'))) {
    throw new TypeError(`keyloom createClient: give the servers one way, not ${given.join(' and ')}`);
  }
  if (options.port !== undefined && options.host === undefined) {
    throw new TypeError("keyloom createClient: port goes with host: write { host, port }");
  }
}

// Credentials and database of the URLs among the servers: one set for the whole client.
function fromUrls(addresses, options) {
  const settings = {};
  for (const a of addresses) {
    for (const name of ['username', 'password', 'db']) {
      if (a[name] === undefined) continue;
      if (options[name] !== undefined || (settings[name] !== undefined && settings[name] !== a[name])) {
        throw new TypeError(`keyloom createClient: the ${name} is given twice (in a URL and elsewhere); give it once`);
      }
      settings[name] = a[name];
    }
  }
  return settings;
}

// AUTH and SELECT are remembered and replayed on every connection the client
// opens: servers that are down now (a replica group, say) get them when they
// come back. So the client is made when every server that answered accepted
// them; a refusal (a server's error reply) still fails.
function whileSomeServersAreDown(step) {
  try {
    step();
  } catch (err) {
    if (!isServersDown(err)) throw err;
  }
}

/** True for the failure of a setup step that only some servers being down caused. */
function isServersDown(err) {
  return err instanceof KeyloomError && err.code === codes.KL_PARTIAL_RESULT && err.serverMessage === undefined;
}

/**
 * The library's client for createClient's options, its servers added: what
 * both clients make first. `shared` forces KL_FLAG_SHARED; `extra` names the
 * options only the calling client reads. Returns { handle, options (with what
 * URLs carry), sharded }.
 */
function prepareClient(options = {}, { shared = false, extra = [] } = {}) {
  if (typeof options === 'string' || Array.isArray(options)) options = { servers: options };
  if (options === null || typeof options !== 'object') {
    throw new TypeError("keyloom createClient: options are an object, a server string or an array of servers");
  }
  checkOptions(options, extra);
  const single = options.host !== undefined ? [{ host: options.host, port: options.port }]
    : options.url !== undefined ? [options.url] : options.server !== undefined ? [options.server] : undefined;
  const servers = single ?? (options.servers !== undefined ? serverList(options.servers)
    : options.groups === undefined ? defaultServers() : []);
  const groups = options.groups ?? {};
  const hash = choose(HASHES, options.hash ?? 'default', 'hash');
  const hashTag = hashTagOf(options.hashTag);
  const flags = options.shared || shared ? kl.KL_FLAG_SHARED : kl.KL_FLAG_NONE;
  const members = [
    ...servers.map((s) => ['', s]),
    ...Object.entries(groups).flatMap(([name, list]) => serverList(list).map((s) => [name, s])),
  ];
  if (members.length === 0) throw new TypeError('keyloom createClient: no servers given');
  const parsed = members.map(([group, s]) => ({ group, ...parseServer(s) }));
  // Weights are the weighted MD5 continuum's (ketama): the distribution they imply.
  const weighted = parsed.some((p) => p.weight !== undefined);
  const distribution = choose(DISTRIBUTIONS, options.distribution ?? (weighted ? 'ketama' : 'consistent'), 'distribution');
  if (weighted && distribution !== kl.KL_DISTRIBUTION_CONSISTENT_KETAMA) {
    throw new TypeError("keyloom createClient: server weights need distribution: 'ketama'");
  }
  for (const { host, port } of parsed) {
    if (!Number.isInteger(port) || port <= 0 || port > 65535) {
      throw new TypeError(`keyloom createClient: bad port for server ${host}`);
    }
  }
  const addresses = parsed.map(({ group, host, port, weight }) => [group, host, port, weight ?? 1]);
  const tls = tlsSettings(options, parsed);
  options = { ...options, ...fromUrls(parsed, options) };

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
  if (options.maxReplyBytes !== undefined) {
    fail(own.kl_client_max_reply_size(h, seconds(options.maxReplyBytes, 'maxReplyBytes', 'createClient')),
      'createClient');
  }
  if (options.clientVersion !== undefined) {
    fail(kl.kl_set_client_version(h, choose(VERSIONS, options.clientVersion, 'clientVersion')), 'createClient');
  }
  if (tls) {
    const texts = [tls.ca, tls.cert, tls.key, tls.servername].flatMap((t) => [t, Buffer.byteLength(t)]);
    if (resultOf(own.kl_client_set_tls(h, ...texts, tls.verify ? 1 : 0)) !== 0) {
      const why = own.kl_last_failure_text(h);
      kl.kl_client_destroy(h);
      throw new TypeError(`keyloom createClient: ${why}`);
    }
  }
  if (hashTag) fail(own.kl_client_set_hash_tag(h, hashTag, 2), 'createClient');
  for (const [group, host, port, weight] of addresses) {
    fail(weight === 1 ? kl.kl_server_add(h, host, port, group) : own.kl_server_add_weighted(h, host, port, group, weight),
      'createClient');
  }
  const perGroup = new Map();
  for (const [group] of addresses) perGroup.set(group, (perGroup.get(group) ?? 0) + 1);
  const serverNames = parsed.map(({ group, host, port }) => ({ group: group || 'default', name: `${host}:${port}` }));
  return { handle: h, options, sharded: [...perGroup.values()].some((n) => n > 1), servers: serverNames };
}

/** The credentials and database to give a new client: [command name, arguments] in order. */
function setupCommands(options) {
  const steps = [];
  if (options.password !== undefined) {
    steps.push(['auth', options.username !== undefined ? [options.username, options.password] : [options.password]]);
  }
  if (options.db !== undefined && options.db !== 0) steps.push(['select', [options.db]]);
  return steps;
}

function createClient(options = {}) {
  const prepared = prepareClient(options);
  const client = new KeyloomClient(prepared.handle, prepared.options.onDirty, prepared.sharded, prepared.servers);
  try {
    for (const [name, args] of setupCommands(prepared.options)) whileSomeServersAreDown(() => client[name](...args));
  } catch (err) {
    client.close();
    throw err;
  }
  return client;
}

module.exports = { createClient, prepareClient, setupCommands, isServersDown };
