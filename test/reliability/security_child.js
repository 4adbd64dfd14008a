'use strict';
// The scenario of 40-security.test.js, run in a child process that has the
// syslog/connect shim preloaded (syslog_shim.c). Prints one JSON line of
// results; the parent checks them and the captured log and connections.
const { startRedis } = require('../../scripts/local-redis');

const k = require(require('../helpers/paths').addonPath);
const { PASSWORD, VALUE, WRONG, ACL_PASSWORD } = JSON.parse(process.argv[2]);
const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

function newClient(port) {
  const c = k.kl_client_create(k.KL_HASH_DEFAULT, k.KL_DISTRIBUTION_CONSISTENT, null, k.KL_FLAG_NONE);
  k.kl_enable_syslog(c, k.KL_LEVEL_ERROR | k.KL_LEVEL_DEBUG | k.KL_LEVEL_EVENT | k.KL_LEVEL_NOTICE | k.KL_LEVEL_WARNING);
  k.kl_server_add(c, '127.0.0.1', port, '');
  k.kl_client_connection_timeout(c, 500);
  k.kl_client_reconnect_attempt_timeout(c, 50);
  return c;
}

function get(c, key) {
  const v = k.new_charpp();
  const n = k.new_ulongp();
  const r = k.kl_get_whole(c, key, key.length, v, n, '', 0);
  const value = r === k.KL_SUCCESS ? k.charpp_value(v, n) : null;
  if (r === k.KL_SUCCESS) k.kl_free_php_reply_p(v);
  k.delete_charpp(v);
  k.delete_ulongp(n);
  return [r, value];
}

// Repeats fn (bounded) until it gives KL_SUCCESS; returns [code, attempts].
async function until(fn, attempts = 40) {
  let r;
  for (let i = 1; i <= attempts; i++) {
    r = fn();
    if (r === k.KL_SUCCESS) return [r, i];
    await sleep(60);
  }
  return [r, attempts];
}

async function main() {
  const out = {};
  const server = await startRedis({ password: PASSWORD });
  let servers = [server];
  try {
    // 1. the right password
    const c = newClient(server.port);
    out.authRight = k.kl_auth(c, PASSWORD, Buffer.byteLength(PASSWORD));
    out.setAfterAuth = k.kl_set(c, 'sec:1', 5, VALUE, Buffer.byteLength(VALUE), 0);
    out.getAfterAuth = get(c, 'sec:1');

    // 2. a client without AUTH: a code, not an exception
    const bare = newClient(server.port);
    out.setWithoutAuth = k.kl_set(bare, 'sec:2', 5, VALUE, Buffer.byteLength(VALUE), 0);

    // 3. a wrong password: a code from kl_auth and from the commands after it
    const wrong = newClient(server.port);
    out.authWrong = k.kl_auth(wrong, WRONG, Buffer.byteLength(WRONG));
    out.setAfterWrongAuth = k.kl_set(wrong, 'sec:3', 5, VALUE, Buffer.byteLength(VALUE), 0);
    out.strerrorWrong = k.kl_strerror(out.authWrong);

    // 4. kill and restart the server (same port, same password): the next
    //    commands reconnect and re-authenticate by themselves
    server.kill('SIGKILL');
    await server.stop();
    const again = await startRedis({ port: server.port, password: PASSWORD });
    servers = [again];
    out.firstAfterRestart = k.kl_set(c, 'sec:4', 5, VALUE, Buffer.byteLength(VALUE), 0);
    [out.setAfterRestart, out.attemptsAfterRestart] = await until(() => k.kl_set(c, 'sec:5', 5, VALUE, Buffer.byteLength(VALUE), 0));
    out.getAfterRestart = get(c, 'sec:5');
    // the same after kl_quit (connections closed by the client)
    k.kl_quit(c);
    out.getAfterQuit = get(c, 'sec:5');

    // 5. an ACL user (the default user switched off): the password alone is
    //    refused; "user\0password" authenticates as the user, and is replayed
    //    when the server comes back
    const aclArgs = ['--user', 'default', 'off', '--user', 'app', 'on', `>${ACL_PASSWORD}`, '~*', '&*', '+@all'];
    const acl = await startRedis({ args: aclArgs });
    servers.push(acl);
    const ac = newClient(acl.port);
    out.aclPasswordOnly = k.kl_auth(ac, ACL_PASSWORD, Buffer.byteLength(ACL_PASSWORD));
    out.aclSetRefused = k.kl_set(ac, 'sec:6', 5, VALUE, Buffer.byteLength(VALUE), 0);
    const userPass = `app\0${ACL_PASSWORD}`;
    out.aclAuth = k.kl_auth(ac, userPass, Buffer.byteLength(userPass));
    out.aclSet = k.kl_set(ac, 'sec:7', 5, VALUE, Buffer.byteLength(VALUE), 0);
    acl.kill('SIGKILL');
    await acl.stop();
    const aclAgain = await startRedis({ port: acl.port, args: aclArgs });
    servers[servers.indexOf(acl)] = aclAgain;
    [out.aclSetAfterRestart, out.aclAttemptsAfterRestart] = await until(() => k.kl_set(ac, 'sec:8', 5, VALUE, Buffer.byteLength(VALUE), 0));
    out.aclGetAfterRestart = get(ac, 'sec:8');

    // 6. exceptions raised on bad arguments never carry the password or value
    const messages = [];
    for (const bad of [() => k.kl_auth(c, PASSWORD, -1), () => k.kl_auth(c, PASSWORD), () => k.kl_set(c, 'k', 1, VALUE, 'x', 0),
      () => k.kl_set(c, 'k', 1, VALUE, Buffer.byteLength(VALUE), null)]) {
      try { bad(); } catch (e) { messages.push(e.message); }
    }
    out.messages = messages;
    out.ports = servers.map((s) => s.port);
    for (const x of [c, bare, wrong, ac]) k.kl_client_destroy(x);
  } finally {
    for (const s of servers) await s.stop();
  }
  process.stdout.write(`${JSON.stringify(out)}\n`);
}

main().catch((e) => { console.error(e); process.exit(1); });
