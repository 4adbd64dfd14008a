'use strict';
// What only the promise client does: the event loop never waits on a server,
// the commands of one tick keep their order, and the per-call options, the bound
// on commands in flight and close() behave as documented.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, address, startRedis, kinds } = require('./support.js');

const { keyloom: promises } = kinds.find((k) => k.name === 'promises');
const { KeyloomError, codes } = promises;

const made = new Set();
test.after(async () => {
  await Promise.all([...made].map((c) => c.close()));
});
function client(list, options = {}) {
  const c = promises.createClient({ servers: list.map(address), connectTimeoutMs: 1000, reconnectMs: 200, ...options });
  made.add(c);
  return c;
}
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const settledState = (p) => Promise.race([p.then(() => 'resolved', () => 'rejected'), sleep(0).then(() => 'pending')]);

let server;
let db;
test.before(async () => {
  [server] = await servers(1);
  db = client([server]);
});

test('every method answers with a Promise, argument errors included', async () => {
  const answer = db.set('k', 'v');
  assert.ok(answer instanceof Promise);
  assert.equal(await answer, true);
  const refused = db.get('k', 'surplus');
  assert.ok(refused instanceof Promise);
  await assert.rejects(refused, TypeError);
  await assert.rejects(db.incrby('k', 1.5), TypeError);
});

test('commands made in one tick run in the order made: a write then a read of the same key sees the write', async () => {
  const writes = [];
  const reads = [];
  for (let i = 0; i < 200; i++) {
    writes.push(db.set(`order:${i % 10}`, `v${i}`));
    reads.push(db.get(`order:${i % 10}`));
  }
  await Promise.all(writes);
  const seen = await Promise.all(reads);
  seen.forEach((v, i) => assert.equal(v, `v${i}`));
  const counts = await Promise.all(Array.from({ length: 50 }, () => db.incr('order:counter')));
  assert.deepEqual(counts, Array.from({ length: 50 }, (_, i) => i + 1));
});

test('a paused server never holds the event loop: timers fire while its commands wait, then they fail', async () => {
  const [paused] = await servers(1);
  const slow = client([paused], { connectTimeoutMs: 1500 });
  await slow.set('k', 'v');
  paused.kill('SIGSTOP');
  try {
    const waiting = Array.from({ length: 20 }, () => slow.get('k'));
    const started = Date.now();
    await sleep(10);
    const timerLate = Date.now() - started;
    // The commands are held by the server for up to 3 s; a loop that waited on
    // them would run this timer only afterwards.
    assert.ok(timerLate < 1000, `a 10 ms timer fired after ${timerLate} ms`);
    assert.equal(await settledState(waiting[0]), 'pending');
    const outcomes = await Promise.allSettled(waiting);
    for (const o of outcomes) {
      assert.equal(o.status, 'rejected');
      assert.ok(o.reason instanceof KeyloomError);
      assert.equal(o.reason.server, address(paused));
    }
  } finally {
    paused.kill('SIGCONT');
  }
});

test('timeoutMs bounds one command below the client\'s own time-out', async () => {
  const [paused] = await servers(1);
  const slow = client([paused], { connectTimeoutMs: 5000 });
  await slow.set('k', 'v');
  paused.kill('SIGSTOP');
  try {
    const started = Date.now();
    await assert.rejects(slow.get('k', { timeoutMs: 200 }), (e) => e instanceof KeyloomError && /no reply/.test(e.message));
    const took = Date.now() - started;
    assert.ok(took < 4000, `a 200 ms command took ${took} ms`);
  } finally {
    paused.kill('SIGCONT');
  }
  await assert.rejects(slow.get('k', { timeoutMs: 0 }), TypeError);
  await assert.rejects(slow.exists('k', { timeoutMs: -5 }), TypeError);
});

test('a signal aborts a command: at once when aborted already, and when it aborts while the command waits', async () => {
  const already = AbortSignal.abort();
  await assert.rejects(db.get('k', { signal: already }), (e) => e.name === 'AbortError');
  const controller = new AbortController();
  const pending = db.get('k', { signal: controller.signal, buffer: true });
  controller.abort();
  await assert.rejects(pending, (e) => e.name === 'AbortError');
  // Methods without options take the per-call options as one more argument.
  assert.equal(await db.exists('k', { signal: new AbortController().signal }), true);
  await assert.rejects(db.get('k', { signal: 'stop' }), TypeError);
});

test('maxQueued bounds the commands in flight: one more rejects at once, and the rest complete', async () => {
  const bounded = client([server], { maxQueued: 10 });
  const inFlight = Array.from({ length: 10 }, (_, i) => bounded.set(`q${i}`, 'v'));
  await assert.rejects(bounded.get('q0'), (e) => e instanceof KeyloomError && e.code === codes.KL_MEMORY_FAILURE &&
    /maxQueued 10/.test(e.message));
  assert.deepEqual(await Promise.all(inFlight), Array(10).fill(true));
  assert.equal(await bounded.get('q0'), 'v');
  assert.throws(() => promises.createClient({ servers: [address(server)], maxQueued: 0 }), TypeError);
});

test('close() waits for the commands in flight, then refuses new ones', async () => {
  const closing = client([server]);
  const inFlight = Array.from({ length: 100 }, (_, i) => closing.set(`c${i}`, String(i)));
  const closed = closing.close();
  await assert.rejects(closing.get('c1'), (e) => e.code === codes.KL_INVALID_CLIENT);
  assert.deepEqual(await Promise.all(inFlight), Array(100).fill(true));
  await closed;
  assert.equal(closing.closed, true);
  assert.equal(await db.get('c99'), '99');
  assert.equal(closing.close(), closed, 'closing again gives the same Promise');
});

test('await using closes the client at the end of the block', { skip: typeof Symbol.asyncDispose !== 'symbol' }, async () => {
  const c = client([server]);
  await c[Symbol.asyncDispose]();
  assert.equal(c.closed, true);
});

test('a server that restarts: commands fail while it is down, and succeed once it is back', async () => {
  const s = await startRedis();
  const port = s.port;
  const c = client([s], { connectTimeoutMs: 300, reconnectMs: 100 });
  await c.set('k', 'v');
  await s.stop();
  await assert.rejects(c.get('k'), (e) => e instanceof KeyloomError);
  const back = await startRedis({ port });
  try {
    let answer;
    for (let i = 0; i < 30 && answer !== true; i++) {
      await sleep(100);
      answer = await c.set('k', 'again').catch(() => undefined);
    }
    assert.equal(answer, true);
    assert.equal(await c.get('k'), 'again');
  } finally {
    await back.stop();
  }
});

test('while every server is down, commands fail fast instead of waiting each its time-out', async () => {
  const s = await startRedis();
  const c = client([s], { connectTimeoutMs: 1000, reconnectMs: 60000 });
  await c.set('k', 'v');
  await s.stop();
  await assert.rejects(c.get('k'));  // marks the server down
  const started = Date.now();
  const outcomes = await Promise.allSettled(Array.from({ length: 100 }, () => c.get('k')));
  assert.ok(outcomes.every((o) => o.status === 'rejected' && o.reason.code === codes.KL_SERVER_DOWN));
  assert.ok(Date.now() - started < 1000, 'commands waited on a server marked down');
});

test('reads fail over to the next group and writes reach every live group, one command at a time or many', async () => {
  const [a, b] = await servers(2);
  const dirty = [];
  const c = promises.createClient({ groups: { a: [address(a)], b: [address(b)] }, connectTimeoutMs: 500,
    reconnectMs: 200, onDirty: (w) => dirty.push(w.command) });
  made.add(c);
  await Promise.all(Array.from({ length: 20 }, (_, i) => c.set(`g${i}`, String(i))));
  await a.stop();
  const values = await Promise.all(Array.from({ length: 20 }, (_, i) => c.get(`g${i}`)));
  assert.deepEqual(values, Array.from({ length: 20 }, (_, i) => String(i)));
  assert.equal(await c.set('after', 'x'), true);
  assert.ok(dirty.includes('set'), 'the write that missed group a is reported');
});
