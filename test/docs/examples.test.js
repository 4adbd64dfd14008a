'use strict';
// The demo and every example run against their own local servers (nothing in
// KEYLOOM_SERVERS), print what they did and exit 0; the demo stops what it started.
const test = require('node:test');
const assert = require('node:assert/strict');
const { spawnSync } = require('node:child_process');
const path = require('node:path');
const paths = require('../helpers/paths.js');

const examples = ['demo.js', 'cache.js', 'leaderboard.js', 'autocomplete.js', 'routing.js', 'service.js'];

const net = require('node:net');

function accepts(host, port) {
  return new Promise((resolve) => {
    const sock = net.connect({ host, port });
    sock.setTimeout(1000, () => { sock.destroy(); resolve(false); });
    sock.on('connect', () => { sock.destroy(); resolve(true); });
    sock.on('error', () => resolve(false));
  });
}

for (const name of examples) {
  test(`examples/${name} runs against its own servers and exits 0`, () => {
    const env = { ...process.env, KEYLOOM_BUILD_DIR: paths.buildDir };
    delete env.KEYLOOM_SERVERS;
    const r = spawnSync(process.execPath, [path.join(paths.root, 'examples', name)],
      { cwd: paths.root, env, encoding: 'utf8', timeout: 120000 });
    assert.equal(r.status, 0, `${name} failed:\n${r.stderr}\n${r.stdout}`);
    assert.ok(r.stdout.split('\n').length > 3, 'it printed what it did');
  });
}

test('the demo says what it did with each family and stops the servers it started', async () => {
  const env = { ...process.env, KEYLOOM_BUILD_DIR: paths.buildDir };
  delete env.KEYLOOM_SERVERS;
  const r = spawnSync(process.execPath, [path.join(paths.root, 'examples', 'demo.js')],
    { cwd: paths.root, env, encoding: 'utf8', timeout: 120000 });
  assert.equal(r.status, 0, r.stderr);
  for (const heading of ['Strings', 'Counters', 'Lists', 'Hashes', 'Sorted sets', 'Sets', 'Dictionary', 'Multi-key']) {
    assert.match(r.stdout, new RegExp(`^${heading}`, 'm'));
  }
  assert.match(r.stdout, /"hello, world"/);
  assert.match(r.stdout, /KL_SERVER_ERROR/);
  const started = /started (\S+):(\d+) and (\S+):(\d+)/.exec(r.stdout);
  assert.ok(started, 'it names the servers it started');
  assert.equal(await accepts(started[1], Number(started[2])), false);
  assert.equal(await accepts(started[3], Number(started[4])), false);
});

test('on servers of the user\'s the demo deletes exactly the keys it wrote, and nothing else', async () => {
  const { startRedis } = require('../../scripts/local-redis.js');
  const { createClient } = require('keyloom/client');
  const servers = [await startRedis(), await startRedis()];
  try {
    const addresses = servers.map((s) => `${s.host}:${s.port}`);
    const mine = createClient({ servers: addresses, distribution: 'ketama' });
    // Keys the demo also uses, under the user's own names, on every server.
    const foreign = ['greeting', 'visits', 'queue', 'item:0', 'user:1', 'cities'];
    for (const key of foreign) mine.set(key, `the user's ${key}`);
    const before = mine.dbsize();
    const env = { ...process.env, KEYLOOM_BUILD_DIR: paths.buildDir, KEYLOOM_SERVERS: addresses.join(',') };
    const r = spawnSync(process.execPath, [path.join(paths.root, 'examples', 'demo.js')],
      { cwd: paths.root, env, encoding: 'utf8', timeout: 120000 });
    assert.equal(r.status, 0, r.stderr);
    assert.match(r.stdout, /"hello, world"/);
    for (const key of foreign) assert.equal(mine.get(key), `the user's ${key}`, key);
    assert.equal(mine.dbsize(), before, 'nothing of the demo is left, nothing of the user\'s is gone');
    mine.close();
  } finally {
    await Promise.all(servers.map((s) => s.stop()));
  }
});
