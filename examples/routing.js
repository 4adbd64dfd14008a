#!/usr/bin/env node
'use strict';
// Keeping related keys on one shard with a routing string. Keys normally land on
// the server their own hash picks; commands given { route } pick the server by the
// routing string instead, so one user's keys can live together and be read in a
// single round trip to a single server. `node examples/routing.js`
const { runExample } = require('./support/local.js');

runExample(2, async (servers) => {
  const { createClient } = require('keyloom/client');
  const db = createClient({ servers });
  const route = 'user:42';
  const keys = ['user:42:name', 'user:42:email', 'user:42:plan', 'user:42:city'];
  try {
    db.del(keys);
    // set() with a route stores on the routing string's server.
    db.set('user:42:name', 'Ada', { route });
    db.set('user:42:email', 'ada@example.org', { route });
    db.set('user:42:plan', 'pro', { route });
    db.set('user:42:city', 'London', { route });
    console.log('mget with the route:', db.mget(keys, { route }));

    // Where did they go? Ask each server on its own.
    for (const server of servers) {
      const one = createClient({ servers: [server] });
      try {
        console.log(`  on ${server}: ${one.keys('user:42:*').sort().join(', ') || '(none)'}`);
      } finally {
        one.close();
      }
    }
    // Without the route, a read looks on the server of the key's own hash: the keys
    // whose hash picks the other server are not found there.
    const plain = db.mget(keys);
    keys.forEach((k, i) => console.log(`  get ${k} without the route: ${JSON.stringify(plain[i])}`));
    for (const server of servers) {
      const one = createClient({ servers: [server] });
      try {
        one.del(keys);
      } finally {
        one.close();
      }
    }
  } finally {
    db.close();
  }
});
