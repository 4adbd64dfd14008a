#!/usr/bin/env node
'use strict';
// A short tour of keyloom: `npm run demo`. Starts two local redis-server processes
// (or uses KEYLOOM_SERVERS=host:port[,host:port...]), shards keys over them and
// walks through the command families, printing what it does.
const { runExample } = require('./support/local.js');

const show = (label, value) => console.log(`  ${label.padEnd(46)} ${JSON.stringify(value)}`);

runExample(2, async (servers, env) => {
  const { createClient, KeyloomError, version } = require('keyloom/client');
  console.log(`keyloom ${version}: ${env.started ? 'started' : 'using'} ${servers.join(' and ')}`);
  const db = createClient({ servers, distribution: 'ketama' });
  try {
    db.flushdb();

    console.log('\nStrings');
    db.set('greeting', 'hello, world');
    show("set greeting; get greeting ->", db.get('greeting'));
    db.append('greeting', '!');
    show('append "!" ->', db.get('greeting'));
    show('setnx greeting (already there) ->', db.setnx('greeting', 'ignored'));
    show('getset greeting ->', db.getset('greeting', 'bonjour'));
    show('get missing ->', db.get('no-such-key'));

    console.log('\nCounters with a time to live');
    show('incr visits (ttl 60 s) ->', db.incr('visits', { ttl: 60 }));
    show('incrby visits 10 ->', db.incrby('visits', 10));
    show('decr visits ->', db.decr('visits'));
    show('ttl visits ->', db.ttl('visits'));

    console.log('\nLists');
    db.rpush('queue', ['first', 'second', 'third']);
    show('rpush queue first second third; lrange ->', db.lrange('queue', 0, -1));
    show('lpop queue ->', db.lpop('queue'));
    show('llen queue ->', db.llen('queue'));

    console.log('\nHashes');
    db.hmset('user:1', { name: 'Ada', lang: 'en', visits: '1' });
    db.hincrby('user:1', 'visits', 2);
    show('hmset user:1; hincrby visits 2; hgetall ->', db.hgetall('user:1'));
    show('hget user:1 name ->', db.hget('user:1', 'name'));

    console.log('\nSorted sets with scores');
    db.zadd('scores', [{ member: 'ada', score: 31 }, { member: 'bob', score: 12 }, { member: 'cy', score: 27 }]);
    db.zincrby('scores', 5, 'bob');
    show('top two (reverse, with scores) ->', db.zrange('scores', 0, 1, { withScores: true, reverse: true }));
    show('zrank bob ->', db.zrank('scores', 'bob'));

    console.log('\nSets');
    db.sadd('tags:a', ['red', 'green']);
    db.sadd('tags:b', ['green', 'blue']);
    show('sunion tags:a tags:b ->', db.sunion(['tags:a', 'tags:b']).sort());
    show('sismember tags:a red ->', db.sismember('tags:a', 'red'));

    console.log('\nDictionary completion');
    db.dadd('cities', 'paris', 'France', { weight: 10 });
    db.dadd('cities', 'parma', 'Italy', { weight: 3 });
    db.dadd('cities', 'porto', 'Portugal', { weight: 5 });
    show('dclose cities "par" ->', db.dclose('cities', 'par'));

    console.log(`\nMulti-key get across ${servers.length} shard(s)`);
    const keys = Array.from({ length: 8 }, (_, i) => `item:${i}`);
    db.mset(keys.map((k, i) => [k, `value ${i}`]));
    show('mset item:0..7; mget item:0, item:7, nope ->', db.mget(['item:0', 'item:7', 'nope']));
    for (const server of servers) {
      const one = createClient({ servers: [server] });
      try {
        show(`keys on ${server} alone ->`, one.keys('item:*').sort());
      } finally {
        one.close();
      }
    }

    console.log('\nErrors');
    try {
      db.lpush('greeting', 'x');
    } catch (err) {
      if (!(err instanceof KeyloomError)) throw err;
      show('lpush on a string key ->', `${err.codeName} (${err.code}): ${err.message}`);
    }

    db.flushdb();
  } finally {
    db.close();
  }
  console.log(`\nDone${env.started ? '; local servers stopped' : ''}.`);
});
