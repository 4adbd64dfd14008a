'use strict';
// Commands the client has no method for (call), key iteration (scan and its
// kin) and Lua scripts (eval, evalsha, scriptLoad), against real servers,
// sharded and in groups.
const { test, before } = require('node:test');
const assert = require('node:assert/strict');
const { forEachKind, servers, client, address } = require('./support.js');
const { KeyloomError } = require('keyloom/client');

let shards;
let direct;
before(async () => {
  shards = await servers(3);
  direct = shards.map((s) => client([s]));
});

// Everything an iterator hands out, sync or async.
async function collect(iterable) {
  const out = [];
  for await (const item of iterable) out.push(item);
  return out;
}

forEachKind((kind) => {
  const tag = `${kind.name}:`;

  test('call() sends any command, routed by its first key, with replies decoded', async () => {
    const c = kind.client(shards);
    assert.equal(await c.call('SET', `${tag}a`, 'α'), 'OK');
    assert.equal(await c.call('GET', `${tag}a`), 'α');
    assert.deepEqual(await c.call('GET', `${tag}a`, { buffer: true }), Buffer.from('α'));
    assert.equal(await c.call('GET', `${tag}missing`), null);
    assert.equal(await c.call('INCRBY', `${tag}n`, 2n ** 60n), 2 ** 60 > Number.MAX_SAFE_INTEGER ? 2n ** 60n : 2 ** 60);
    assert.equal(await c.call('HSET', `${tag}h`, 'f', 'v', 'g', Buffer.from([0xff])), 2);
    assert.deepEqual(await c.call('HGETALL', `${tag}h`, { buffer: true }),
      [Buffer.from('f'), Buffer.from('v'), Buffer.from('g'), Buffer.from([0xff])]);
    assert.deepEqual(await c.call('LRANGE', `${tag}none`, 0, -1), []);
    // The key landed where the client's own methods look for it.
    assert.equal(await c.get(`${tag}a`), 'α');
    // options.key routes a command whose first argument is not the key.
    await c.set(`${tag}obj`, 'x');
    assert.equal(await c.call('OBJECT', 'ENCODING', `${tag}obj`, { key: `${tag}obj` }), 'embstr');
  });

  test('an error reply is a KeyloomError with the server and its words', async () => {
    const c = kind.client(shards);
    await c.set(`${tag}str`, 'x');
    await assert.rejects(async () => c.call('LPUSH', `${tag}str`, 'y'), (e) => e instanceof KeyloomError &&
      e.codeName === 'KL_SERVER_ERROR' && /^WRONGTYPE/.test(e.serverMessage) && /^127\.0\.0\.1:\d+$/.test(e.server));
    await assert.rejects(async () => c.call('NOSUCHCOMMAND', 'k'), (e) => /unknown command/i.test(e.serverMessage));
  });

  test('keyless commands go to one server or to every server', async () => {
    const c = kind.client(shards);
    assert.equal(await c.call('PING', { server: 0 }), 'PONG');
    assert.equal(await c.call('ECHO', 'hi', { server: address(shards[1]) }), 'hi');
    const all = await c.call('PING', { all: true });
    assert.deepEqual(Object.keys(all).sort(), shards.map(address).sort());
    assert.ok(Object.values(all).every((v) => v === 'PONG'));
    await assert.rejects(async () => c.call('PING'), (e) => e instanceof TypeError && /has no key to route by/.test(e.message));
    await assert.rejects(async () => c.call('PING', { server: 7 }), RangeError);
    await assert.rejects(async () => c.call('PING', { server: '10.9.9.9:1' }), TypeError);
    await assert.rejects(async () => c.call('GET', { colour: 1 }), /unknown option 'colour'/);
    await assert.rejects(async () => c.call('SET', 'k', {}, 1), (e) => e instanceof TypeError && /not object/.test(e.message));
  });

  test('writes with { write: true } reach every group; a group that misses one tells onDirty', async () => {
    const [first, second] = await servers(2);
    const dirty = [];
    const c = kind.client([], { groups: { a: [address(first)], b: [address(second)] }, onDirty: (w) => dirty.push(w), reconnectMs: 60000 });
    assert.equal(await c.call('SET', `${tag}both`, '1', { write: true }), 'OK');
    assert.equal(await client([first]).get(`${tag}both`), '1');
    assert.equal(await client([second]).get(`${tag}both`), '1');
    await second.stop();
    assert.equal(await c.call('SET', `${tag}half`, '2', { write: true }), 'OK');
    assert.equal(dirty.length, 1);
    assert.equal(dirty[0].command, 'SET');
  });

  test('scan() hands out every key of every shard once', async () => {
    const c = kind.client(shards);
    const keys = Array.from({ length: 900 }, (_, i) => `${tag}scan:${i}`);
    await c.mset(Object.fromEntries(keys.map((k) => [k, 'v'])));
    for (const d of direct) assert.ok(d.dbsize() > 0);
    const found = await collect(c.scan({ match: `${tag}scan:*`, count: 50 }));
    assert.equal(found.length, keys.length);
    assert.deepEqual([...found].sort(), [...keys].sort());
    const typed = await collect(c.scan({ match: `${tag}scan:1*`, type: 'string' }));
    assert.ok(typed.length > 0 && typed.every((k) => k.startsWith(`${tag}scan:1`)));
    const buffers = await collect(c.scan({ match: `${tag}scan:5`, buffer: true }));
    assert.deepEqual(buffers, [Buffer.from(`${tag}scan:5`)]);
    assert.throws(() => c.scan({ limit: 3 }), /unknown option 'limit'/);
    await c.del(keys);
  });

  test('hscan, sscan and zscan walk one key', async () => {
    const c = kind.client(shards);
    const fields = Object.fromEntries(Array.from({ length: 300 }, (_, i) => [`f${i}`, `v${i}`]));
    await c.call('HSET', `${tag}hash`, ...Object.entries(fields).flat());
    const pairs = await collect(c.hscan(`${tag}hash`, { count: 20 }));
    assert.deepEqual(Object.fromEntries(pairs), fields);
    const members = Array.from({ length: 200 }, (_, i) => `m${i}`);
    await c.call('SADD', `${tag}set`, ...members);
    assert.deepEqual((await collect(c.sscan(`${tag}set`, { match: 'm1*' }))).sort(), members.filter((m) => m.startsWith('m1')).sort());
    await c.call('ZADD', `${tag}zset`, 1.5, 'a', '-inf', 'b', 3, 'c');
    assert.deepEqual((await collect(c.zscan(`${tag}zset`))).sort(), [['a', 1.5], ['b', -Infinity], ['c', 3]].sort());
    assert.throws(() => c.hscan(), /the key is missing/);
  });

  test('eval runs a script on its keys\' server; keys on several servers are refused', async () => {
    const c = kind.client(shards, { hashTag: true });
    assert.deepEqual(await c.eval("redis.call('SET', KEYS[1], ARGV[1]); return {KEYS[1], redis.call('GET', KEYS[1])}",
      [`{${tag}u}:a`], ['x']), [`{${tag}u}:a`, 'x']);
    assert.equal(await c.get(`{${tag}u}:a`), 'x');
    // Keys with one tag meet on one server.
    assert.equal(await c.eval('return #KEYS', [`{${tag}u}:a`, `{${tag}u}:b`]), 2);
    const spread = Array.from({ length: 20 }, (_, i) => `${tag}spread:${i}`);
    await assert.rejects(async () => c.eval('return 1', spread), (e) => e instanceof KeyloomError &&
      /are on different servers/.test(e.message));
    await assert.rejects(async () => c.eval('return 1'), /needs \{ server \}/);
    assert.equal(await c.eval('return 7', [], [], { server: 0 }), 7);
    await assert.rejects(async () => c.eval("return redis.error_reply('nope')", [`${tag}k`]), (e) => /nope/.test(e.serverMessage));
  });

  test('evalsha of a loaded script survives a server that lost its scripts', async () => {
    const c = kind.client(shards);
    const script = "return redis.call('GET', KEYS[1])";
    const sha = await c.scriptLoad(script);
    assert.match(sha, /^[0-9a-f]{40}$/);
    await c.set(`${tag}e`, 'here');
    assert.equal(await c.evalsha(sha, [`${tag}e`]), 'here');
    // Every server forgets its scripts; the client runs it again as EVAL.
    for (const d of direct) d.call('SCRIPT', 'FLUSH', { server: 0 });
    assert.equal(await c.evalsha(sha, [`${tag}e`]), 'here');
    assert.equal(await c.eval(script, [`${tag}e`]), 'here');
    // A SHA-1 the client never saw is the server's NOSCRIPT.
    await assert.rejects(async () => c.evalsha('0'.repeat(40), [`${tag}e`]), (e) => /^NOSCRIPT/.test(e.serverMessage));
    await assert.rejects(async () => c.evalsha('xyz', [`${tag}e`]), TypeError);
  });

  test('a script write reaches every group and keeps the dirty bit', async () => {
    const [first, second] = await servers(2);
    const dirty = [];
    const c = kind.client([], { groups: { a: [address(first)], b: [address(second)] }, onDirty: (w) => dirty.push(w), reconnectMs: 60000 });
    await c.eval("return redis.call('SET', KEYS[1], ARGV[1])", [`${tag}s`], ['1']);
    assert.equal(client([second]).get(`${tag}s`), '1');
    await second.stop();
    await c.eval("return redis.call('SET', KEYS[1], ARGV[1])", [`${tag}s`], ['2']);
    assert.equal(dirty.length, 1);
    assert.equal(client([first]).get(`${tag}s`), '2');
  });
});
