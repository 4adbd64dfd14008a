'use strict';
// The client through the addon: lifecycle, settings, codes, auth, select and
// logical-database prefixes against real servers.
const test = require('node:test');
const assert = require('node:assert/strict');
const { addon, startCluster, getValue } = require('../helpers/cluster');

test('version, strerror and the result bits', () => {
  assert.equal(addon.kl_get_version(), '1.0.0');
  assert.equal(addon.kl_strerror(addon.KL_NOTFOUND), 'not found');
  assert.equal(addon.kl_strerror(999), 'unknown result code');
  assert.match(addon.kl_strerror(addon.KL_SUCCESS | addon.KL_DIRTY), /dirty/);
  assert.equal(addon.kl_get_result(addon.KL_SUCCESS | addon.KL_DIRTY), addon.KL_SUCCESS);
  assert.equal(addon.kl_is_dirty(addon.KL_SUCCESS | addon.KL_DIRTY), 1);
  assert.equal(addon.kl_is_dirty(addon.KL_NOTFOUND), 0);
  assert.equal(addon.kl_check_result(addon.KL_NOTFOUND | addon.KL_DIRTY, addon.KL_NOTFOUND), 1);
});

test('a client without servers, and null clients', () => {
  const c = addon.kl_client_create(addon.KL_HASH_MD5, addon.KL_DISTRIBUTION_CONSISTENT_KETAMA, addon.new_mm(), addon.KL_FLAG_SHARED);
  assert.ok(c);
  assert.equal(addon.kl_set(c, 'k', 1, 'v', 1, 0), addon.KL_NO_SERVER_ATTACHED);
  assert.equal(addon.kl_set(null, 'k', 1, 'v', 1, 0), addon.KL_INVALID_CLIENT);
  assert.equal(addon.kl_server_add(c, '127.0.0.1', 0, ''), addon.KL_INVALID_PARAMETER);
  assert.equal(addon.server_add(c, '127.0.0.1', 6399, '_NL_'), addon.KL_SUCCESS);
  assert.equal(addon.kl_server_add(c, '127.0.0.1', 6399, 'default'), addon.KL_ALREADY_EXISTS);
  assert.equal(addon.kl_set_client_version(c, addon.CLIENT_VERSION_1), addon.KL_SUCCESS);
  assert.equal(addon.kl_enable_syslog(c, addon.KL_LEVEL_ERROR), addon.KL_SUCCESS);
  assert.equal(addon.kl_disable_log(c), addon.KL_SUCCESS);
  addon.kl_client_destroy(c);
  addon.kl_client_destroy(null);
});

test('group client, quit, select and database prefixes', async (t) => {
  const cluster = await startCluster({ servers: 2 });
  t.after(() => cluster.stop());
  const { client } = cluster;
  assert.equal(addon.kl_set(client, 'greeting', 8, 'hello', 5, 0), addon.KL_SUCCESS);

  const copy = addon.kl_group_client(client);
  assert.deepEqual(getValue(copy, 'greeting'), { code: addon.KL_SUCCESS, value: 'hello' });
  addon.kl_client_destroy(copy);

  assert.equal(addon.kl_quit(client), addon.KL_SUCCESS);
  assert.equal(getValue(client, 'greeting').value, 'hello');

  const codes = addon.new_kl_return_tpp();
  assert.equal(addon.kl_select(client, 4, codes), addon.KL_SUCCESS);
  assert.equal(addon.kl_return_tpp_index_value(codes, 0), addon.KL_SUCCESS);
  assert.equal(addon.kl_return_tpp_index_value(codes, 1), addon.KL_SUCCESS);
  addon.kl_free_php_reply_p(addon.kl_return_tpp_to_charpp(codes));
  addon.delete_kl_return_tpp(codes);
  assert.equal(getValue(client, 'greeting').code, addon.KL_NOTFOUND);

  assert.equal(addon.kl_set_database_key(client, 4, 'four:', 5), addon.KL_SUCCESS);
  const prefix = addon.new_charpp();
  const prefixLen = addon.new_ulongp();
  assert.equal(addon.kl_database_key(client, 4, prefix, prefixLen), addon.KL_SUCCESS);
  assert.equal(addon.charpp_value(prefix, prefixLen), 'four:');
  addon.delete_charpp(prefix);
  addon.delete_ulongp(prefixLen);
  assert.equal(addon.kl_set(client, 'k', 1, 'in four', 7, 0), addon.KL_SUCCESS);
  assert.equal(addon.kl_set_database_key(client, 4, '', 0), addon.KL_SUCCESS);
  // The prefix is part of the stored name but not of the routing: the key
  // stays on the server that 'k' routes to, whichever database it is in.
  assert.equal(getValue(client, 'four:k', 'k').value, 'in four');
  assert.equal(addon.kl_select(client, 0, null), addon.KL_SUCCESS);
  assert.equal(getValue(client, 'greeting').value, 'hello');
});

test('auth is replayed when the client reconnects', async (t) => {
  const cluster = await startCluster({ servers: 1, password: 'pw-e2e' });
  t.after(() => cluster.stop());
  const { client } = cluster;
  assert.equal(addon.kl_set(client, 'k', 1, 'v', 1, 0), addon.KL_SERVER_ERROR);
  assert.equal(addon.kl_auth(client, 'pw-e2e', 6), addon.KL_SUCCESS);
  assert.equal(addon.kl_set(client, 'k', 1, 'v', 1, 0), addon.KL_SUCCESS);
  assert.equal(addon.kl_quit(client), addon.KL_SUCCESS);
  assert.equal(getValue(client, 'k').value, 'v');
});

test('config get and set', async (t) => {
  const cluster = await startCluster({ servers: 2 });
  t.after(() => cluster.stop());
  const { client, servers } = cluster;
  const target = `127.0.0.1:${servers[1].port}`;
  assert.equal(addon.kl_config_set(client, 'maxmemory-samples', 17, '9', 1, target, target.length, '', null), addon.KL_SUCCESS);
  const values = addon.new_charppp();
  const count = addon.new_ulongp();
  const lens = addon.new_ulongpp();
  assert.equal(addon.kl_config_get(client, 'maxmemory-samples', 17, target, target.length, values, count, lens, '', null), addon.KL_SUCCESS);
  assert.equal(addon.ulongp_value(count), 2);
  assert.equal(addon.charppp_value(values, lens, 0), 'maxmemory-samples');
  assert.equal(addon.charppp_value(values, lens, 1), '9');
  addon.kl_free_php_reply_pp(values, 2);
  addon.kl_free_php_reply_pp(values, 2); // harmless twice
  addon.kl_free_php_reply_p(addon.ulongpp_to_charpp(lens));
  addon.delete_charppp(values);
  addon.delete_ulongp(count);
  addon.delete_ulongpp(lens);
});
