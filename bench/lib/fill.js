'use strict';
// Loads the benchmark data into a server over one pipelined connection, with no
// client library involved. Ends with ECHO of a marker and waits for it.
const net = require('node:net');

function encode(args) {
  const parts = [`*${args.length}\r\n`];
  for (const a of args) parts.push(`$${Buffer.byteLength(a)}\r\n`, a, '\r\n');
  return parts.join('');
}

function send(port, commands, timeoutMs = 30000) {
  return new Promise((resolve, reject) => {
    const marker = `fill-done-${process.pid}-${Date.now()}`;
    const sock = net.connect({ host: '127.0.0.1', port });
    let tail = '';
    const timer = setTimeout(() => { sock.destroy(); reject(new Error(`fill of port ${port} timed out`)); }, timeoutMs);
    sock.on('error', (err) => { clearTimeout(timer); reject(err); });
    sock.on('data', (chunk) => {
      tail = (tail + chunk.toString('latin1')).slice(-200);
      if (tail.includes('-ERR')) { clearTimeout(timer); sock.destroy(); reject(new Error(`fill: ${tail}`)); }
      if (tail.endsWith(`${marker}\r\n`)) { clearTimeout(timer); sock.end(); resolve(); }
    });
    sock.on('connect', () => {
      for (const c of commands) sock.write(encode(c));
      sock.write(encode(['ECHO', marker]));
    });
  });
}

module.exports = { send, encode };
