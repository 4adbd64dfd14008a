'use strict';
// The demo and every example run against their own local servers (nothing in
// KEYLOOM_SERVERS), print what they did and exit 0, leaving no server behind.
const test = require('node:test');
const assert = require('node:assert/strict');
const { spawnSync } = require('node:child_process');
const path = require('node:path');
const paths = require('../helpers/paths.js');

const examples = ['demo.js', 'cache.js', 'leaderboard.js', 'autocomplete.js', 'routing.js'];

function redisServerPids() {
  const r = spawnSync('pgrep', ['-x', 'redis-server'], { encoding: 'utf8' });
  return new Set(r.stdout.split('\n').filter(Boolean));
}

for (const name of examples) {
  test(`examples/${name} runs against its own servers and exits 0`, () => {
    const before = redisServerPids();
    const env = { ...process.env, KEYLOOM_BUILD_DIR: paths.buildDir };
    delete env.KEYLOOM_SERVERS;
    const r = spawnSync(process.execPath, [path.join(paths.root, 'examples', name)],
      { cwd: paths.root, env, encoding: 'utf8', timeout: 120000 });
    assert.equal(r.status, 0, `${name} failed:\n${r.stderr}\n${r.stdout}`);
    assert.ok(r.stdout.split('\n').length > 3, 'it printed what it did');
    const left = [...redisServerPids()].filter((pid) => !before.has(pid));
    assert.deepEqual(left, [], 'no server left running');
  });
}

test('the demo says what it did with each family', () => {
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
});
