'use strict';
// One workload as a function of the iteration number, for any contender: the
// contender gives its own spelling of each command (get, set, mget, mset,
// hgetall, zrangeWithScores), the workload picks the keys and values. A command
// the contender lacks, or a workload it does not run, gives null.
const K = require('./keys');

function workloadOp(w, commands) {
  const has = (name) => typeof commands[name] === 'function';
  switch (w.kind) {
    case 'get': {
      if (!has('get')) return null;
      const names = K.keyNames(w.prefix, w.nkeys);
      return (i) => commands.get(names[i % names.length]);
    }
    case 'set': {
      if (!has('set')) return null;
      const names = K.keyNames(w.prefix, w.nkeys);
      const v = K.valueOf(w.size);
      return (i) => commands.set(names[i % names.length], v);
    }
    case 'mget':
    case 'mget-build': {
      if (!has('mget')) return null;
      const names = K.keyNames(w.prefix, w.count);
      return () => commands.mget(names);
    }
    case 'mset': {
      if (!has('mset')) return null;
      const v = K.valueOf(w.size);
      const names = K.keyNames(w.prefix, w.count);
      return () => commands.mset(names, v);
    }
    case 'mixed': {
      // GET, SET, INCR, HSET, HGET in turn over 1,000 keys of each kind
      if (!['get', 'set', 'incr', 'hset', 'hget'].every(has)) return null;
      const n = 1000;
      return (i) => {
        const k = i % n;
        switch (i % 5) {
          case 0: return commands.get(`mixed:s:${k}`);
          case 1: return commands.set(`mixed:s:${k}`, 'value');
          case 2: return commands.incr(`mixed:c:${k}`);
          case 3: return commands.hset(`mixed:h:${k}`, 'f', 'value');
          default: return commands.hget(`mixed:h:${k}`, 'f');
        }
      };
    }
    case 'hgetall':
      return has('hgetall') ? () => commands.hgetall(w.key) : null;
    case 'zrange':
      return has('zrangeWithScores') ? () => commands.zrangeWithScores(w.key) : null;
    default:
      return null;
  }
}

module.exports = { workloadOp };
