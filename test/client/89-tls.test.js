'use strict';
// TLS: rediss:// URLs and the tls option, against redis-server's TLS port,
// with certificates made for the test.
const { test, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { forEachKind, ready, servers, address } = require('./support.js');
const { makeCertificates, startTlsRedis } = require('../helpers/tls.js');
const { KeyloomError } = require('keyloom/client');

let certs;
before(() => { certs = makeCertificates(); });
after(() => certs.remove());

// The TLS servers of this file, stopped at its end.
const started = [];
after(() => Promise.all(started.map((s) => s.stop())));
async function tlsServer(options) {
  const s = await startTlsRedis(certs, options);
  started.push(s);
  return s;
}

const tlsAddress = (s) => `127.0.0.1:${s.tlsPort}`;
const options = { connectTimeoutMs: 2000, reconnectMs: 50 };

forEachKind((kind) => {
  test('a rediss:// URL with the CA reads and writes over TLS', async () => {
    const s = await tlsServer();
    const c = await ready(kind, { ...options, url: `rediss://${tlsAddress(s)}`, tls: { ca: certs.ca.cert } });
    await c.set('tls-k', 'over tls');
    assert.equal(await c.get('tls-k'), 'over tls');
    // The same server through its plain port sees the value: the TLS port is the server's.
    const plain = await ready(kind, { ...options, server: address(s) });
    assert.equal(await plain.get('tls-k'), 'over tls');
    await plain.close();
    await c.close();
  });

  test('the tls option takes the CA as a Buffer or an array, and a servername', async () => {
    const s = await tlsServer();
    for (const tls of [{ ca: Buffer.from(certs.ca.cert) }, { ca: [certs.otherCa.cert, certs.ca.cert] },
      { ca: certs.ca.cert, servername: 'localhost' }]) {
      const c = await ready(kind, { ...options, host: '127.0.0.1', port: s.tlsPort, tls });
      await c.set('k', 'v');
      assert.equal(await c.get('k'), 'v');
      await c.close();
    }
  });

  test('keys are sharded over several TLS servers, many commands at once', async () => {
    const list = [await tlsServer(), await tlsServer(), await tlsServer()];
    const c = await ready(kind, { ...options, servers: list.map((s) => `rediss://${tlsAddress(s)}`), tls: { ca: certs.ca.cert } });
    const keys = Array.from({ length: 300 }, (_, i) => `shard-${i}`);
    await Promise.all(keys.map((k) => c.set(k, `v-${k}`)));
    const values = await Promise.all(keys.map((k) => c.get(k)));
    assert.deepEqual(values, keys.map((k) => `v-${k}`));
    // Every server holds some of them.
    for (const s of list) {
      const one = await ready(kind, { ...options, server: address(s) });
      assert.ok(await one.dbsize() > 0);
      await one.close();
    }
    await c.close();
  });

  test('an unknown CA is refused with the server and the reason, and no password shows', async () => {
    const s = await tlsServer({ password: 'hunter2' });
    let c;
    await assert.rejects(async () => {
      // The password is sent when the client is made: that is where the handshake fails.
      c = kind.keyloom.createClient({ ...options, url: `rediss://:hunter2@${tlsAddress(s)}`, tls: { ca: certs.otherCa.cert } });
      await c.ready;
    }, (e) => e instanceof KeyloomError && e.server === tlsAddress(s) &&
      /certificate refused: (unable to get local issuer certificate|self-signed certificate in certificate chain)/.test(e.message) && !/hunter2/.test(`${e.message} ${e.stack}`));
    await c?.close();
  });

  test('a servername the certificate does not carry is refused', async () => {
    const s = await tlsServer();
    const c = await ready(kind, { ...options, url: `rediss://${tlsAddress(s)}`, tls: { ca: certs.ca.cert, servername: 'wrong.example' } });
    await assert.rejects(async () => c.get('k'), (e) => e instanceof KeyloomError && /certificate refused: hostname mismatch/.test(e.message));
    await c.close();
  });

  test('rejectUnauthorized: false accepts a certificate no CA vouches for', async () => {
    const s = await tlsServer();
    const c = await ready(kind, { ...options, url: `rediss://${tlsAddress(s)}`, tls: { rejectUnauthorized: false } });
    await c.set('k', 'unchecked');
    assert.equal(await c.get('k'), 'unchecked');
    await c.close();
  });

  test('a server that checks client certificates accepts ours and refuses a client without one', async () => {
    const s = await tlsServer({ clientCertificates: true });
    const withCert = await ready(kind, {
      ...options, url: `rediss://${tlsAddress(s)}`, tls: { ca: certs.ca.cert, cert: certs.client.cert, key: certs.client.key },
    });
    await withCert.set('k', 'mutual');
    assert.equal(await withCert.get('k'), 'mutual');
    await withCert.close();
    const without = await ready(kind, { ...options, url: `rediss://${tlsAddress(s)}`, tls: { ca: certs.ca.cert } });
    await assert.rejects(async () => without.get('k'), (e) => e instanceof KeyloomError && e.server === tlsAddress(s));
    await without.close();
  });

  test('TLS to a plain port says the server may not speak TLS', async () => {
    const [s] = await servers(1);
    const c = await ready(kind, { ...options, connectTimeoutMs: 300, url: `rediss://${address(s)}`, tls: { ca: certs.ca.cert } });
    await assert.rejects(async () => c.get('k'), (e) => e instanceof KeyloomError && e.server === address(s) &&
      /speaking TLS on this port/.test(e.message));
    await c.close();
  });

  test('a restarted TLS server is connected again', async () => {
    const s = await tlsServer();
    const c = await ready(kind, { ...options, url: `rediss://${tlsAddress(s)}`, tls: { ca: certs.ca.cert } });
    await c.set('k', 'before');
    s.kill('SIGKILL');
    await new Promise((r) => s.child.once('exit', r));
    await assert.rejects(async () => c.get('k'), (e) => e instanceof KeyloomError && e.server === tlsAddress(s));
    started.push(await startTlsRedis(certs, { port: s.port, tlsPort: s.tlsPort }));
    // Once the reconnect time-out has passed, the next call connects (and shakes hands) again.
    let answer;
    for (let attempt = 0; attempt < 50 && answer === undefined; attempt++) {
      await new Promise((r) => setTimeout(r, 20));
      answer = await (async () => c.get('k'))().catch(() => undefined);
    }
    assert.equal(answer, null);  // the new server is empty
    await c.set('k', 'after');
    assert.equal(await c.get('k'), 'after');
    await c.close();
  });
});

test('bad TLS settings are refused when the client is made', () => {
  const { createClient } = require('keyloom/client');
  const refuse = (opts, pattern) => assert.throws(() => createClient({ connectTimeoutMs: 200, ...opts }), (e) =>
    e instanceof TypeError && pattern.test(e.message) && !/hunter2/.test(e.message));
  refuse({ url: 'rediss://h:1', tls: { ca: 'not a certificate' } }, /ca: no PEM certificate in it/);
  refuse({ url: 'rediss://h:1', tls: { ca: certs.ca.cert, cert: certs.client.cert } }, /cert and key go together/);
  refuse({ url: 'rediss://h:1', tls: { ca: certs.ca.cert, cert: certs.client.cert, key: certs.otherCa.key } }, /key: .*/);
  refuse({ url: 'rediss://h:1', tls: { ca: 42 } }, /tls\.ca is a PEM string or Buffer/);
  refuse({ url: 'rediss://h:1', tls: { checkServerIdentity: () => {} } }, /unknown tls option 'checkServerIdentity'/);
  refuse({ url: 'rediss://h:1', tls: { rejectUnauthorized: 'no' } }, /rejectUnauthorized is true or false/);
  refuse({ url: 'redis://:hunter2@h:1', tls: true }, /write rediss:\/\/ for TLS/);
  refuse({ servers: ['rediss://a:1', 'redis://b:1'] }, /rediss:\/\/ and redis:\/\/ servers in one client/);
  refuse({ url: 'rediss://h:1', tls: 'yes' }, /tls is true or an object/);
});
