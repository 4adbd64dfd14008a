'use strict';
// Failures: KeyloomError with the library's code and text, argument errors as
// TypeError, and a closed client.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, forEachKind, kl, address, ready } = require('./support.js');

test("the client's own native entry points take the exact layer's proxies and check arguments as it does", () => {
  const own = require(require('../helpers/paths.js').clientAddonPath);
  const h = kl.kl_client_create(kl.KL_HASH_DEFAULT, kl.KL_DISTRIBUTION_CONSISTENT, kl.new_mm(), kl.KL_FLAG_NONE);
  try {
    assert.equal(own.kl_client_max_reply_size(h, 1024), kl.KL_SUCCESS);
    assert.equal(own.kl_client_max_reply_size(null, 1024), kl.KL_INVALID_CLIENT);
    assert.throws(() => own.kl_client_max_reply_size(h), {
      message: 'Illegal number of arguments for _wrap_kl_client_max_reply_size.' });
    const cell = kl.new_intp();
    assert.throws(() => own.kl_client_max_reply_size(cell, 1), {
      message: "in method 'kl_client_max_reply_size', argument 1 of type 'kl_client *'" });
    kl.delete_intp(cell);
    assert.throws(() => own.kl_client_max_reply_size(h, -1), {
      message: "in method 'kl_client_max_reply_size', argument 2 of type 'size_t'" });
  } finally {
    kl.kl_client_destroy(h);
  }
});

forEachKind(async (kind) => {
  const { KeyloomError, createClient, codes } = kind.keyloom;
  const [server] = await servers(1);
  const db = kind.client([server]);
  test.beforeEach(async () => { await db.flushdb(); });

  test('a wrong-type operation fails with KeyloomError KL_SERVER_ERROR with the library text', async () => {
    await db.set('s', 'v');
    let caught;
    try {
      await db.lpush('s', 'x');
    } catch (err) {
      caught = err;
    }
    assert.ok(caught instanceof KeyloomError);
    assert.ok(caught instanceof Error);
    assert.equal(caught.name, 'KeyloomError');
    assert.equal(caught.code, kl.KL_SERVER_ERROR);
    assert.equal(caught.codeName, 'KL_SERVER_ERROR');
    assert.equal(caught.message,
      `${kl.kl_strerror(kl.KL_SERVER_ERROR)}: ${address(server)}: ${caught.serverMessage}`);
    assert.match(caught.serverMessage, /^WRONGTYPE /);
    assert.equal(caught.server, address(server));
    assert.equal(caught.command, 'lpush');
    assert.equal(caught.key, 's');
  });

  test('errors name the server and the cause: refused, timed out, closed, or the server\'s own words', async () => {
    const refused = createClient({ servers: ['127.0.0.1:1'], connectTimeoutMs: 500 });
    await assert.rejects(async () => refused.get('k'), (e) => e.server === '127.0.0.1:1' &&
      e.message === `${kl.kl_strerror(e.code)}: 127.0.0.1:1: connect ECONNREFUSED`);
    // Skipped while marked down: still says why.
    await assert.rejects(async () => refused.get('k'), (e) => /127\.0\.0\.1:1: connect ECONNREFUSED \(marked down\)$/.test(e.message));
    await refused.close();

    const [paused] = await servers(1);
    const slow = kind.client([paused], { connectTimeoutMs: 300 });
    await slow.set('k', 'v');
    paused.kill('SIGSTOP');
    try {
      await assert.rejects(async () => slow.get('k'), (e) => e.server === address(paused) &&
        new RegExp(`: ${address(paused)}: no reply in \\d+ ms$`).test(e.message) && e.serverMessage === undefined);
    } finally {
      paused.kill('SIGCONT');
    }
  });

  test('a wrong password is the server\'s refusal, and the password is in no message', async () => {
    const [locked] = await servers(1, { password: 'right-one' });
    let caught;
    try {
      await ready(kind, { servers: [address(locked)], password: 'not-the-secret-xyz' });
    } catch (err) {
      caught = err;
    }
    assert.ok(caught instanceof KeyloomError);
    assert.match(caught.serverMessage, /^WRONGPASS|^ERR invalid password/);
    assert.equal(caught.server, address(locked));
    assert.doesNotMatch(`${caught.message} ${caught.stack} ${JSON.stringify(caught)}`, /not-the-secret-xyz|right-one/);
  });

  test('reads of the wrong type fail too', async () => {
    await db.rpush('l', 'x');
    await assert.rejects(async () => db.get('l'), (e) => e instanceof KeyloomError && e.codeName === 'KL_SERVER_ERROR');
    await assert.rejects(async () => db.hgetall('l'), (e) => e.codeName === 'KL_SERVER_ERROR');
    await assert.rejects(async () => db.incr('l'), (e) => e.codeName === 'KL_SERVER_ERROR');
  });

  test('codes maps every result name to its number', () => {
    assert.equal(codes.KL_SUCCESS, 0);
    assert.equal(codes.KL_NOTFOUND, kl.KL_NOTFOUND);
    assert.equal(codes.KL_ALL_GROUP_SERVERS_DOWN, kl.KL_ALL_GROUP_SERVERS_DOWN);
    assert.equal(Object.keys(codes).length, 21);
  });

  test('a server that is down gives KL_SERVER_DOWN or KL_CONNECTION_FAILURE', async () => {
    const [gone] = await servers(1);
    const c = kind.client([gone]);
    await c.set('k', 'v');
    await gone.stop();
    await assert.rejects(async () => c.get('k'), (e) => e instanceof KeyloomError &&
      ['KL_SERVER_DOWN', 'KL_CONNECTION_FAILURE', 'KL_ALL_GROUP_SERVERS_DOWN'].includes(e.codeName));
  });

  test('a fractional TTL, weight or count is refused with TypeError, not cut', async () => {
    await db.set('ttl-kept', 'v', { ttl: 100 });
    await assert.rejects(async () => db.expire('ttl-kept', 0.9), (e) => e instanceof TypeError && /ttl must be a whole number >= 0/.test(e.message));
    assert.ok(await db.ttl('ttl-kept') > 0, 'the TTL is still there');
    await assert.rejects(async () => db.set('k', 'v', { ttl: 1.5 }), TypeError);
    await assert.rejects(async () => db.dadd('d', 'w', 'v', { weight: 2.5 }), TypeError);
    await assert.rejects(async () => db.sort('l', { limit: { offset: 0.5, count: 1 } }), TypeError);
    assert.equal(await db.get('k'), null);
  });

  test('counters and TTLs are 64-bit, exactly: a Number while it is exact, a BigInt past 2^53', async () => {
    await db.set('n', '5');
    assert.equal(await db.incrby('n', 4294967295), 4294967300);
    assert.equal(await db.get('n'), '4294967300');
    assert.equal(await db.decrby('n', 4294967300), 0);
    // A counter near 2^63 made with a TTL: no floating point on the way.
    assert.equal(await db.incrby('big', 9223372036854775000n, { ttl: 100 }), 9223372036854775000n);
    assert.equal(await db.incr('big'), 9223372036854775001n);
    assert.ok(await db.ttl('big') > 0);
    await assert.rejects(async () => db.incrby('big', 2n ** 63n), RangeError);
    await assert.rejects(async () => db.incrby('big', 2 ** 53), (e) => e instanceof RangeError && /give it as a BigInt/.test(e.message));
    await assert.rejects(async () => db.incrby('big', 1.5), TypeError);
    await assert.rejects(async () => db.decrby('big', -(2n ** 63n)), RangeError);
    assert.equal(await db.get('big'), '9223372036854775001');
    assert.equal(await db.hincrby('h', 'f', 8589934592), 8589934592);
    assert.equal(await db.hincrby('h', 'f', 2n ** 60n), 2n ** 60n + 8589934592n);
    await db.set('forever', 'v');
    await db.expire('forever', 3000000000);
    assert.ok(await db.ttl('forever') > 2 ** 31, 'a TTL past 2^31 seconds is not wrapped');
    assert.equal(await db.ttl('missing'), null);
  });

  test('indexes and counts wider than 32 bits are refused with RangeError, nothing is cut or sent', async () => {
    await db.rpush('l', 'a');
    await db.rpush('l', 'b');
    await assert.rejects(async () => db.lset('l', 2 ** 53 - 1, 'x'), RangeError);
    assert.deepEqual(await db.lrange('l'), ['a', 'b']);
    await db.zadd('z', 1, 'm');
    await assert.rejects(async () => db.zremrangebyrank('z', 2 ** 32, -1), RangeError);
    assert.equal(await db.zcard('z'), 1);
  });

  test('arguments of the wrong kind fail with TypeError before anything is sent', async () => {
    await assert.rejects(async () => db.set({}, 'v'), TypeError);
    await assert.rejects(async () => db.set('k', null), TypeError);
    await assert.rejects(async () => db.set('k', 'v', { ttl: -1 }), TypeError);
    await assert.rejects(async () => db.mget('k'), TypeError);
    await assert.rejects(async () => db.lrange('k', 0.5, 1), TypeError);
    await assert.rejects(async () => db.zadd('k', 'one', 'm'), TypeError);
    assert.equal(await db.dbsize(), 0);
  });

  // How an answer arrives is where the kinds differ; every other case awaits its
  // calls, which would pass with either, so each kind's own way is checked here.
  if (kind.name === 'sync') {
    test('a call returns its answer and throws its failure on the spot, duplicates too', () => {
      assert.equal(db.set('now', 'v'), true);
      assert.equal(db.get('now'), 'v');
      assert.throws(() => db.set({}, 'v'), TypeError);
      assert.throws(() => db.hgetall('now'), KeyloomError);
      const d = db.duplicate();
      try {
        assert.equal(d.get('now'), 'v');
      } finally {
        d.close();
      }
    });
  }
  if (kind.name === 'promises') {
    test('a call returns a promise; every failure, argument errors included, is a rejection', async () => {
      const stored = db.set('later', 'v');
      assert.ok(stored instanceof Promise);
      assert.equal(await stored, true);
      let badArgument;
      let wrongType;
      assert.doesNotThrow(() => { badArgument = db.set({}, 'v'); });
      assert.doesNotThrow(() => { wrongType = db.hgetall('later'); });
      await assert.rejects(badArgument, TypeError);
      await assert.rejects(wrongType, KeyloomError);
      const d = db.duplicate();
      assert.ok(!(d instanceof Promise), 'duplicate() returns the client itself');
      const read = d.get('later');
      assert.ok(read instanceof Promise);
      assert.equal(await read, 'v');
      const closing = d.close();
      assert.ok(closing instanceof Promise);
      await closing;
      assert.equal(d.closed, true);
    });
  }

  test('createClient rejects unknown hashes, distributions and bad servers', () => {
    assert.throws(() => createClient({ servers: [address(server)], hash: 'sha1' }), /unknown hash 'sha1'/);
    assert.throws(() => createClient({ servers: [address(server)], distribution: 'random' }), /unknown distribution/);
    assert.throws(() => createClient({ servers: ['127.0.0.1:0'] }), /bad port/);
    assert.throws(() => createClient({ servers: [] }), /no servers/);
  });

  test('createClient accepts every hash and distribution by name, and { host, port } servers', async () => {
    for (const hash of ['default', 'md5', 'crc', 'fnv1_64', 'fnv1a_64', 'fnv1_32', 'fnv1a_32', 'hsieh', 'murmur']) {
      for (const distribution of ['modula', 'consistent', 'ketama']) {
        const c = createClient({ servers: [{ host: server.host, port: server.port }], hash, distribution });
        try {
          await c.set(`h:${hash}:${distribution}`, 'v');
          assert.equal(await c.get(`h:${hash}:${distribution}`), 'v');
        } finally {
          await c.close();
        }
      }
    }
  });

  test('close() ends the client: later calls fail with KL_INVALID_CLIENT, closing again is harmless', async () => {
    const c = createClient({ servers: [address(server)] });
    await c.set('c', 'v');
    assert.equal(c.closed, false);
    await c.close();
    assert.equal(c.closed, true);
    await assert.rejects(async () => c.get('c'), (e) => e instanceof KeyloomError && e.codeName === 'KL_INVALID_CLIENT');
    assert.throws(() => c.handle, (e) => e.code === kl.KL_INVALID_CLIENT);
    await c.close();
    assert.equal(await db.get('c'), 'v');
  });

  test('duplicate() makes an independent client on the same servers', async () => {
    const c = createClient({ servers: [address(server)] });
    const d = c.duplicate();
    await c.close();
    await d.set('dup', 'v');
    assert.equal(await d.get('dup'), 'v');
    await d.close();
  });

  test('quit() closes connections, which reopen on the next command', async () => {
    await db.set('q', 'v');
    assert.equal(await db.quit(), true);
    assert.equal(await db.get('q'), 'v');
  });

  test('handle exposes the exact-layer client for calls the client does not wrap', async () => {
    await db.set('ex', 'v');
    assert.equal(kl.kl_exists(db.handle, 'ex', 2), kl.KL_SUCCESS);
  });

  test('password: a server that requires one works with it and refuses without it', async () => {
    const [locked] = await servers(1, { password: 's3cret' });
    const ok = kind.client([locked], { password: 's3cret' });
    await ok.set('p', 'v');
    assert.equal(await ok.get('p'), 'v');
    const c = kind.client([locked]);
    await assert.rejects(async () => c.get('p'), KeyloomError);
    await c.auth('s3cret');
    assert.equal(await c.get('p'), 'v');
  });

  test('username and password: an ACL user, with the default user switched off', async () => {
    const [acl] = await servers(1, { args: ['--user', 'default', 'off', '--user', 'app', 'on', '>app-pw', '~*', '&*', '+@all'] });
    const ok = kind.client([acl], { username: 'app', password: 'app-pw' });
    await ok.set('u', 'v');
    assert.equal(await ok.get('u'), 'v');
    const c = kind.client([acl]);
    await assert.rejects(async () => c.auth('app-pw'), (err) => err instanceof KeyloomError && err.codeName === 'KL_SERVER_ERROR');
    await assert.rejects(async () => c.auth('a\0b', 'app-pw'), TypeError);
    assert.equal(await c.auth('app', 'app-pw'), true);
    assert.equal(await c.get('u'), 'v');
  });

  test('db selects a database for the whole client', async () => {
    const c = kind.client([server], { db: 3 });
    await c.set('indb3', 'v');
    assert.equal(await db.get('indb3'), null);
    await db.select(3);
    assert.equal(await db.get('indb3'), 'v');
    await db.flushdb();
    await db.select(0);
  });

  test('maxReplyBytes refuses a larger reply with KL_MEMORY_FAILURE and keeps the server in use', async () => {
    const [s] = await servers(1);
    const big = kind.client([s]);
    await big.set('large', 'x'.repeat(64 * 1024));
    await big.set('small', 'v');
    const capped = kind.client([s], { maxReplyBytes: 16 * 1024 });
    await assert.rejects(async () => capped.get('large'), (e) => e instanceof KeyloomError && e.code === codes.KL_MEMORY_FAILURE);
    assert.equal(await capped.get('small'), 'v');
    assert.equal((await big.get('large')).length, 64 * 1024);
    assert.throws(() => createClient({ servers: [address(s)], maxReplyBytes: -1 }), TypeError);
  });

  test('handle keeps its client alive after the client object itself is dropped', async () => {
    const [s] = await servers(1);
    const watcher = kind.client([s]);
    const connected = async () => Number(/connected_clients:(\d+)/.exec((await watcher.info())[0])[1]);
    let handle = await (async () => {
      const c = createClient({ servers: [address(s)], connectTimeoutMs: 2000 });
      await c.set('alive', 'yes');  // opens its connection
      return c.handle;
    })();
    const before = await connected();
    for (let i = 0; i < 5; i++) {
      globalThis.gc();
      await new Promise((r) => setTimeout(r, 20));  // finalisers run in a later task
    }
    assert.equal(await connected(), before, 'the client behind the handle was not destroyed');
    assert.equal(kl.kl_exists(handle, 'alive', 5), kl.KL_SUCCESS);
    handle = null;  // now both go, and the finaliser frees the client once
  });

  test('createClient takes { host, port }, { url }, { server } and redis:// URLs, and refuses what it cannot honour', async () => {
    const [s] = await servers(1);
    await db.set('where', 'here');
    for (const options of [{ host: s.host, port: s.port }, { url: `redis://${address(s)}` }, { server: address(s) },
      { servers: [`redis://${address(s)}/0`] }]) {
      const c = createClient({ ...options, connectTimeoutMs: 2000 });
      try {
        await c.set('seen', 'yes');
        assert.equal(await c.get('seen'), 'yes', JSON.stringify(options));
      } finally {
        await c.close();
      }
    }
    const inDb3 = createClient({ url: `redis://${address(s)}/3` });
    await inDb3.set('only-in-3', 'x');
    await inDb3.close();
    const in0 = createClient({ server: address(s) });
    assert.equal(await in0.get('only-in-3'), null);
    await in0.select(3);
    assert.equal(await in0.get('only-in-3'), 'x');
    await in0.close();

    const refuse = (options, pattern) => assert.throws(() => createClient(options), (e) =>
      e instanceof TypeError && pattern.test(e.message) && !/hunter2/.test(e.message));
    refuse({ servers: [address(s)], keyPrefix: 'app:' }, /keyPrefix is not supported/);
    refuse({ servers: [address(s)], socket: { port: 1 } }, /write \{ host, port \}/);
    refuse({ servers: [address(s)], colour: 'blue' }, /unknown option 'colour'/);
    refuse({ port: 6379 }, /port goes with host/);
    refuse({ host: 'a', servers: ['b'] }, /give the servers one way/);
    refuse({ url: 'rediss://h:6379', tls: { ca: 'not pem' } }, /ca: no PEM certificate/);
    refuse({ servers: ['admin:hunter2@h:6379'] }, /must be a redis:\/\/ URL/);
    refuse({ url: 'redis://:hunter2@h:6379', password: 'other' }, /password is given twice/);
  });

  test('a password in a redis:// URL authenticates and never shows in an error', async () => {
    const [locked] = await servers(1, { password: 'hunter2' });
    const c = await ready(kind, { url: `redis://:hunter2@${address(locked)}` });
    await c.set('k', 'v');
    assert.equal(await c.get('k'), 'v');
    await c.close();
    await assert.rejects(() => ready(kind, { url: `redis://:wrong-hunter3@${address(locked)}` }), (e) =>
      e instanceof KeyloomError && !/hunter/.test(`${e.message} ${e.stack}`));
  });

  test('surplus arguments and unknown options are refused with what to write instead, before anything is sent', async () => {
    await db.set('kept', 'as it was');
    const refused = (call, pattern) => assert.rejects(async () => call(), (e) => e instanceof TypeError && pattern.test(e.message));
    await refused(() => db.set('kept', 'v', 'EX', 30), /too many arguments \(4\).*write set\(key, value, \{ ttl: 30 \}\)/);
    await refused(() => db.set('kept', 'v', 30), /options are an object, not number: write set\(key, value, \{ ttl: 30 \}\)/);
    await refused(() => db.del('kept', 'other'), /too many arguments \(2\).*write del\(\[key1, key2\]\)/);
    await refused(() => db.lpush('list', 'a', 'b'), /write lpush\(key, \[value1, value2\]\)/);
    await refused(() => db.get('kept', { bufer: true }), /unknown option 'bufer' \(it reads route, buffer\)/);
    await refused(() => db.set('kept', 'v', { ttl: 5, px: 100 }), /unknown option 'px'/);
    await refused(() => db.exists('kept', 'other'), /too many arguments \(2\); it takes exists\(key\)/);
    assert.equal(await db.get('kept'), 'as it was');
    assert.equal(await db.exists('list'), false);
    // The options of other forms still work.
    assert.equal(await db.set('kept', 'v', { ttl: 30, nx: true }), false);
    assert.equal(await db.set('fresh', 'v', { ttl: 30, nx: true }), true);
    assert.ok(await db.ttl('fresh') > 0);
  });
});
