'use strict';
// Dictionaries (words with values and weights, prefix completion).
const test = require('node:test');
const assert = require('node:assert/strict');
const { servers, client } = require('./support.js');

let db;
test.before(async () => {
  db = client(await servers(1));
});
test.beforeEach(() => db.flushdb());

test('dadd and dget; a missing word reads as null', () => {
  db.dadd('d', 'paris', 'France');
  assert.equal(db.dget('d', 'paris'), 'France');
  assert.equal(db.dget('d', 'rome'), null);
});

test('dclose completes a prefix, heaviest first, then in byte order', () => {
  db.dadd('d', 'parma', 'Italy', { weight: 3 });
  db.dadd('d', 'paris', 'France', { weight: 10 });
  db.dadd('d', 'pau', 'France', { weight: 3 });
  db.dadd('d', 'porto', 'Portugal', { weight: 50 });
  assert.deepEqual(db.dclose('d', 'pa'), [
    { word: 'paris', value: 'France' }, { word: 'parma', value: 'Italy' }, { word: 'pau', value: 'France' },
  ]);
  assert.deepEqual(db.dclose('d', 'x'), []);
});

test('dgetall lists every entry; drem removes one', () => {
  db.dmadd('d', { a: '1', b: '2' }, { weight: 2 });
  db.dadd('d', 'c', '3', { weight: 5 });
  assert.deepEqual(db.dgetall('d'), [{ word: 'c', value: '3' }, { word: 'a', value: '1' }, { word: 'b', value: '2' }]);
  assert.equal(db.drem('d', 'c'), true);
  assert.equal(db.drem('d', 'c'), false);
  assert.deepEqual(db.dgetall('d').map((e) => e.word), ['a', 'b']);
  assert.deepEqual(db.dgetall('missing'), []);
});

test('dmadd counts the words that were new', () => {
  assert.equal(db.dmadd('d', [['x', '1'], ['y', '2']]), 2);
  assert.equal(db.dmadd('d', new Map([['y', '3'], ['z', '4']])), 1);
  assert.equal(db.dget('d', 'y'), '3');
});
