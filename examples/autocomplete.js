#!/usr/bin/env node
'use strict';
// Type-ahead completion on a dictionary: words with a value and a weight; the
// heaviest completions come first. `node examples/autocomplete.js [prefix ...]`
const { runExample } = require('./support/local.js');

runExample(1, async (servers) => {
  const { createClient } = require('keyloom/client');
  const db = createClient({ servers });
  const dict = 'complete:languages';
  try {
    db.del(dict);
    const languages = [
      ['javascript', 'JS, runs everywhere', 90], ['java', 'JVM language', 70], ['julia', 'numerics', 20],
      ['go', 'systems and services', 60], ['golang', 'another name for go', 5], ['haskell', 'lazy and pure', 15],
      ['python', 'batteries included', 95], ['perl', 'text processing', 25], ['php', 'the web', 50],
    ];
    for (const [word, value, weight] of languages) db.dadd(dict, word, value, { weight });
    const prefixes = process.argv.length > 2 ? process.argv.slice(2) : ['j', 'p', 'go', 'x'];
    for (const prefix of prefixes) {
      const hits = db.dclose(dict, prefix);
      console.log(`${JSON.stringify(prefix).padEnd(6)} -> ${hits.length ? hits.map((h) => h.word).join(', ') : '(nothing)'}`);
    }
    console.log(`value of "go": ${db.dget(dict, 'go')}`);
    db.drem(dict, 'golang');
    console.log(`after removing golang, "go" completes to: ${db.dclose(dict, 'go').map((h) => h.word).join(', ')}`);
    db.del(dict);
  } finally {
    db.close();
  }
});
