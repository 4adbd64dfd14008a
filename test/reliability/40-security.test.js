'use strict';
// Passwords and privacy. A child process runs security_child.js with a small
// preloaded shim (syslog_shim.c, built here with the C compiler) that writes
// every syslog message of the process to a file and records the destination of
// every IPv4/IPv6 connect(). Checked: kl_auth against a requirepass server
// works and survives a kill and restart (the next commands re-authenticate);
// a wrong password gives codes, never an exception; no log line and no error
// text holds the password or a value; nothing but the added servers is contacted.
const test = require('node:test');
const assert = require('node:assert/strict');
const { execFileSync, spawnSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { buildDir } = require('../helpers/paths');

const KL_SUCCESS = 0;
const secrets = {
  PASSWORD: 'pw-Zq7!kv3-s3cr3t',
  VALUE: 'value-that-must-not-be-logged-8c1f',
  WRONG: 'wrong-pw-Yh42-never-logged',
  ACL_PASSWORD: 'acl-pw-Rm5t-app',
};

function runScenario() {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'keyloom-security-'));
  const shim = path.join(dir, 'syslog_shim.so');
  execFileSync('cc', ['-shared', '-fPIC', '-O1', '-o', shim, path.join(__dirname, 'syslog_shim.c'), '-ldl']);
  const logFile = path.join(dir, 'syslog.txt');
  const connFile = path.join(dir, 'connect.txt');
  const preload = [process.env.LD_PRELOAD, shim].filter(Boolean).join(' ');
  const r = spawnSync(process.execPath, [path.join(__dirname, 'security_child.js'), JSON.stringify(secrets)], {
    env: { ...process.env, LD_PRELOAD: preload, KEYLOOM_BUILD_DIR: buildDir, KEYLOOM_SYSLOG_FILE: logFile, KEYLOOM_CONNECT_FILE: connFile },
    encoding: 'utf8',
    timeout: 120000,
  });
  const read = (f) => (fs.existsSync(f) ? fs.readFileSync(f, 'utf8') : '');
  const result = { status: r.status, signal: r.signal, stdout: r.stdout, stderr: r.stderr, log: read(logFile), connects: read(connFile) };
  fs.rmSync(dir, { recursive: true, force: true });
  return result;
}

let scenario;
function outcome() {
  if (!scenario) scenario = runScenario();
  const s = scenario;
  assert.equal(s.status, 0, `the scenario failed (signal ${s.signal}):\n${s.stderr}`);
  return { ...s, out: JSON.parse(s.stdout.trim().split('\n').pop()) };
}

test('kl_auth with the right password lets commands through', () => {
  const { out } = outcome();
  assert.equal(out.authRight, KL_SUCCESS);
  assert.equal(out.setAfterAuth, KL_SUCCESS);
  assert.deepEqual(out.getAfterAuth, [KL_SUCCESS, secrets.VALUE]);
});

test('without kl_auth, or with a wrong password, commands give codes', () => {
  const { out } = outcome();
  assert.equal(typeof out.setWithoutAuth, 'number');
  assert.notEqual(out.setWithoutAuth, KL_SUCCESS);
  assert.equal(typeof out.authWrong, 'number');
  assert.notEqual(out.authWrong, KL_SUCCESS);
  assert.equal(typeof out.setAfterWrongAuth, 'number');
  assert.notEqual(out.setAfterWrongAuth, KL_SUCCESS);
  assert.equal(typeof out.strerrorWrong, 'string');
});

test('after the server is killed and restarted, the client re-authenticates by itself', () => {
  const { out } = outcome();
  assert.equal(typeof out.firstAfterRestart, 'number');
  assert.equal(out.setAfterRestart, KL_SUCCESS, `no successful write in ${out.attemptsAfterRestart} attempts`);
  assert.deepEqual(out.getAfterRestart, [KL_SUCCESS, secrets.VALUE]);
  assert.deepEqual(out.getAfterQuit, [KL_SUCCESS, secrets.VALUE]);
});

test('an ACL user: "user\\0password" authenticates as the user and survives a restart', () => {
  const { out } = outcome();
  // The password alone is the default user's, which is switched off: codes,
  // no exception.
  assert.equal(typeof out.aclPasswordOnly, 'number');
  assert.notEqual(out.aclPasswordOnly, KL_SUCCESS);
  assert.notEqual(out.aclSetRefused, KL_SUCCESS);
  assert.equal(out.aclAuth, KL_SUCCESS);
  assert.equal(out.aclSet, KL_SUCCESS);
  assert.equal(out.aclSetAfterRestart, KL_SUCCESS, `no successful write in ${out.aclAttemptsAfterRestart} attempts`);
  assert.deepEqual(out.aclGetAfterRestart, [KL_SUCCESS, secrets.VALUE]);
});

test('no log line and no error text holds a password or a value', () => {
  const { out, log } = outcome();
  assert.ok(log.length > 0, 'the library logged nothing with every level enabled (connects and disconnects expected)');
  const texts = [log, ...out.messages, out.strerrorWrong];
  for (const text of texts) {
    for (const [name, secret] of Object.entries(secrets)) {
      assert.ok(!text.includes(secret), `${name} appears in: ${text.slice(0, 300)}`);
    }
  }
  assert.equal(out.messages.length, 4);
});

test('only the added servers are contacted', () => {
  const { out, connects } = outcome();
  const lines = connects.split('\n').filter(Boolean);
  assert.ok(lines.length > 0, 'no connection was recorded');
  for (const line of lines) {
    const [, host, port] = line.split(' ');
    assert.equal(host, '127.0.0.1', `a connection to ${line}`);
    assert.ok(out.ports.includes(Number(port)), `a connection to an unknown port: ${line}`);
  }
});
