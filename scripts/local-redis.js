'use strict';
// Starts and stops throwaway redis-server processes on free loopback ports, for
// the tests, the demo, the examples and the benchmarks. Servers are stopped by
// pid, never by name, and keep nothing on disk.
const { spawn } = require('node:child_process');
const fs = require('node:fs');
const net = require('node:net');
const os = require('node:os');
const path = require('node:path');

function freePort() {
  return new Promise((resolve, reject) => {
    const srv = net.createServer();
    srv.unref();
    srv.on('error', reject);
    srv.listen(0, '127.0.0.1', () => {
      const { port } = srv.address();
      srv.close(() => resolve(port));
    });
  });
}

function ping(port, timeoutMs = 200) {
  return new Promise((resolve) => {
    const sock = net.connect({ host: '127.0.0.1', port });
    let data = '';
    const done = (ok) => { sock.destroy(); resolve(ok); };
    sock.setTimeout(timeoutMs, () => done(false));
    sock.on('error', () => done(false));
    sock.on('connect', () => sock.write('PING\r\n'));
    sock.on('data', (chunk) => {
      data += chunk;
      if (data.includes('\r\n')) done(data.startsWith('+PONG') || data.startsWith('-NOAUTH'));
    });
  });
}

const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

// Servers still running; one exit hook kills them all, so that no server
// outlives the process that started it.
const running = new Set();
process.once('exit', () => {
  for (const child of running) { try { process.kill(child.pid, 'SIGKILL'); } catch {} }
});

/**
 * Starts redis-server on 127.0.0.1. Options: port (default: a free one),
 * password, args (extra command-line arguments). Resolves to
 * { host, port, pid, stop(), kill(signal), dir }.
 */
async function startRedis({ port, password, args = [] } = {}) {
  port = port || await freePort();
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), `keyloom-redis-${port}-`));
  const argv = ['--bind', '127.0.0.1', '--port', String(port), '--save', '', '--appendonly', 'no',
    '--dir', dir, '--daemonize', 'no', '--protected-mode', 'yes', '--logfile', path.join(dir, 'redis.log')];
  if (password) argv.push('--requirepass', password);
  argv.push(...args);
  const child = spawn('redis-server', argv, { stdio: 'ignore' });
  let exited = false;
  child.on('exit', () => { exited = true; });
  const deadline = Date.now() + 5000;
  while (!(await ping(port))) {
    if (exited || Date.now() > deadline) {
      const log = fs.existsSync(path.join(dir, 'redis.log')) ? fs.readFileSync(path.join(dir, 'redis.log'), 'utf8') : '';
      try { child.kill('SIGKILL'); } catch {}
      throw new Error(`redis-server on port ${port} did not start\n${log}`);
    }
    await sleep(20);
  }
  const server = {
    host: '127.0.0.1',
    port,
    pid: child.pid,
    dir,
    child,
    get running() { return !exited; },
    kill(signal = 'SIGKILL') { try { process.kill(child.pid, signal); } catch {} },
    async stop() {
      if (!exited) {
        const gone = new Promise((r) => child.once('exit', r));
        try { process.kill(child.pid, 'SIGCONT'); } catch {}
        try { process.kill(child.pid, 'SIGTERM'); } catch {}
        const t = setTimeout(() => { try { process.kill(child.pid, 'SIGKILL'); } catch {} }, 3000);
        await gone;
        clearTimeout(t);
      }
      fs.rmSync(dir, { recursive: true, force: true });
    },
  };
  running.add(child);
  child.once('exit', () => running.delete(child));
  return server;
}

module.exports = { startRedis, freePort, ping };
