'use strict';
// Binary values: set() stores a Buffer byte for byte, every reader can hand back
// Buffers, and a Buffer that is not UTF-8 is refused where only text can travel.
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, client } = require('./support.js');

let db;
test.before(async () => {
  db = client(await servers(1));
});
test.beforeEach(() => db.flushdb());

const allBytes = Buffer.from(Array.from({ length: 256 }, (_, i) => i));

test('all 256 byte values travel through set and get unchanged', () => {
  db.set('bin', allBytes);
  assert.deepEqual(db.getBuffer('bin'), allBytes);
  assert.deepEqual(db.get('bin', { buffer: true }), allBytes);
});

test('each single byte value is its own one-byte value', () => {
  for (let b = 0; b < 256; b++) {
    const one = Buffer.from([b]);
    db.set(`b:${b}`, one);
    assert.deepEqual(db.getBuffer(`b:${b}`), one, `byte ${b}`);
  }
  const got = db.mget(Array.from({ length: 256 }, (_, b) => `b:${b}`), { buffer: true });
  assert.deepEqual(Buffer.concat(got), allBytes);
});

test('zero bytes inside and at the ends of a value are kept', () => {
  const v = Buffer.from([0, 0, 65, 0, 66, 0]);
  db.set('z', v);
  assert.deepEqual(db.getBuffer('z'), v);
  db.set('z1', Buffer.from([0]));
  assert.deepEqual(db.getBuffer('z1'), Buffer.from([0]));
  db.set('empty', Buffer.alloc(0));
  assert.deepEqual(db.getBuffer('empty'), Buffer.alloc(0));
});

test('a value that looks like the null sentinel is still a value', () => {
  db.set('nl', '_NL_');
  assert.equal(db.get('nl'), '_NL_');
  db.rpush('nll', ['_NL_']);
  assert.deepEqual(db.lrange('nll'), ['_NL_']);
});

test('a Uint8Array value is stored like a Buffer', () => {
  const v = new Uint8Array([255, 254, 0, 1]);
  db.set('u8', v);
  assert.deepEqual(db.getBuffer('u8'), Buffer.from(v));
});

test('binary values keep their ttl', () => {
  db.set('bt', allBytes, { ttl: 100 });
  assert.ok(db.ttl('bt') > 0);
});

test('a UTF-8 Buffer is accepted as a key and as a value of other commands', () => {
  db.hset(Buffer.from('hash'), Buffer.from('fïeld'), Buffer.from('välue'));
  assert.equal(db.hget('hash', 'fïeld'), 'välue');
});

test('a Buffer that is not UTF-8 is refused with a clear error where only text travels', () => {
  const bad = Buffer.from([0xff, 0xfe]);
  assert.throws(() => db.hset('h', 'f', bad), (err) => err instanceof TypeError && /not valid UTF-8/.test(err.message));
  assert.throws(() => db.get(bad), /key is a Buffer that is not valid UTF-8/);
  assert.throws(() => db.rpush('l', [bad]), TypeError);
  assert.equal(db.exists('h'), false);
});

test('the raw bytes of a text value are its UTF-8 encoding', () => {
  db.set('t', 'é');
  assert.deepEqual(db.getBuffer('t'), Buffer.from([0xc3, 0xa9]));
  db.set('t2', Buffer.from([0xc3, 0xa9]));
  assert.equal(db.get('t2'), 'é');
});

test('set() with nx or xx stores a Buffer byte for byte, as plain set() does', () => {
  const every = Buffer.from(Array.from({ length: 256 }, (_, i) => i));
  db.del(['nx-bytes', 'xx-bytes']);
  assert.equal(db.set('nx-bytes', every, { nx: true }), true);
  assert.deepEqual(db.getBuffer('nx-bytes'), every);
  assert.equal(db.set('nx-bytes', Buffer.from([1, 2, 3]), { nx: true }), false);
  assert.deepEqual(db.getBuffer('nx-bytes'), every);
  assert.equal(db.set('xx-bytes', every, { xx: true }), false);
  assert.equal(db.exists('xx-bytes'), false);
  db.set('xx-bytes', 'old');
  assert.equal(db.set('xx-bytes', every, { xx: true, ttl: 60 }), true);
  assert.deepEqual(db.getBuffer('xx-bytes'), every);
  assert.ok(db.ttl('xx-bytes') > 0);
});
