'use strict';
// Shared by the client suites: throwaway redis-server processes on free loopback
// ports (stopped by pid when the file's tests end) and clients made against them.
// The addon comes from KEYLOOM_BUILD_DIR (see test/helpers/paths.js), which
// index.js honours as well.
const { after } = require('node:test');
const paths = require('../helpers/paths.js');
const { startRedis } = require('../../scripts/local-redis.js');

process.env.KEYLOOM_BUILD_DIR = paths.buildDir;
const keyloom = require('keyloom/client');
const kl = require('keyloom');

const running = new Set();
const clients = new Set();
after(async () => {
  for (const c of clients) c.close();
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

/** A client for the given servers, closed after the file's tests. */
function client(list, options = {}) {
  const c = keyloom.createClient({ servers: list.map(address), connectTimeoutMs: 2000, reconnectMs: 200, ...options });
  clients.add(c);
  return c;
}

module.exports = { keyloom, kl, servers, client, address, startRedis };
