'use strict';
// Two groups of two servers through the addon: a lost server gives dirty
// writes and fail-over reads; kl_dirty repairs the keys once it is back.
const test = require('node:test');
const assert = require('node:assert/strict');
const { startRedis } = require('../../scripts/local-redis');
const { addon, startCluster, getValue } = require('../helpers/cluster');

const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

test('dirty writes, fail-over reads and repair', async (t) => {
  const cluster = await startCluster({ servers: 4, groups: 2 });
  t.after(() => cluster.stop());
  const { client, servers } = cluster;
  const keys = Array.from({ length: 20 }, (_, i) => `grp:${i}`);
  for (const k of keys) assert.equal(addon.kl_set(client, k, k.length, 'before', 6, 0), addon.KL_SUCCESS);

  // Server 0 (group g0) goes away.
  const lost = servers[0];
  const port = lost.port;
  await lost.stop();
  let dirty = 0;
  for (const k of keys) {
    const r = addon.kl_set(client, k, k.length, 'after', 5, 0);
    assert.equal(addon.kl_get_result(r), addon.KL_SUCCESS);
    dirty += addon.kl_is_dirty(r);
  }
  assert.ok(dirty > 0 && dirty < keys.length, `dirty writes: ${dirty}`);
  for (const k of keys) assert.deepEqual(getValue(client, k), { code: addon.KL_SUCCESS, value: 'after' });

  // Back on the same port, empty: its keys read as missing until repaired.
  const back = await startRedis({ port });
  servers[0] = back;
  await sleep(300);
  const missing = keys.filter((k) => getValue(client, k).code === addon.KL_NOTFOUND);
  assert.equal(missing.length, dirty);

  const groups = addon.new_intp();
  let repaired = 0;
  for (const k of keys) {
    assert.equal(addon.kl_dirty(client, k, k.length, addon.DURABLE_TTL(0), groups), addon.KL_SUCCESS);
    repaired += addon.intp_value(groups);
  }
  addon.delete_intp(groups);
  assert.equal(repaired, dirty);
  for (const k of keys) assert.equal(getValue(client, k).value, 'after');
});

test('every group down', async (t) => {
  const cluster = await startCluster({ servers: 2, groups: 2 });
  t.after(() => cluster.stop());
  await Promise.all(cluster.servers.map((s) => s.stop()));
  assert.equal(addon.kl_set(cluster.client, 'k', 1, 'v', 1, 0), addon.KL_ALL_GROUP_SERVERS_DOWN);
  assert.equal(getValue(cluster.client, 'k').code, addon.KL_ALL_GROUP_SERVERS_DOWN);
});
