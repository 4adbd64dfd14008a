'use strict';
// Administration through the addon: per-server codes, dbsize, keys, info,
// lastsave and flushing.
const test = require('node:test');
const assert = require('node:assert/strict');
const { addon, startCluster, readMany } = require('../helpers/cluster');

test('administration over three servers', async (t) => {
  const cluster = await startCluster({ servers: 3 });
  t.after(() => cluster.stop());
  const { client } = cluster;
  for (let i = 0; i < 12; i++) assert.equal(addon.kl_set(client, `adm:${i}`, `adm:${i}`.length, 'v', 1, 0), addon.KL_SUCCESS);

  const size = addon.new_uintp();
  const codes = addon.new_kl_return_tpp();
  assert.equal(addon.kl_dbsize(client, size, '', codes), addon.KL_SUCCESS);
  assert.equal(addon.uintp_value(size), 12);
  for (let i = 0; i < 3; i++) assert.equal(addon.kl_return_tpp_index_value(codes, i), addon.KL_SUCCESS);
  addon.kl_free_php_reply_p(addon.kl_return_tpp_to_charpp(codes));

  const listed = readMany((values, count, lens) => addon.keys(client, 'adm:*', 5, values, count, lens, '_NL_', null));
  assert.equal(listed.code, addon.KL_SUCCESS);
  assert.deepEqual(listed.values.sort(), Array.from({ length: 12 }, (_, i) => `adm:${i}`).sort());

  const infos = addon.new_charppp();
  assert.equal(addon.kl_info(client, infos, '', null), addon.KL_SUCCESS);
  for (let i = 0; i < 3; i++) assert.match(addon.charppp_value(infos, null, i), /redis_version:/);
  addon.kl_free_php_reply_pp(infos, 3);
  addon.delete_charppp(infos);

  const times = addon.new_uintpp();
  const count = addon.new_ulongp();
  assert.equal(addon.kl_lastsave(client, times, count, '', null), addon.KL_SUCCESS);
  assert.equal(addon.ulongp_value(count), 3);
  addon.kl_free_php_reply_p(addon.uintpp_to_charpp(times));
  addon.delete_uintpp(times);
  addon.delete_ulongp(count);

  assert.equal(addon.flushall(client, '_NL_', codes), addon.KL_SUCCESS);
  addon.kl_free_php_reply_p(addon.kl_return_tpp_to_charpp(codes));
  assert.equal(addon.kl_dbsize(client, size, '', null), addon.KL_SUCCESS);
  assert.equal(addon.uintp_value(size), 0);
  assert.equal(addon.kl_flushdb(client, 'no-such-group', null), addon.KL_INVALID_PARAMETER);
  addon.delete_kl_return_tpp(codes);
  addon.delete_uintp(size);
});

test('sort through the addon', async (t) => {
  const cluster = await startCluster({ servers: 1 });
  t.after(() => cluster.stop());
  const { client } = cluster;
  for (const v of ['b', 'c', 'a']) assert.equal(addon.kl_rpush(client, 'letters', 7, v, 1, 0), addon.KL_SUCCESS);
  const sorted = readMany((values, count, lens) =>
    addon.kl_sort_whole(client, values, count, lens, 'letters', 7, '', 0, 0, '', 0, 1, '', '', '', '', 'alpha', ''));
  assert.equal(sorted.code, addon.KL_SUCCESS);
  assert.deepEqual(sorted.values, ['c', 'b', 'a']);
});
