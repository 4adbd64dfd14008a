'use strict';
// keyloom's idiomatic client (require('keyloom/client')): synchronous methods
// named after the commands. Skipped when the client is missing or fails to load.
const path = require('node:path');
const K = require('../lib/keys');

function ops(client, w) {
  switch (w.kind) {
    case 'get': {
      const names = K.keyNames(w.prefix, w.nkeys);
      return (i) => client.get(names[i % names.length]);
    }
    case 'set': {
      const names = K.keyNames(w.prefix, w.nkeys);
      const v = K.valueOf(w.size);
      return (i) => client.set(names[i % names.length], v);
    }
    case 'mget':
    case 'mget-build': {
      const names = K.keyNames(w.prefix, w.count);
      return () => client.mget(names);
    }
    case 'mset': {
      const v = K.valueOf(w.size);
      const pairs = K.keyNames(w.prefix, w.count).map((k) => [k, v]);
      return () => client.mset(pairs);
    }
    case 'hgetall':
      return () => client.hgetall(w.key);
    case 'zrange':
      return () => client.zrange(w.key, 0, -1, { withScores: true });
    default:
      return null;
  }
}

async function prepare(task) {
  // the client reaches the addon through index.js, which honours KEYLOOM_BUILD_DIR
  process.env.KEYLOOM_BUILD_DIR = task.buildDir;
  const { createClient } = require('keyloom/client');
  const client = createClient({ servers: task.ports.map((p) => `127.0.0.1:${p}`) });
  const op = ops(client, task.workload);
  if (!op) return null;
  return { mode: 'sync', op, items: task.workload.count || 1, close: () => client.close() };
}

module.exports = { prepare };
