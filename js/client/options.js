'use strict';
// createClient's options: servers and groups, hashing, time-outs, credentials.
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
  if (options.maxReplyBytes !== undefined) {
    fail(own.kl_client_max_reply_size(h, seconds(options.maxReplyBytes, 'maxReplyBytes', 'createClient')),
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

module.exports = { createClient };
