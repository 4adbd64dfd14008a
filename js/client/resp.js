'use strict';
// The protocol's own form, for the commands the client has no method for: a
// request written as a RESP array of bulk strings, and a reply (as the library
// hands it back, re-written as RESP) read into plain values.
const { codes, KeyloomError } = require('./support.js');

// One word of a request as its bytes: strings as UTF-8, numbers and BigInts in decimal.
function wordOf(value, command) {
  if (value instanceof Uint8Array) return Buffer.from(value.buffer, value.byteOffset, value.byteLength);
  if (typeof value === 'string') return Buffer.from(value, 'utf8');
  if ((typeof value === 'number' && Number.isFinite(value)) || typeof value === 'bigint') return Buffer.from(String(value));
  const what = value === null ? 'null' : Array.isArray(value) ? 'an array' : typeof value;
  throw new TypeError(`keyloom ${command}: the arguments of a command are strings, Buffers or numbers, not ${what}`);
}

/** The request for words (already checked by wordOf), as one Buffer. */
function encodeRequest(words) {
  const parts = [Buffer.from(`*${words.length}\r\n`)];
  for (const w of words) parts.push(Buffer.from(`$${w.length}\r\n`), w, Buffer.from('\r\n'));
  return Buffer.concat(parts);
}

/**
 * The value of a RESP reply: bulk strings as UTF-8 strings (Buffers with
 * asBuffer), status replies as strings, integers as Numbers (BigInts past
 * 2^53), nil as null, arrays as arrays; an error inside an array becomes a
 * KeyloomError in its place.
 */
function decodeReply(bytes, asBuffer, command) {
  let at = 0;
  const line = () => {
    const end = bytes.indexOf('\r\n', at, 'latin1');
    const text = bytes.toString('latin1', at, end);
    at = end + 2;
    return text;
  };
  const read = () => {
    const type = String.fromCharCode(bytes[at++]);
    switch (type) {
      case '$': {
        const n = Number(line());
        if (n < 0) return null;
        const body = bytes.subarray(at, at + n);
        at += n + 2;
        return asBuffer ? Buffer.from(body) : body.toString('utf8');
      }
      case '+': return Buffer.from(line(), 'latin1').toString('utf8');
      case '-': return new KeyloomError(codes.KL_SERVER_ERROR, { command, serverMessage: Buffer.from(line(), 'latin1').toString('utf8') });
      case ':': {
        const t = line();
        const n = Number(t);
        return Number.isSafeInteger(n) ? n : BigInt(t);
      }
      case '*': {
        const n = Number(line());
        if (n < 0) return null;
        const out = new Array(n);
        for (let i = 0; i < n; i++) out[i] = read();
        return out;
      }
      default:
        throw new KeyloomError(codes.KL_UNKNOWN_REPLY, { command, message: 'a reply the client cannot read' });
    }
  };
  return read();
}

module.exports = { wordOf, encodeRequest, decodeReply };
