'use strict';
// Binary values: set() stores a Buffer byte for byte, every reader can hand back
// Buffers, and a Buffer that is not UTF-8 is refused where only text can travel.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, forEachKind } = require('./support.js');

const allBytes = Buffer.from(Array.from({ length: 256 }, (_, i) => i));

forEachKind(async (kind) => {
  const db = kind.client(await servers(1));
  test.beforeEach(async () => { await db.flushdb(); });

  test('all 256 byte values travel through set and get unchanged', async () => {
    await db.set('bin', allBytes);
    assert.deepEqual(await db.getBuffer('bin'), allBytes);
    assert.deepEqual(await db.get('bin', { buffer: true }), allBytes);
  });

  test('each single byte value is its own one-byte value', async () => {
    for (let b = 0; b < 256; b++) {
      const one = Buffer.from([b]);
      await db.set(`b:${b}`, one);
      assert.deepEqual(await db.getBuffer(`b:${b}`), one, `byte ${b}`);
    }
    const got = await db.mget(Array.from({ length: 256 }, (_, b) => `b:${b}`), { buffer: true });
    assert.deepEqual(Buffer.concat(got), allBytes);
  });

  test('zero bytes inside and at the ends of a value are kept', async () => {
    const v = Buffer.from([0, 0, 65, 0, 66, 0]);
    await db.set('z', v);
    assert.deepEqual(await db.getBuffer('z'), v);
    await db.set('z1', Buffer.from([0]));
    assert.deepEqual(await db.getBuffer('z1'), Buffer.from([0]));
    await db.set('empty', Buffer.alloc(0));
    assert.deepEqual(await db.getBuffer('empty'), Buffer.alloc(0));
  });

  test('a value that looks like the null sentinel is still a value', async () => {
    await db.set('nl', '_NL_');
    assert.equal(await db.get('nl'), '_NL_');
    await db.rpush('nll', ['_NL_']);
    assert.deepEqual(await db.lrange('nll'), ['_NL_']);
  });

  test('a Uint8Array value is stored like a Buffer', async () => {
    const v = new Uint8Array([255, 254, 0, 1]);
    await db.set('u8', v);
    assert.deepEqual(await db.getBuffer('u8'), Buffer.from(v));
  });

  test('binary values keep their ttl', async () => {
    await db.set('bt', allBytes, { ttl: 100 });
    assert.ok(await db.ttl('bt') > 0);
  });

  test('a UTF-8 Buffer is accepted as a key and as a value of other commands', async () => {
    await db.hset(Buffer.from('hash'), Buffer.from('fïeld'), Buffer.from('välue'));
    assert.equal(await db.hget('hash', 'fïeld'), 'välue');
  });

  test('a Buffer that is not UTF-8 is refused with a clear error where only text travels', async () => {
    const bad = Buffer.from([0xff, 0xfe]);
    await assert.rejects(async () => db.hset('h', 'f', bad), (err) => err instanceof TypeError && /not valid UTF-8/.test(err.message));
    await assert.rejects(async () => db.get(bad), /key is a Buffer that is not valid UTF-8/);
    await assert.rejects(async () => db.rpush('l', [bad]), TypeError);
    assert.equal(await db.exists('h'), false);
  });

  test('the raw bytes of a text value are its UTF-8 encoding', async () => {
    await db.set('t', 'é');
    assert.deepEqual(await db.getBuffer('t'), Buffer.from([0xc3, 0xa9]));
    await db.set('t2', Buffer.from([0xc3, 0xa9]));
    assert.equal(await db.get('t2'), 'é');
  });

  test('set() with nx or xx stores a Buffer byte for byte, as plain set() does', async () => {
    const every = Buffer.from(Array.from({ length: 256 }, (_, i) => i));
    await db.del(['nx-bytes', 'xx-bytes']);
    assert.equal(await db.set('nx-bytes', every, { nx: true }), true);
    assert.deepEqual(await db.getBuffer('nx-bytes'), every);
    assert.equal(await db.set('nx-bytes', Buffer.from([1, 2, 3]), { nx: true }), false);
    assert.deepEqual(await db.getBuffer('nx-bytes'), every);
    assert.equal(await db.set('xx-bytes', every, { xx: true }), false);
    assert.equal(await db.exists('xx-bytes'), false);
    await db.set('xx-bytes', 'old');
    assert.equal(await db.set('xx-bytes', every, { xx: true, ttl: 60 }), true);
    assert.deepEqual(await db.getBuffer('xx-bytes'), every);
    assert.ok(await db.ttl('xx-bytes') > 0);
  });
});
