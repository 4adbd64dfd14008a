'use strict';
// Where a key belongs, computed here independently of the library: the key
// hashes and the two continuums, written from their published definitions.
const crypto = require('node:crypto');

/** Jenkins one-at-a-time (the default key hash), unsigned 32 bits. */
function oneAtATime(bytes) {
  let h = 0;
  for (const b of bytes) {
    h = (h + b) >>> 0;
    h = (h + (h << 10)) >>> 0;
    h = (h ^ (h >>> 6)) >>> 0;
  }
  h = (h + (h << 3)) >>> 0;
  h = (h ^ (h >>> 11)) >>> 0;
  return (h + (h << 15)) >>> 0;
}

const md5 = (bytes) => crypto.createHash('md5').update(bytes).digest();
/** The MD5 key hash: the digest's first four bytes, little-endian. */
const md5Hash = (bytes) => md5(bytes).readUInt32LE(0);

const HASHES = { default: oneAtATime, md5: md5Hash };

/** A server's point string base: host:port, or host for port 11211. */
const pointBase = ({ host, port }) => (port === 11211 ? host : `${host}:${port}`);

// Sorted by value, equal values by server index; a key takes the first
// point at or above its hash, else the first point.
function lookup(points, h) {
  points.sort((a, b) => a.value - b.value || a.server - b.server);
  const found = points.find((p) => p.value >= h);
  return (found ?? points[0]).server;
}

/** The 100-point continuum, each point the key hash of "base-i". */
function consistentIndex(servers, keyHash, hash) {
  const points = servers.flatMap((s, server) => Array.from({ length: 100 },
    (_, i) => ({ value: hash(Buffer.from(`${pointBase(s)}-${i}`)), server })));
  return lookup(points, keyHash);
}

/** The weighted MD5 continuum: digests per server in single precision, 4 points each. */
function ketamaIndex(servers, keyHash) {
  const f = Math.fround;
  const total = servers.reduce((sum, s) => sum + (s.weight ?? 1), 0);
  const n = servers.length;
  const points = [];
  servers.forEach((s, server) => {
    const pct = f(f(s.weight ?? 1) / f(total));
    const digests = Math.floor(f(f(f(pct * 160) / 4) * f(n)));
    for (let i = 0; i < digests; i++) {
      const d = md5(Buffer.from(`${pointBase(s)}-${i}`));
      for (let j = 0; j < 4; j++) points.push({ value: d.readUInt32LE(4 * j), server });
    }
  });
  return lookup(points, keyHash);
}

/** Redis Cluster's hash tag: the bytes between the first '{' and the next '}', when not empty. */
function hashTagOf(key) {
  const open = key.indexOf('{');
  if (open < 0) return key;
  const close = key.indexOf('}', open + 1);
  return close > open + 1 ? key.slice(open + 1, close) : key;
}

/**
 * The index of the server (in servers, each { host, port, weight? }) that a
 * key belongs to, for a distribution ('consistent' or 'ketama') and hash.
 */
function serverIndex(servers, key, { distribution = 'consistent', hash = 'default', hashTag = false } = {}) {
  const routed = Buffer.from(hashTag ? hashTagOf(key) : key);
  const h = HASHES[hash](routed);
  return distribution === 'ketama' ? ketamaIndex(servers, h) : consistentIndex(servers, h, HASHES[hash]);
}

module.exports = { oneAtATime, md5Hash, hashTagOf, serverIndex };
