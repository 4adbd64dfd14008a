'use strict';
// The data every contender reads and writes, named the same way everywhere
// (the C program builds the same names: PREFIX followed by the decimal index).
const strKey = (size) => `s${size}:`;      // read by GET / MGET, filled beforehand
const setKey = (size) => `w${size}:`;      // written by SET / MSET
const HASH_KEY = 'h100';                     // 100 fields "field:<i>" -> 16-byte values
const ZSET_KEY = 'z100';                     // 100 members "member:<i>", score i * 1.5
const HASH_FIELDS = 100;
const ZSET_MEMBERS = 100;

const keyNames = (prefix, n) => Array.from({ length: n }, (_, i) => prefix + i);
const valueOf = (size) => 'x'.repeat(size);

module.exports = { strKey, setKey, HASH_KEY, ZSET_KEY, HASH_FIELDS, ZSET_MEMBERS, keyNames, valueOf };
