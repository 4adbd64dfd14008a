'use strict';
// node-redis on one server, awaited one at a time ('seq') or 100 in flight.
const { createClient } = require('redis');
const { workloadOp } = require('../lib/workload-op');

const commands = (redis) => ({
  get: (k) => redis.get(k),
  set: (k, v) => redis.set(k, v),
  incr: (k) => redis.incr(k),
  hset: (k, f, v) => redis.hSet(k, f, v),
  hget: (k, f) => redis.hGet(k, f),
  mget: (names) => redis.mGet(names),
  mset: (names, v) => redis.mSet(names.map((k) => [k, v])),
  hgetall: (k) => redis.hGetAll(k),
  zrangeWithScores: (k) => redis.zRangeWithScores(k, 0, -1),
});

async function prepare(task) {
  if (task.ports.length !== 1) return null;
  const redis = createClient({ socket: { host: '127.0.0.1', port: task.ports[0], reconnectStrategy: false } });
  redis.on('error', () => {});
  await redis.connect();
  const op = workloadOp(task.workload, commands(redis));
  if (!op) return null;
  return {
    mode: task.variant === 'inflight' ? 'inflight' : 'async',
    depth: task.depth || 100,
    op,
    items: task.workload.count || 1,
    close: () => redis.destroy ? redis.destroy() : redis.disconnect(),
  };
}

module.exports = { prepare };
