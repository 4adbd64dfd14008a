'use strict';
// keyloom's promise client (require('keyloom/promises')): `depth` concurrent
// awaiting loops (1 in flight: one command awaited at a time).
const { workloadOp } = require('../lib/workload-op');

const commands = (client) => ({
  get: (k) => client.get(k),
  set: (k, v) => client.set(k, v),
  incr: (k) => client.incr(k),
  hset: (k, f, v) => client.hset(k, f, v),
  hget: (k, f) => client.hget(k, f),
  mget: (names) => client.mget(names),
  mset: (names, v) => client.mset(names.map((k) => [k, v])),
  hgetall: (k) => client.hgetall(k),
  zrangeWithScores: (k) => client.zrange(k, 0, -1, { withScores: true }),
});

async function prepare(task) {
  // the client reaches the addon through js/build-location.js, which honours KEYLOOM_BUILD_DIR
  process.env.KEYLOOM_BUILD_DIR = task.buildDir;
  const { createClient } = require('keyloom/promises');
  const client = createClient({ servers: task.ports.map((p) => `127.0.0.1:${p}`) });
  const op = workloadOp(task.workload, commands(client));
  if (!op) return null;
  return { mode: 'inflight', depth: task.depth || 1, op, items: 1, close: () => client.close() };
}

module.exports = { prepare, commands };
