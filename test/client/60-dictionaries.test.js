'use strict';
// Dictionaries (words with values and weights, prefix completion).
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, forEachKind } = require('./support.js');

forEachKind(async (kind) => {
  const db = kind.client(await servers(1));
  test.beforeEach(async () => { await db.flushdb(); });

  test('dadd and dget; a missing word reads as null', async () => {
    await db.dadd('d', 'paris', 'France');
    assert.equal(await db.dget('d', 'paris'), 'France');
    assert.equal(await db.dget('d', 'rome'), null);
  });

  test('dclose completes a prefix, heaviest first, then in byte order', async () => {
    await db.dadd('d', 'parma', 'Italy', { weight: 3 });
    await db.dadd('d', 'paris', 'France', { weight: 10 });
    await db.dadd('d', 'pau', 'France', { weight: 3 });
    await db.dadd('d', 'porto', 'Portugal', { weight: 50 });
    assert.deepEqual(await db.dclose('d', 'pa'), [
      { word: 'paris', value: 'France' }, { word: 'parma', value: 'Italy' }, { word: 'pau', value: 'France' },
    ]);
    assert.deepEqual(await db.dclose('d', 'x'), []);
  });

  test('dgetall lists every entry; drem removes one', async () => {
    await db.dmadd('d', { a: '1', b: '2' }, { weight: 2 });
    await db.dadd('d', 'c', '3', { weight: 5 });
    assert.deepEqual(await db.dgetall('d'), [{ word: 'c', value: '3' }, { word: 'a', value: '1' }, { word: 'b', value: '2' }]);
    assert.equal(await db.drem('d', 'c'), true);
    assert.equal(await db.drem('d', 'c'), false);
    assert.deepEqual((await db.dgetall('d')).map((e) => e.word), ['a', 'b']);
    assert.deepEqual(await db.dgetall('missing'), []);
  });

  test('dmadd counts the words that were new', async () => {
    assert.equal(await db.dmadd('d', [['x', '1'], ['y', '2']]), 2);
    assert.equal(await db.dmadd('d', new Map([['y', '3'], ['z', '4']])), 1);
    assert.equal(await db.dget('d', 'y'), '3');
  });
});
