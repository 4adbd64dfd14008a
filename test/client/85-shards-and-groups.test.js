'use strict';
// Several servers: keys spread over shards, multi-key commands across them,
// routing strings, groups with fail-over, dirty writes and their repair.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, forEachKind, address, keyloom } = require('./support.js');

const keys = Array.from({ length: 64 }, (_, i) => `key:${i}`);

// Looks at one server on its own, through the synchronous client whatever the
// kind under test: an observer, not a case.
function keysOn(server, pattern = '*') {
  const one = keyloom.createClient({ servers: [address(server)] });
  try {
    return one.keys(pattern).sort();
  } finally {
    one.close();
  }
}

forEachKind((kind) => {
  test('keys spread over two shards; mget, del and dbsize span both', async () => {
    const [a, b] = await servers(2);
    const db = kind.client([a, b], { distribution: 'ketama' });
    await db.mset(keys.map((k) => [k, `v:${k}`]));
    const onA = keysOn(a);
    const onB = keysOn(b);
    assert.ok(onA.length > 0 && onB.length > 0, `spread ${onA.length}/${onB.length}`);
    assert.equal(onA.length + onB.length, keys.length);
    assert.deepEqual(await db.mget(keys), keys.map((k) => `v:${k}`));
    assert.equal(await db.dbsize(), keys.length);
    assert.deepEqual((await db.keys('key:*')).sort(), [...keys].sort());
    assert.equal((await db.info()).length, 2);
    assert.equal(await db.del(keys), keys.length);
    assert.equal(await db.dbsize(), 0);
  });

  test('sunion merges sets that live on different shards', async () => {
    const [a, b] = await servers(2);
    const db = kind.client([a, b]);
    const names = Array.from({ length: 10 }, (_, i) => `set:${i}`);
    for (const [i, n] of names.entries()) await db.sadd(n, [`m${i}`, 'shared']);
    const union = (await db.sunion(names)).sort();
    assert.deepEqual(union, [...names.map((_, i) => `m${i}`), 'shared'].sort());
  });

  test('a routing string keeps related keys on one shard and reads them together', async () => {
    const [a, b] = await servers(2);
    const db = kind.client([a, b]);
    const related = Array.from({ length: 12 }, (_, i) => `user:7:${i}`);
    for (const [i, k] of related.entries()) await db.set(k, String(i), { route: 'user:7' });
    const onA = keysOn(a, 'user:7:*');
    const onB = keysOn(b, 'user:7:*');
    assert.ok(onA.length === related.length || onB.length === related.length, `${onA.length}/${onB.length}`);
    assert.deepEqual(await db.mget(related, { route: 'user:7' }), related.map((_, i) => String(i)));
    assert.equal(await db.get('user:7:3', { route: 'user:7' }), '3');
    await assert.rejects(async () => db.set('user:7:x', 'v', { route: 'user:7', ttl: 5 }), TypeError);
  });

  test('groups each hold a full copy; reads fail over to the next group', async () => {
    const [a, b] = await servers(2);
    const db = kind.client([], { servers: [], groups: { main: [address(a)], backup: [address(b)] }, reconnectMs: 60000 });
    await db.set('g', 'v');
    assert.deepEqual(keysOn(a), ['g']);
    assert.deepEqual(keysOn(b), ['g']);
    assert.equal((await db.keys('*', { group: 'backup' })).length, 1);
    assert.equal(await db.dbsize({ group: 'main' }), 1);
    await a.stop();
    assert.equal(await db.get('g'), 'v');
  });

  test('a write that reaches only some groups is reported to onDirty and repaired by repair()', async () => {
    const [a, b] = await servers(2);
    const dirty = [];
    const options = { servers: [], groups: { one: [address(a)], two: [address(b)] }, reconnectMs: 100 };
    const db = kind.client([], { ...options, onDirty: (w) => dirty.push(w) });
    await b.stop();
    await db.set('d', 'v1');
    assert.equal(dirty.length, 1);
    assert.equal(dirty[0].command, 'set');
    assert.equal(dirty[0].key, 'd');
    assert.equal(dirty[0].code & 128, 128);
    const [again] = await servers(1, { port: b.port });
    assert.deepEqual(keysOn(again), []);
    await new Promise((r) => setTimeout(r, 300)); // past the reconnect delay
    assert.equal(await db.repair('d'), 1);
    assert.deepEqual(keysOn(again), ['d']);
  });

  test('password and db work while a replica group is down, and are replayed when it comes back', async () => {
    const { startRedis } = require('../../scripts/local-redis.js');
    const [up] = await servers(1, { password: 'pw' });
    const gone = await startRedis({ password: 'pw' });
    const port = gone.port;
    await gone.stop();
    const db = kind.keyloom.createClient({
      groups: { a: [`127.0.0.1:${up.port}`], b: [`127.0.0.1:${port}`] },
      password: 'pw', db: 2, connectTimeoutMs: 300, reconnectMs: 100,
    });
    try {
      await db.set('while-down', '1');  // group b is down: dirty, not an error
      assert.equal(await db.get('while-down'), '1');
      const back = await startRedis({ port, password: 'pw' });
      try {
        await new Promise((r) => setTimeout(r, 150));  // past the reconnect time-out
        let tries = 0;
        while (tries++ < 20) {
          await db.set('after', '2');
          const direct = keyloom.createClient({ servers: [`127.0.0.1:${port}`], password: 'pw', db: 2 });
          const seen = direct.get('after');
          direct.close();
          if (seen === '2') break;
          await new Promise((r) => setTimeout(r, 100));
        }
        const direct = keyloom.createClient({ servers: [`127.0.0.1:${port}`], password: 'pw', db: 2 });
        assert.equal(direct.get('after'), '2', 'the returned server got AUTH and SELECT 2 replayed');
        direct.close();
      } finally {
        await back.stop();
      }
    } finally {
      await db.close();
    }
  });

  test('clients made in a worker thread are destroyed when the thread ends or is terminated', async () => {
    const { Worker } = require('node:worker_threads');
    const [s] = await servers(1);
    const watcher = kind.client([s]);
    const connected = async () => Number(/connected_clients:(\d+)/.exec((await watcher.info())[0])[1]);
    const baseline = await connected();
    const body = `
      const { parentPort, workerData } = require('node:worker_threads');
      const { createClient } = require(workerData.client);
      const db = createClient({ servers: [workerData.server] });
      (async () => {
        await db.set('from-worker', 'yes');      // opens its connection; never closed here
        parentPort.postMessage('connected');
        if (workerData.linger) setInterval(() => {}, 1000);
      })();`;
    for (const linger of [false, true]) {
      const worker = new Worker(body, { eval: true,
        workerData: { client: kind.path, server: address(s), linger } });
      // Listened for from the start: a thread that ends on its own may be gone
      // before the message that it connected has been handled.
      const exited = new Promise((resolve) => worker.once('exit', resolve));
      await new Promise((resolve, reject) => { worker.once('message', resolve); worker.once('error', reject); });
      if (linger) await worker.terminate();
      else await exited;
      let n = await connected();
      for (let i = 0; i < 20 && n > baseline; i++) {
        await new Promise((r) => setTimeout(r, 50));
        n = await connected();
      }
      assert.equal(n, baseline, linger ? 'after terminate()' : 'after the thread ended');
    }
  });

  test('sort with BY/GET patterns or STORE on a sharded client needs a route that keeps the keys together', async () => {
    const list = await servers(2);
    const db = kind.client(list);
    // The list lives where its own name routes it; the keys its patterns name are
    // written with that name as their route, so they all land on its server.
    const route = { route: 'ids' };
    await db.rpush('ids', ['2', '1', '3']);
    for (const id of ['1', '2', '3']) await db.set(`weight:${id}`, String(10 - Number(id)), route);
    await assert.rejects(async () => db.sort('ids', { by: 'weight:*' }), (e) => e instanceof TypeError && /give sort the same route/.test(e.message));
    await assert.rejects(async () => db.sort('ids', { get: 'weight:*' }), TypeError);
    await assert.rejects(async () => db.sort('ids', { store: 'sorted' }), TypeError);
    // With the route every key named is on the route's server.
    assert.deepEqual(await db.sort('ids', { by: 'weight:*', ...route }), ['3', '2', '1']);
    assert.deepEqual(await db.sort('ids', { get: ['#', 'weight:*'], ...route }), ['1', '9', '2', '8', '3', '7']);
    // Without patterns sort needs no route (the list alone), and one server needs none at all.
    const ids = kind.client(list);
    await ids.rpush('plain', ['b', 'a']);
    assert.deepEqual(await ids.sort('plain', { alpha: true }), ['a', 'b']);
    const single = kind.client([list[0]]);
    await single.rpush('one', ['2', '1']);
    await single.set('w:1', '5');
    await single.set('w:2', '1');
    assert.deepEqual(await single.sort('one', { by: 'w:*' }), ['2', '1']);
  });
});
