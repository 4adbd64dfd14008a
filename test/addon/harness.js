'use strict';
// Shared by the addon suites: loads keyloom.node (against the library test
// double when LD_LIBRARY_PATH points at <build>/probe), records the double's
// call log, and checks the module's exceptions exactly.
const assert = require('node:assert/strict');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { addonPath } = require('../helpers/paths');

const addon = require(path.resolve(addonPath));

const logFile = path.join(os.tmpdir(), `keyloom-probe-${process.pid}.jsonl`);
process.env.KEYLOOM_PROBE_LOG = logFile;
fs.writeFileSync(logFile, '');
process.on('exit', () => fs.rmSync(logFile, { force: true }));

// The double answers kl_get_version with this text; the real library does not.
const PROBE_VERSION = '1.0.0-probe';
function usingProbe() {
  return addon.kl_get_version() === PROBE_VERSION;
}

// Runs fn with an empty call log and returns [result, calls]; each call is
// {fn, args} as the double logged it.
function recorded(fn) {
  fs.writeFileSync(logFile, '');
  const result = fn();
  const text = fs.readFileSync(logFile, 'utf8');
  return [result, text.split('\n').filter(Boolean).map((line) => JSON.parse(line))];
}

function calls(fn) {
  return recorded(fn)[1];
}

// Runs fn with KEYLOOM_PROBE_* variables set, restoring them afterwards.
function withEnv(vars, fn) {
  const saved = {};
  for (const [k, v] of Object.entries(vars)) {
    saved[k] = process.env[k];
    if (v === undefined) delete process.env[k];
    else process.env[k] = String(v);
  }
  try {
    return fn();
  } finally {
    for (const [k, v] of Object.entries(saved)) {
      if (v === undefined) delete process.env[k];
      else process.env[k] = v;
    }
  }
}

// fn must throw a plain Error (not a subclass) with exactly this message,
// and make no library call.
function throwsExactly(fn, message) {
  let thrown;
  const log = calls(() => {
    try {
      fn();
    } catch (e) {
      thrown = e;
    }
  });
  assert.ok(thrown !== undefined, `expected "${message}" to be thrown`);
  assert.ok(thrown instanceof Error, `thrown value is not an Error: ${thrown}`);
  assert.equal(Object.getPrototypeOf(thrown), Error.prototype, `${thrown.name} is not a plain Error`);
  assert.equal(thrown.message, message);
  assert.deepEqual(log, [], 'no library call after an argument error');
}

const countMessage = (name) => `Illegal number of arguments for _wrap_${name}.`;
const argMessage = (name, k, type) => `in method '${name}', argument ${k} of type '${type}'`;

// How the double logs a value.
const hexOf = (p) => `0x${p.getCPtr().toString(16)}`;
const utf8Hex = (s) => Buffer.from(s, 'utf8').toString('hex');
const latin1Hex = (s) => Buffer.from([...s].map((c) => c.charCodeAt(0) & 0xff)).toString('hex');
// C's "%.17g" for the doubles the suites use.
function g17(x) {
  if (Number.isNaN(x)) return 'nan';
  if (x === Infinity) return 'inf';
  if (x === -Infinity) return '-inf';
  if (Object.is(x, -0)) return '-0';
  const exp = x === 0 ? 0 : Math.floor(Math.log10(Math.abs(x)));
  if (exp < -4 || exp >= 17) {
    const [m, e] = x.toExponential(16).split('e');
    const mant = m.includes('.') ? m.replace(/0+$/, '').replace(/\.$/, '') : m;
    const n = Number(e);
    return `${mant}e${n < 0 ? '-' : '+'}${String(Math.abs(n)).padStart(2, '0')}`;
  }
  const s = x.toPrecision(17);
  return s.includes('.') ? s.replace(/0+$/, '').replace(/\.$/, '') : s;
}
// A logged text argument is {addr, hex}; the address is the copy's.
function sameText(logged, hex, message) {
  assert.ok(logged && typeof logged === 'object', `${message}: expected a text, got ${JSON.stringify(logged)}`);
  assert.match(logged.addr, /^0x[0-9a-f]+$/, message);
  assert.equal(logged.hex, hex, message);
}

module.exports = {
  addon, logFile, PROBE_VERSION, usingProbe, recorded, calls, withEnv, throwsExactly,
  countMessage, argMessage, hexOf, utf8Hex, latin1Hex, g17, sameText,
};
