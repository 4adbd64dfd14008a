'use strict';
// Shared by the client suites: throwaway redis-server processes on free loopback
// ports (stopped by pid when the file's tests end) and clients made against them.
// The addon comes from KEYLOOM_BUILD_DIR (see test/helpers/paths.js), which
// index.js honours as well.
//
// The suites run each case once per client kind: the synchronous client and the
// promise client take the same options and calls and give the same answers, so
// a case awaits every call (harmless on a plain value) and one set of cases
// covers both.
const { after, describe } = require('node:test');
const paths = require('../helpers/paths.js');
const { startRedis } = require('../../scripts/local-redis.js');

process.env.KEYLOOM_BUILD_DIR = paths.buildDir;
const keyloom = require('keyloom/client');
const kl = require('keyloom');

const running = new Set();
const clients = new Set();
after(async () => {
  // A promise client's close() settles once its commands in flight are done.
  await Promise.all([...clients].map((c) => c.close()));
  clients.clear();
  await Promise.all([...running].map((s) => s.stop()));
  running.clear();
});

/** Starts n servers (stopped after the file's tests); options go to startRedis. */
async function servers(n = 1, options = {}) {
  const list = [];
  for (let i = 0; i < n; i++) {
    const s = await startRedis(options);
    running.add(s);
    list.push(s);
  }
  return list;
}

const address = (s) => `${s.host}:${s.port}`;

/** A client of the given module for the given servers, closed after the file's tests. */
function clientOf(module, list, options = {}) {
  const c = module.createClient({ servers: list.map(address), connectTimeoutMs: 2000, reconnectMs: 200, ...options });
  clients.add(c);
  return c;
}

/** A synchronous client for the given servers, closed after the file's tests. */
const client = (list, options) => clientOf(keyloom, list, options);

/** One client kind: its name, its module, the module's path (for worker threads) and its client(). */
function kindOf(name, id) {
  const module = require(id);
  return { name, keyloom: module, path: require.resolve(id), client: (list, options) => clientOf(module, list, options) };
}

const kinds = [
  kindOf('sync', 'keyloom/client'),
  kindOf('promises', 'keyloom/promises'),
];

/**
 * A client of the kind made as an application makes it: the synchronous client's
 * createClient throws when the servers refuse the password or db; the promise
 * client's returns at once and its `ready` rejects. Either way this throws.
 */
async function ready(kind, options) {
  const c = kind.keyloom.createClient(options);
  if (c.ready === undefined) return c;
  try {
    await c.ready;
  } catch (err) {
    await c.close();
    throw err;
  }
  return c;
}

/**
 * Runs body(kind) inside describe(kind.name) for every client kind. body may be
 * async: describe awaits it before running the cases, so a file can start its
 * server and make its client there and declare its cases after.
 */
function forEachKind(body) {
  for (const kind of kinds) describe(kind.name, () => body(kind));
}

module.exports = { keyloom, kl, kinds, forEachKind, ready, servers, client, address, startRedis };
