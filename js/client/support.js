'use strict';
// The pieces of the idiomatic client that are not commands: the error type and
// the text and number conversions at the JavaScript edge (each with the
// TypeError that names the command and the argument).
const { isUtf8 } = require('node:buffer');

const kl = require('../exact/index.js');

// Result codes by number (the dirty bit, 128, is never a code of its own here).
const CODE_NAMES = [
  'KL_SUCCESS', 'KL_ERROR', 'KL_PTHREAD_OP_FAILURE', 'KL_MEMORY_FAILURE', 'KL_CONNECTION_FAILURE',
  'KL_INVALID_CLIENT', 'KL_INVALID_COMMAND', 'KL_SERVER_ERROR', 'KL_SERVER_DOWN',
  'KL_UNKNOWN_REPLY', 'KL_WRONG_REPLY', 'KL_TTL_ALREADY_SET', 'KL_ALREADY_EXISTS', 'KL_NOTFOUND',
  'KL_NO_SERVER_ATTACHED', 'KL_INVALID_PARAMETER', 'KL_PARTIAL_RESULT', 'KL_NO_SET_KEY',
  'KL_SET_EMPTY_VALUE', 'KL_NO_SUBNET', 'KL_ALL_GROUP_SERVERS_DOWN',
];
const codes = Object.freeze(Object.fromEntries(CODE_NAMES.map((name, value) => [name, value])));
const DIRTY = 128;

/**
 * A failure reported by the library: `code` is its kl_return_t. The message is
 * the code's text, then the server ('host:port') and the cause when the
 * library knows them ("server down: 127.0.0.1:16399: connect ECONNREFUSED");
 * `server` is that server, and `serverMessage` the server's own error reply
 * when it answered with one (WRONGTYPE ..., WRONGPASS ...).
 */
class KeyloomError extends Error {
  constructor(code, { command, key, message, server, cause, serverMessage } = {}) {
    let text = message ?? kl.kl_strerror(code) ?? `result code ${code}`;
    if (server) text += `: ${server}`;
    if (cause ?? serverMessage) text += `: ${cause ?? serverMessage}`;
    super(text);
    this.name = 'KeyloomError';
    this.code = code;
    this.codeName = CODE_NAMES[code] ?? 'KL_UNKNOWN';
    if (command !== undefined) this.command = command;
    if (key !== undefined) this.key = key;
    if (server) this.server = server;
    if (serverMessage !== undefined) this.serverMessage = serverMessage;
  }
}

// ---- JavaScript values to the bytes the library gets --------------------------

function describe(value) {
  if (value === null) return 'null';
  if (Array.isArray(value)) return 'an array';
  return typeof value;
}

/**
 * A key, field, member or text value as the string the addon sends as UTF-8.
 * Numbers are written in decimal; a Buffer must hold valid UTF-8 (only set()
 * stores arbitrary bytes).
 */
function text(value, what, command) {
  if (typeof value === 'string') return value;
  if (typeof value === 'number' || typeof value === 'bigint') return String(value);
  if (value instanceof Uint8Array) {
    const bytes = Buffer.isBuffer(value) ? value : Buffer.from(value.buffer, value.byteOffset, value.byteLength);
    if (!isUtf8(bytes)) {
      throw new TypeError(`keyloom ${command}: the ${what} is a Buffer that is not valid UTF-8; ` +
        'only the value of set() may hold arbitrary bytes');
    }
    return bytes.toString('utf8');
  }
  throw new TypeError(`keyloom ${command}: the ${what} must be a string or a Buffer, not ${describe(value)}`);
}

const byteLength = (s) => Buffer.byteLength(s, 'utf8');

/** [name, value] pairs as [name, value, name, value, ...], each as text(); for an answered call. */
function textPairs(all, nameWhat, valueWhat, command) {
  const out = new Array(2 * all.length);
  for (let i = 0; i < all.length; i++) {
    out[2 * i] = text(all[i][0], nameWhat, command);
    out[2 * i + 1] = text(all[i][1], valueWhat, command);
  }
  return out;
}

/** Each item as text(); for an answered call's list of strings. */
function textList(items, what, command) {
  const out = new Array(items.length);
  for (let i = 0; i < items.length; i++) out[i] = text(items[i], what, command);
  return out;
}

function list(values, what, command) {
  if (!Array.isArray(values)) {
    throw new TypeError(`keyloom ${command}: ${what} must be an array, not ${describe(values)}`);
  }
  return values;
}

/** Pairs from a plain object, a Map or an array of [a, b] pairs. */
function pairs(input, what, command) {
  if (input instanceof Map) return [...input];
  if (Array.isArray(input)) {
    for (const p of input) {
      if (!Array.isArray(p) || p.length < 2) {
        throw new TypeError(`keyloom ${command}: ${what} given as an array must hold [name, value] pairs`);
      }
    }
    return input;
  }
  if (input !== null && typeof input === 'object') return Object.entries(input);
  throw new TypeError(`keyloom ${command}: ${what} must be an object, a Map or an array of pairs`);
}

/**
 * A non-negative whole number (a size_t: seconds of a TTL, a weight, an offset,
 * milliseconds or bytes of a setting). A fraction is refused rather than cut:
 * a TTL of 0.9 cut to 0 would remove the key's expiry instead of setting one.
 */
function seconds(value, what, command) {
  if (value === undefined || value === null) return 0;
  if (typeof value !== 'number' || !Number.isInteger(value) || value < 0 || value > Number.MAX_SAFE_INTEGER) {
    throw new TypeError(`keyloom ${command}: ${what} must be a whole number >= 0`);
  }
  return value;
}

function integer(value, what, command) {
  if (typeof value !== 'number' || !Number.isInteger(value)) {
    throw new TypeError(`keyloom ${command}: ${what} must be an integer`);
  }
  // The library takes a 32-bit int here: a wider value is refused, never cut.
  if (value < -2147483648 || value > 2147483647) {
    throw new RangeError(`keyloom ${command}: ${what} must be between -2147483648 and 2147483647`);
  }
  return value;
}

const INT64_MIN = -(2n ** 63n);
const INT64_MAX = 2n ** 63n - 1n;

/** A whole number as a BigInt: a safe-integer Number or a BigInt (checked for 64 bits by the caller). */
function wideInteger(value, what, command) {
  if (typeof value === 'bigint') return value;
  if (typeof value !== 'number' || !Number.isInteger(value)) {
    throw new TypeError(`keyloom ${command}: ${what} must be an integer (a Number or a BigInt)`);
  }
  if (!Number.isSafeInteger(value)) {
    throw new RangeError(`keyloom ${command}: ${what} is past 2^53, where a Number is no longer exact: give it as a BigInt`);
  }
  return BigInt(value);
}

/** Decimal text from the library as a Number, or a BigInt when a Number would not be exact. */
function decodeInteger(t) {
  const n = Number(t);
  return Number.isSafeInteger(n) ? n : BigInt(t);
}

function number(value, what, command) {
  if (typeof value !== 'number' || Number.isNaN(value)) {
    throw new TypeError(`keyloom ${command}: ${what} must be a number`);
  }
  return value;
}

// ---- Answers to JavaScript values ----------------------------------------------

/** Sets object[name], a field named "__proto__" included (as an own property). */
function assign(object, name, value) {
  if (name === '__proto__') {
    Object.defineProperty(object, name, { value, enumerable: true, writable: true, configurable: true });
  } else {
    object[name] = value;
  }
}

module.exports = {
  textList,
  textPairs,
  kl,
  codes,
  DIRTY,
  KeyloomError,
  text,
  byteLength,
  list,
  pairs,
  seconds,
  integer,
  wideInteger,
  decodeInteger,
  INT64_MIN,
  INT64_MAX,
  number,
  assign,
};
