#!/usr/bin/env node
'use strict';
// A read-through cache with time to live: values computed once, served from the
// store until they expire. `node examples/cache.js`
const { runExample } = require('./support/local.js');

runExample(1, async (servers) => {
  const { createClient } = require('keyloom/client');
  const db = createClient({ servers });
  let computed = 0;
  // The slow thing being cached (here: a square, with a counter to show hits).
  const slowSquare = (n) => { computed++; return String(n * n); };

  function cached(key, ttl, compute) {
    const hit = db.get(key);
    if (hit !== null) return hit;
    const value = compute();
    db.set(key, value, { ttl });
    return value;
  }

  try {
    for (const n of [3, 4, 3, 3, 4]) console.log(`square(${n}) = ${cached(`cache:square:${n}`, 30, () => slowSquare(n))}`);
    console.log(`computed ${computed} times for 5 lookups`);
    console.log(`cache:square:3 lives ${db.ttl('cache:square:3')} more seconds`);
    db.expire('cache:square:3', 0);
    console.log(`after expire(key, 0) its ttl is ${db.ttl('cache:square:3')} (no expiry)`);
    db.set('cache:short', 'gone soon', { ttl: 1 });
    await new Promise((r) => setTimeout(r, 2100));
    console.log(`a 1-second entry after 2 seconds: ${db.get('cache:short')}`);
    db.del(['cache:square:3', 'cache:square:4']);
  } finally {
    db.close();
  }
});
