'use strict';
// node-redis on one server, awaited one at a time ('seq') or 100 in flight.
const { createClient } = require('redis');
const K = require('../lib/keys');

function ops(redis, w) {
  switch (w.kind) {
    case 'get': {
      const names = K.keyNames(w.prefix, w.nkeys);
      return (i) => redis.get(names[i % names.length]);
    }
    case 'set': {
      const names = K.keyNames(w.prefix, w.nkeys);
      const v = K.valueOf(w.size);
      return (i) => redis.set(names[i % names.length], v);
    }
    case 'mget':
    case 'mget-build': {
      const names = K.keyNames(w.prefix, w.count);
      return () => redis.mGet(names);
    }
    case 'mset': {
      const v = K.valueOf(w.size);
      const pairs = K.keyNames(w.prefix, w.count).map((k) => [k, v]);
      return () => redis.mSet(pairs);
    }
    case 'hgetall':
      return () => redis.hGetAll(w.key);
    case 'zrange':
      return () => redis.zRangeWithScores(w.key, 0, -1);
    default:
      return null;
  }
}

async function prepare(task) {
  if (task.ports.length !== 1) return null;
  const redis = createClient({ socket: { host: '127.0.0.1', port: task.ports[0], reconnectStrategy: false } });
  redis.on('error', () => {});
  await redis.connect();
  const op = ops(redis, task.workload);
  if (!op) return null;
  return {
    mode: task.variant === 'inflight' ? 'inflight' : 'async',
    op,
    items: task.workload.count || 1,
    close: () => redis.destroy ? redis.destroy() : redis.disconnect(),
  };
}

module.exports = { prepare };
