'use strict';
// What every example needs before its first command: a built addon (a fresh clone
// gets its dependencies installed and the addon built on first use) and servers to
// talk to. With KEYLOOM_SERVERS=host:port[,host:port...] the examples use those
// servers; otherwise they start their own redis-server processes on free loopback
// ports and stop them (by pid) when they are done.
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');

const root = path.resolve(__dirname, '..', '..');

const { addonPath, clientAddonPath, buildDir } = require('../../js/build-location.js');

function onPath(command) {
  try {
    execFileSync('sh', ['-c', `command -v ${command}`], { stdio: 'ignore' });
    return true;
  } catch {
    return false;
  }
}

/**
 * Installs what the examples use and builds the addon when it has not been built
 * yet: a server, the build tools and hiredis (no test or benchmark tools), and
 * the build of build/ (no tests), showing its progress.
 */
function ensureBuilt() {
  const needServer = !process.env.KEYLOOM_SERVERS && !onPath('redis-server');
  const built = fs.existsSync(addonPath) && fs.existsSync(clientAddonPath);
  if (!needServer && built) return;
  console.log('keyloom: first run - installing what the examples need and building the addon (once, about a minute) ...');
  execFileSync('bash', [path.join(root, 'scripts', 'install-deps.sh'), '--demo'], { stdio: 'inherit' });
  if (!built) {
    const { build } = require('../../scripts/build.js');
    build({ buildDir });
  }
}

/**
 * Resolves to { servers: ['host:port', ...], started, stop() }. `count` local
 * servers are started when KEYLOOM_SERVERS is not set; with KEYLOOM_SERVERS the
 * servers given there are used as they are (whatever their number).
 */
async function useServers(count = 1) {
  if (process.env.KEYLOOM_SERVERS) {
    const servers = process.env.KEYLOOM_SERVERS.split(',').map((s) => s.trim()).filter(Boolean);
    return { servers, started: false, async stop() {} };
  }
  const { startRedis } = require('../../scripts/local-redis.js');
  const running = [];
  try {
    for (let i = 0; i < count; i++) running.push(await startRedis());
  } catch (err) {
    await Promise.all(running.map((s) => s.stop()));
    throw err;
  }
  return {
    servers: running.map((s) => `${s.host}:${s.port}`),
    started: true,
    async stop() {
      await Promise.all(running.map((s) => s.stop()));
    },
  };
}

/**
 * Runs an example: makes sure the addon is built, provides servers, runs
 * body(servers), and stops what it started whatever happens. Exits non-zero on
 * failure.
 */
async function runExample(count, body) {
  ensureBuilt();
  const env = await useServers(count);
  try {
    await body(env.servers, env);
  } catch (err) {
    process.exitCode = 1;
    console.error(err);
  } finally {
    await env.stop();
  }
}

module.exports = { ensureBuilt, useServers, runExample };
