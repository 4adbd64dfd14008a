'use strict';
// A million mixed operations through either client leave process memory flat:
// every cell, array and reply is released, on success, on a miss and when a
// command fails.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, client, keyloom, kinds, address } = require('./support.js');

const promises = kinds.find((k) => k.name === 'promises').keyloom;
const { measure, MB, RSS_LIMIT_MB } = require('./memory.js');

// The operation mix, each a call on db (a client of either kind); the last one
// always fails (a list command on a string).
const mix = (db, big) => [
  (i) => db.set(`k${i % 1000}`, `value ${i}`),
  (i) => db.get(`k${i % 1000}`),
  (i) => db.get(`missing${i % 10}`),
  (i) => db.set(`b${i % 100}`, big, { ttl: 600 }),
  (i) => db.getBuffer(`b${i % 100}`),
  (i) => db.incr(`c${i % 100}`, { ttl: 600 }),
  (i) => db.mget([`k${i % 1000}`, `k${(i + 1) % 1000}`, 'missing', `k${(i + 7) % 1000}`]),
  (i) => db.mset({ [`m${i % 50}`]: 'x', [`n${i % 50}`]: 'y' }),
  (i) => db.hset(`h${i % 100}`, `f${i % 10}`, 'v'),
  (i) => db.hgetall(`h${i % 100}`),
  (i) => db.hmget(`h${i % 100}`, ['f1', 'f2', 'nope']),
  (i) => db.rpush(`l${i % 100}`, ['a', 'b']),
  (i) => db.lrange(`l${i % 100}`, 0, 9),
  (i) => db.ltrim(`l${i % 100}`, 0, 9),
  (i) => db.lpop(`l${i % 100}`),
  (i) => db.zadd(`z${i % 50}`, i % 997, `m${i % 20}`),
  (i) => db.zrange(`z${i % 50}`, 0, 9, { withScores: true, reverse: true }),
  (i) => db.zscore(`z${i % 50}`, `m${i % 25}`),
  (i) => db.sadd(`s${i % 50}`, `m${i % 20}`),
  (i) => db.smembers(`s${i % 50}`),
  (i) => db.sunion([`s${i % 50}`, `s${(i + 1) % 50}`]),
  (i) => db.dadd('dict', `w${i % 200}`, 'v', { weight: i % 5 }),
  (i) => db.dclose('dict', `w${i % 20}`),
  (i) => db.del([`gone${i % 10}`, `k${(i + 500) % 1000}`]),
  (i) => db.exists(`k${i % 1000}`),
  (i) => db.ttl(`b${i % 100}`),
  () => db.lpush('wrongtype', 'x'),
];

// Checks the growth between the early and the late window of a measure().
function assertFlat(t, r) {
  const growth = { rss: (r.late.rss - r.early.rss) / MB, external: (r.late.external - r.early.external) / MB };
  t.diagnostic(`ops ${r.done}; early ${JSON.stringify(r.early)}; late ${JSON.stringify(r.late)}`);
  assert.ok(r.early.n > 0 && r.late.n > 0, 'both windows have samples');
  assert.ok(growth.rss < RSS_LIMIT_MB, `rss grew by ${growth.rss.toFixed(1)} MB over ${r.done} steps`);
  assert.ok(growth.external < 4, `external memory grew by ${growth.external.toFixed(1)} MB`);
}

const expectedFailure = (err) => {
  if (!(err instanceof keyloom.KeyloomError)) throw err;
};

test('a million mixed operations keep rss and external memory flat after warm-up', { timeout: 600000 }, async (t) => {
  const [a, b] = await servers(2);
  const db = client([a, b]);
  db.flushdb();
  db.set('wrongtype', 'string');
  const ops = mix(db, Buffer.alloc(300, 7));
  // 1.6 million, so that the windows after warm-up cover a million.
  const r = await measure({ total: 1_600_000, capMs: 180_000, every: 20_000 }, (i) => {
    try {
      ops[i % ops.length](i);
    } catch (err) {
      expectedFailure(err);
    }
  });
  assertFlat(t, r);
});

test('the promise client: a million mixed operations, 1,000 in flight, keep memory flat', { timeout: 600000 }, async (t) => {
  const [a, b] = await servers(2);
  const db = promises.createClient({ servers: [a, b].map(address) });
  try {
    await db.flushdb();
    await db.set('wrongtype', 'string');
    const ops = mix(db, Buffer.alloc(300, 7));
    const inFlight = 1000;
    const r = await measure({ total: 1_000_000 / inFlight, capMs: 180_000, every: 20 }, async (batch) => {
      const calls = [];
      for (let j = 0; j < inFlight; j++) {
        const i = batch * inFlight + j;
        calls.push(ops[i % ops.length](i));
      }
      for (const outcome of await Promise.allSettled(calls)) {
        if (outcome.status === 'rejected') expectedFailure(outcome.reason);
      }
    });
    assertFlat(t, r);
  } finally {
    await db.close();
  }
});

test('info() with a server down frees the texts of the servers that answered', { timeout: 120000 }, async () => {
  const [up, down] = await servers(2);
  const db = client([up, down], { connectTimeoutMs: 200, reconnectMs: 60000 });
  await down.stop();
  assert.throws(() => db.info(), (e) => e instanceof keyloom.KeyloomError && e.code === keyloom.codes.KL_PARTIAL_RESULT);
  // Each call hands over one INFO text of several KiB: 10,000 of them would
  // pass the limit many times over if they stayed allocated.
  const r = await measure({ total: 10000, capMs: 60000, every: 500 }, () => {
    try { db.info(); } catch (e) { if (e.code !== keyloom.codes.KL_PARTIAL_RESULT) throw e; }
  });
  assert.ok((r.late.rss - r.early.rss) / MB < RSS_LIMIT_MB, `rss grew ${((r.late.rss - r.early.rss) / MB).toFixed(1)} MB`);
});
