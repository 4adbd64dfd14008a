#!/usr/bin/env node
'use strict';
// A game leaderboard on a sorted set: scores, ranks, top-N and score ranges.
// `node examples/leaderboard.js`
const { runExample } = require('./support/local.js');

runExample(1, async (servers) => {
  const { createClient } = require('keyloom/client');
  const db = createClient({ servers });
  const board = 'leaderboard:weekly';
  try {
    db.del(board);
    db.zadd(board, [
      { member: 'ada', score: 1200 }, { member: 'bob', score: 950 }, { member: 'cy', score: 1430 },
      { member: 'dee', score: 610 }, { member: 'eve', score: 1010 },
    ]);
    db.zincrby(board, 300, 'bob'); // bob wins a match
    console.log('top three:');
    db.zrange(board, 0, 2, { withScores: true, reverse: true })
      .forEach(({ member, score }, i) => console.log(`  ${i + 1}. ${member.padEnd(4)} ${score}`));
    console.log(`bob is number ${db.zrank(board, 'bob', { reverse: true }) + 1} with ${db.zscore(board, 'bob')}`);
    console.log(`players between 1000 and 1300: ${db.zrangebyscore(board, 1000, 1300).join(', ')}`);
    console.log(`${db.zcount(board, 1000, Infinity)} of ${db.zcard(board)} players have 1000 or more`);
    db.zremrangebyscore(board, -Infinity, 700);
    console.log(`after dropping scores up to 700: ${db.zrange(board).join(', ')}`);
    db.del(board);
  } finally {
    db.close();
  }
});
