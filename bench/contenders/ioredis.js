'use strict';
// ioredis on one server: awaited one at a time ('seq'), 100 commands in flight
// ('inflight'), and 100 in flight with auto-pipelining ('autopipeline').
const Redis = require('ioredis');
const { workloadOp } = require('../lib/workload-op');

const commands = (redis) => ({
  get: (k) => redis.get(k),
  set: (k, v) => redis.set(k, v),
  incr: (k) => redis.incr(k),
  hset: (k, f, v) => redis.hset(k, f, v),
  hget: (k, f) => redis.hget(k, f),
  mget: (names) => redis.mget(names),
  mset: (names, v) => redis.mset(names.flatMap((k) => [k, v])),
  hgetall: (k) => redis.hgetall(k),
  zrangeWithScores: async (k) => {
    const r = await redis.zrange(k, 0, -1, 'WITHSCORES');
    let sum = 0;
    for (let i = 1; i < r.length; i += 2) sum += Number(r[i]);
    return sum;
  },
});

async function prepare(task) {
  if (task.ports.length !== 1) return null; // no client-side sharding
  const variant = task.variant || 'seq';
  const redis = new Redis({
    host: '127.0.0.1', port: task.ports[0], enableAutoPipelining: variant === 'autopipeline',
    lazyConnect: true, maxRetriesPerRequest: 1,
  });
  await redis.connect();
  const op = workloadOp(task.workload, commands(redis));
  if (!op) return null;
  return {
    mode: variant === 'seq' ? 'async' : 'inflight',
    depth: task.depth || 100,
    op,
    items: task.workload.count || 1,
    close: () => redis.disconnect(),
  };
}

module.exports = { prepare };
