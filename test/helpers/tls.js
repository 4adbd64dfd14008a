'use strict';
// Certificates made at test time with the openssl command, and redis-server
// started with TLS on a port of its own beside its plain one.
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { startRedis, freePort } = require('../../scripts/local-redis.js');

const openssl = (dir, ...args) => execFileSync('openssl', args, { cwd: dir, stdio: ['ignore', 'ignore', 'pipe'] });

// An EC key and a certificate for subject, signed by the CA in dir (self-signed without one).
function issue(dir, name, subject, { ca, altNames } = {}) {
  const key = `${name}.key`;
  openssl(dir, 'genpkey', '-algorithm', 'EC', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-out', key);
  if (!ca) {
    openssl(dir, 'req', '-x509', '-new', '-key', key, '-subj', subject, '-days', '2', '-out', `${name}.crt`,
      '-addext', 'basicConstraints=critical,CA:TRUE', '-addext', 'keyUsage=critical,keyCertSign,cRLSign');
  } else {
    openssl(dir, 'req', '-new', '-key', key, '-subj', subject, '-out', `${name}.csr`);
    fs.writeFileSync(path.join(dir, `${name}.ext`), altNames ? `subjectAltName=${altNames}\n` : 'basicConstraints=CA:FALSE\n');
    openssl(dir, 'x509', '-req', '-in', `${name}.csr`, '-CA', `${ca}.crt`, '-CAkey', `${ca}.key`, '-CAcreateserial',
      '-days', '2', '-out', `${name}.crt`, '-extfile', `${name}.ext`);
  }
  return {
    cert: fs.readFileSync(path.join(dir, `${name}.crt`), 'utf8'),
    key: fs.readFileSync(path.join(dir, `${name}.key`), 'utf8'),
    certFile: path.join(dir, `${name}.crt`),
    keyFile: path.join(dir, `${name}.key`),
  };
}

/**
 * A CA, a server certificate for 127.0.0.1 and localhost, a client
 * certificate, and an unrelated CA; removed with remove().
 */
function makeCertificates() {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'keyloom-tls-'));
  const ca = issue(dir, 'ca', '/CN=keyloom test CA');
  const server = issue(dir, 'server', '/CN=localhost', { ca: 'ca', altNames: 'IP:127.0.0.1,DNS:localhost' });
  const client = issue(dir, 'client', '/CN=keyloom test client', { ca: 'ca' });
  const otherCa = issue(dir, 'other-ca', '/CN=another CA');
  return { dir, ca, server, client, otherCa, remove: () => fs.rmSync(dir, { recursive: true, force: true }) };
}

/**
 * redis-server with a TLS port (tlsPort) besides its plain one (port).
 * clientCertificates: the server asks for, and checks, the client's.
 * port and tlsPort: the ports (free ones by default).
 */
async function startTlsRedis(certs, { clientCertificates = false, password, port, tlsPort } = {}) {
  tlsPort = tlsPort || await freePort();
  const server = await startRedis({
    port,
    password,
    args: ['--tls-port', String(tlsPort), '--tls-cert-file', certs.server.certFile, '--tls-key-file',
      certs.server.keyFile, '--tls-ca-cert-file', certs.ca.certFile, '--tls-auth-clients',
      clientCertificates ? 'yes' : 'no'],
  });
  return Object.assign(server, { tlsPort });
}

module.exports = { makeCertificates, startTlsRedis };
