'use strict';
// Every exported function, driven by the signature table: the exact argument
// count, the exact message for a value of the wrong kind at each position
// (with every earlier argument valid), and, for the functions that call the
// library, one call whose arguments reach the library converted.
const { test, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { functions } = require('./signatures');
const { addon, usingProbe, recorded, withEnv, throwsExactly, countMessage, argMessage, PROBE_VERSION } = require('./harness');
const { makeFixtures, valid, wrong } = require('./values');

let fx;
before(() => {
  assert.ok(usingProbe(), 'keyloom.node must run against the library double (LD_LIBRARY_PATH=<build>/probe)');
  fx = makeFixtures();
});
after(() => fx.release());

const validArgs = (f) => f.args.map((type, i) => valid(fx, type, i + 1)[0]);

for (const f of functions) {
  test(`${f.name} takes exactly ${f.args.length} argument(s)`, () => {
    const args = validArgs(f);
    if (args.length > 0) throwsExactly(() => addon[f.name](...args.slice(0, -1)), countMessage(f.name));
    throwsExactly(() => addon[f.name](...args, args[0] ?? 0), countMessage(f.name));
  });

  f.args.forEach((type, i) => {
    test(`${f.name} refuses a value of the wrong kind as argument ${i + 1} (${type})`, () => {
      for (const [label, bad] of wrong(fx, type)) {
        const args = validArgs(f);
        args[i] = bad;
        try {
          throwsExactly(() => addon[f.name](...args), argMessage(f.name, i + 1, type));
        } catch (e) {
          e.message = `with ${label}: ${e.message}`;
          throw e;
        }
      }
    });
  });
}

// What each library-calling function returns for the double's answer.
function expectedResult(f, args, code) {
  switch (f.result) {
    case 'code': return code;
    case 'undefined': return undefined;
    default: break;
  }
  const r = (v) => v | 0;
  switch (f.name) {
    case 'kl_get_version': return PROBE_VERSION;
    case 'kl_strerror': return 'probe error text \u2713';
    case 'kl_get_result': return r(args[0]) & ~128;
    case 'kl_is_dirty': return (r(args[0]) & 128) ? 1 : 0;
    case 'kl_check_result': return (r(args[0]) & ~128) === r(args[1]) ? 1 : 0;
    default: return 'a client proxy';
  }
}

for (const f of functions.filter((g) => g.calls)) {
  test(`${f.name} calls ${f.calls} once with its arguments converted and returns its result`, () => {
    for (const code of [0, 13, 141, -1]) {
      // kl_client_destroy gets a client of its own, so the shared one stays live.
      const own = f.name === 'kl_client_destroy' ? addon.kl_client_create(0, 0, null, 1) : null;
      const pairs = f.args.map((type, i) => valid(fx, type, i + 1));
      const args = pairs.map(([v]) => v);
      if (own) args[0] = own;
      const [result, log] = withEnv({ KEYLOOM_PROBE_RESULT: code }, () => recorded(() => addon[f.name](...args)));
      assert.equal(log.length, 1, `one library call, got ${JSON.stringify(log)}`);
      assert.equal(log[0].fn, f.calls);
      assert.equal(log[0].args.length, f.args.length, 'one logged argument per C parameter');
      pairs.forEach(([, check], i) => {
        if (own && i === 0) assert.equal(log[0].args[0], `0x${own.getCPtr().toString(16)}`);
        else check(log[0].args[i], `argument ${i + 1} (${f.args[i]})`);
      });
      const want = expectedResult(f, args, code);
      if (want === 'a client proxy') {
        assert.equal(typeof result, 'object');
        assert.notEqual(result, null);
        assert.equal(typeof result.getCPtr(), 'number');
        addon.kl_client_destroy(result);
      } else {
        assert.equal(result, want);
      }
    }
  });
}
