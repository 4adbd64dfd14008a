#!/usr/bin/env node
'use strict';
// A short tour of keyloom: `npm run demo`. Starts two local redis-server processes
// (or uses KEYLOOM_SERVERS=host:port[,host:port...]), shards keys over them and
// walks through the command families, printing what it does. On servers of yours
// it touches nothing but its own keys: every key it writes starts with
// "keyloom-demo:<pid>:", and exactly those are deleted when it ends.
const { runExample } = require('./support/local.js');

const show = (label, value) => console.log(`  ${label.padEnd(46)} ${JSON.stringify(value)}`);

runExample(2, async (servers, env) => {
  const { createClient, KeyloomError, version } = require('keyloom/client');
  console.log(`keyloom ${version}: ${env.started ? 'started' : 'using'} ${servers.join(' and ')}`);
  const db = createClient({ servers, distribution: 'ketama' });
  // The demo's own names: a prefix no key of anyone else's has, and a list of
  // every key written, deleted (and nothing else) at the end.
  const prefix = `keyloom-demo:${process.pid}:`;
  const written = new Set();
  const k = (name) => {
    written.add(prefix + name);
    return prefix + name;
  };
  try {

    console.log('\nStrings');
    db.set(k('greeting'), 'hello, world');
    show("set greeting; get greeting ->", db.get(k('greeting')));
    db.append(k('greeting'), '!');
    show('append "!" ->', db.get(k('greeting')));
    show('setnx greeting (already there) ->', db.setnx(k('greeting'), 'ignored'));
    show('getset greeting ->', db.getset(k('greeting'), 'bonjour'));
    show('get missing ->', db.get(k('no-such-key')));

    console.log('\nCounters with a time to live');
    show('incr visits (ttl 60 s) ->', db.incr(k('visits'), { ttl: 60 }));
    show('incrby visits 10 ->', db.incrby(k('visits'), 10));
    show('decr visits ->', db.decr(k('visits')));
    show('ttl visits ->', db.ttl(k('visits')));

    console.log('\nLists');
    db.rpush(k('queue'), ['first', 'second', 'third']);
    show('rpush queue first second third; lrange ->', db.lrange(k('queue'), 0, -1));
    show('lpop queue ->', db.lpop(k('queue')));
    show('llen queue ->', db.llen(k('queue')));

    console.log('\nHashes');
    db.hmset(k('user:1'), { name: 'Ada', lang: 'en', visits: '1' });
    db.hincrby(k('user:1'), 'visits', 2);
    show('hmset user:1; hincrby visits 2; hgetall ->', db.hgetall(k('user:1')));
    show('hget user:1 name ->', db.hget(k('user:1'), 'name'));

    console.log('\nSorted sets with scores');
    db.zadd(k('scores'), [{ member: 'ada', score: 31 }, { member: 'bob', score: 12 }, { member: 'cy', score: 27 }]);
    db.zincrby(k('scores'), 5, 'bob');
    show('top two (reverse, with scores) ->', db.zrange(k('scores'), 0, 1, { withScores: true, reverse: true }));
    show('zrank bob ->', db.zrank(k('scores'), 'bob'));

    console.log('\nSets');
    db.sadd(k('tags:a'), ['red', 'green']);
    db.sadd(k('tags:b'), ['green', 'blue']);
    show('sunion tags:a tags:b ->', db.sunion([k('tags:a'), k('tags:b')]).sort());
    show('sismember tags:a red ->', db.sismember(k('tags:a'), 'red'));

    console.log('\nDictionary completion');
    db.dadd(k('cities'), 'paris', 'France', { weight: 10 });
    db.dadd(k('cities'), 'parma', 'Italy', { weight: 3 });
    db.dadd(k('cities'), 'porto', 'Portugal', { weight: 5 });
    show('dclose cities "par" ->', db.dclose(k('cities'), 'par'));

    console.log(`\nMulti-key get across ${servers.length} shard(s)`);
    const keys = Array.from({ length: 8 }, (_, i) => k(`item:${i}`));
    db.mset(keys.map((k, i) => [k, `value ${i}`]));
    show('mset item:0..7; mget item:0, item:7, nope ->', db.mget([k('item:0'), k('item:7'), k('nope')]));
    for (const server of servers) {
      const one = createClient({ servers: [server] });
      try {
        show(`keys on ${server} alone ->`, one.keys(`${prefix}item:*`).sort().map((name) => name.slice(prefix.length)));
      } finally {
        one.close();
      }
    }

    console.log('\nErrors');
    try {
      db.lpush(k('greeting'), 'x');
    } catch (err) {
      if (!(err instanceof KeyloomError)) throw err;
      show('lpush on a string key ->', `${err.codeName} (${err.code}): ${err.message}`);
    }
  } finally {
    db.del([...written]);
    db.close();
  }
  console.log(`\nDone${env.started ? '; local servers stopped' : ''}.`);
});
