'use strict';
// A minimal Redis-protocol connection for the checks of the reliability tests:
// sends commands and parses replies (simple, error, integer, bulk, array).
// Only for inspecting test servers directly, beside the library under test.
const net = require('node:net');

function parse(buf, pos) {
  if (pos >= buf.length) return null;
  const nl = buf.indexOf('\r\n', pos);
  if (nl < 0) return null;
  const type = String.fromCharCode(buf[pos]);
  const line = buf.toString('latin1', pos + 1, nl);
  const next = nl + 2;
  if (type === '+') return { value: line, pos: next };
  if (type === '-') return { value: new Error(line), pos: next };
  if (type === ':') return { value: Number(line), pos: next };
  if (type === '$') {
    const n = Number(line);
    if (n < 0) return { value: null, pos: next };
    if (buf.length < next + n + 2) return null;
    return { value: buf.subarray(next, next + n), pos: next + n + 2 };
  }
  if (type === '*') {
    const n = Number(line);
    if (n < 0) return { value: null, pos: next };
    const items = [];
    let p = next;
    for (let i = 0; i < n; i++) {
      const r = parse(buf, p);
      if (!r) return null;
      items.push(r.value);
      p = r.pos;
    }
    return { value: items, pos: p };
  }
  throw new Error(`bad reply type ${type}`);
}

function encode(args) {
  const parts = [`*${args.length}\r\n`];
  for (const a of args) {
    const b = Buffer.isBuffer(a) ? a : Buffer.from(String(a));
    parts.push(`$${b.length}\r\n`, b, '\r\n');
  }
  return Buffer.concat(parts.map((p) => (Buffer.isBuffer(p) ? p : Buffer.from(p))));
}

// Opens a connection; resolves to { call(...args) -> Promise<reply>, close() }.
function connect(port, host = '127.0.0.1', timeoutMs = 5000) {
  return new Promise((resolve, reject) => {
    const sock = net.connect({ port, host });
    let buf = Buffer.alloc(0);
    const waiting = [];
    sock.setTimeout(timeoutMs, () => sock.destroy(new Error(`server ${port}: timed out`)));
    sock.on('data', (d) => {
      buf = Buffer.concat([buf, d]);
      for (;;) {
        const r = parse(buf, 0);
        if (!r) break;
        buf = buf.subarray(r.pos);
        const w = waiting.shift();
        if (w) w.resolve(r.value);
      }
    });
    sock.on('error', (e) => { while (waiting.length) waiting.shift().reject(e); reject(e); });
    sock.on('close', () => { while (waiting.length) waiting.shift().reject(new Error('connection closed')); });
    sock.on('connect', () => resolve({
      call(...args) {
        return new Promise((res, rej) => { waiting.push({ resolve: res, reject: rej }); sock.write(encode(args)); });
      },
      close() { sock.destroy(); },
    }));
  });
}

// Every key of a server with its string value (other types are skipped).
async function dump(port, password) {
  const c = await connect(port);
  try {
    if (password) await c.call('AUTH', password);
    const out = new Map();
    let cursor = '0';
    do {
      const [next, keys] = await c.call('SCAN', cursor, 'COUNT', 1000);
      cursor = String(next);
      if (keys.length) {
        const values = await c.call('MGET', ...keys);
        keys.forEach((key, i) => { if (values[i] !== null) out.set(key.toString('latin1'), values[i].toString('latin1')); });
      }
    } while (cursor !== '0');
    return out;
  } finally {
    c.close();
  }
}

module.exports = { connect, dump };
