'use strict';
// ioredis on one server: awaited one at a time ('seq'), 100 commands in flight
// ('inflight'), and 100 in flight with auto-pipelining ('autopipeline').
const Redis = require('ioredis');
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
      return () => redis.mget(names);
    }
    case 'mset': {
      const v = K.valueOf(w.size);
      const flat = K.keyNames(w.prefix, w.count).flatMap((k) => [k, v]);
      return () => redis.mset(flat);
    }
    case 'hgetall':
      return () => redis.hgetall(w.key);
    case 'zrange':
      return async () => {
        const r = await redis.zrange(w.key, 0, -1, 'WITHSCORES');
        let sum = 0;
        for (let i = 1; i < r.length; i += 2) sum += Number(r[i]);
        return sum;
      };
    default:
      return null;
  }
}

async function prepare(task) {
  if (task.ports.length !== 1) return null; // no client-side sharding
  const variant = task.variant || 'seq';
  const redis = new Redis({
    host: '127.0.0.1', port: task.ports[0], enableAutoPipelining: variant === 'autopipeline',
    lazyConnect: true, maxRetriesPerRequest: 1,
  });
  await redis.connect();
  const op = ops(redis, task.workload);
  if (!op) return null;
  return {
    mode: variant === 'seq' ? 'async' : 'inflight',
    op,
    items: task.workload.count || 1,
    close: () => redis.disconnect(),
  };
}

module.exports = { prepare };
