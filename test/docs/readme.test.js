'use strict';
// Every ```js sample of README.md runs as written, against two local servers whose
// addresses are in KEYLOOM_SERVERS (as the README says) and one TLS server
// (KEYLOOM_TLS_SERVER, its CA's file in KEYLOOM_TLS_CA), and exits 0. The samples
// require 'keyloom' and 'keyloom/client' by name, which resolve to this checkout.
const test = require('node:test');
const assert = require('node:assert/strict');
const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const paths = require('../helpers/paths.js');
const { startRedis } = require('../../scripts/local-redis.js');
const { makeCertificates, startTlsRedis } = require('../helpers/tls.js');

const readme = fs.readFileSync(path.join(paths.root, 'README.md'), 'utf8');
const samples = [...readme.matchAll(/^```js\n([\s\S]*?)^```$/gm)].map((m, i) => {
  const line = readme.slice(0, m.index).split('\n').length + 1;
  return { code: m[1], name: `README sample ${i + 1} (line ${line})` };
});

let servers = [];
let dir;
let certs;
let tlsServer;
test.before(async () => {
  servers = [await startRedis(), await startRedis()];
  certs = makeCertificates();
  tlsServer = await startTlsRedis(certs);
  dir = fs.mkdtempSync(path.join(os.tmpdir(), 'keyloom-readme-'));
  fs.mkdirSync(path.join(dir, 'node_modules'));
  fs.symlinkSync(paths.root, path.join(dir, 'node_modules', 'keyloom'), 'dir');
});
test.after(async () => {
  await Promise.all([...servers, tlsServer].filter(Boolean).map((s) => s.stop()));
  certs?.remove();
  if (dir) fs.rmSync(dir, { recursive: true, force: true });
});

test('the README has samples to run', () => {
  assert.ok(samples.length >= 5, `found ${samples.length}`);
});

for (const sample of samples) {
  test(`${sample.name} runs and exits 0`, () => {
    const file = path.join(dir, `sample-${samples.indexOf(sample) + 1}.js`);
    fs.writeFileSync(file, sample.code);
    const env = {
      ...process.env,
      KEYLOOM_SERVERS: servers.map((s) => `${s.host}:${s.port}`).join(','),
      KEYLOOM_BUILD_DIR: paths.buildDir,
      KEYLOOM_TLS_SERVER: `127.0.0.1:${tlsServer.tlsPort}`,
      KEYLOOM_TLS_CA: certs.ca.certFile,
    };
    const r = spawnSync(process.execPath, [file], { cwd: dir, env, encoding: 'utf8', timeout: 120000 });
    assert.equal(r.status, 0, `${sample.name} failed:\n${r.stderr}\n${r.stdout}`);
    assert.ok(r.stdout.length > 0, 'it printed what it did');
  });
}
