'use strict';
// Proxy objects: the equals and getCPtr methods, pointer conversion, and
// finalisation that frees the proxy but never the C memory.
const { test } = require('node:test');
const assert = require('node:assert/strict');
const { addon: a, calls, throwsExactly, argMessage } = require('./harness');
const { fullGc } = require('./gc');

function plainError(message) {
  return (e) => {
    assert.equal(Object.getPrototypeOf(e), Error.prototype);
    assert.equal(e.message, message);
    return true;
  };
}

test('a proxy equals itself, and two proxies of one address are equal but not identical', () => {
  const c = a.new_intp();
  const pp = a.copy_intpp(c);
  const first = a.intpp_value(pp);
  const second = a.intpp_value(pp);
  assert.equal(c.equals(c), true);
  assert.notEqual(first, second);
  assert.equal(first.equals(second), true);
  assert.equal(first.equals(c), true);
  assert.equal(first.getCPtr(), c.getCPtr());
  a.delete_intpp(pp);
  a.delete_intp(c);
});

test('equals compares addresses only, across types', () => {
  const pp = a.new_doublepp();
  const asChar = a.doublepp_to_charpp(pp);
  assert.equal(asChar.equals(pp), true);
  assert.equal(pp.equals(asChar), true);
  const other = a.new_doublepp();
  assert.equal(other.equals(pp), false);
  a.delete_doublepp(pp);
  a.delete_doublepp(other);
});

test('equals takes exactly one argument', () => {
  const c = a.new_intp();
  assert.throws(() => c.equals(), plainError('Illegal number of arguments for equals.'));
  assert.throws(() => c.equals(c, c), plainError('Illegal number of arguments for equals.'));
  a.delete_intp(c);
});

test('equals refuses a non-proxy argument and a non-proxy receiver', () => {
  const c = a.new_intp();
  for (const bad of [5, 'x', undefined, null, {}]) {
    assert.throws(() => c.equals(bad), plainError("in method 'equals', argument 1 of type 'void *'"));
  }
  assert.throws(() => c.equals.call({}, c), plainError("Could not get pointer from 'this' object for equals."));
  a.delete_intp(c);
});

test('getCPtr returns the address as a number and ignores its arguments', () => {
  const c = a.new_intp();
  const p = c.getCPtr();
  assert.equal(typeof p, 'number');
  assert.ok(Number.isSafeInteger(p) && p > 0);
  assert.equal(c.getCPtr(1, 2, 3), p);
  assert.throws(() => c.getCPtr.call({}), plainError("in method 'getCPtr', argument 1 of type 'void *'"));
  assert.throws(() => c.getCPtr.call(7), plainError("in method 'getCPtr', argument 1 of type 'void *'"));
  a.delete_intp(c);
});

test('every proxy has equals and getCPtr through one shared prototype and no own properties', () => {
  const made = [a.new_intp(), a.new_charpp(), a.new_charppp(), a.new_double_array(1),
    a.kl_client_create(0, 0, null, 1)];
  const proto = Object.getPrototypeOf(made[0]);
  for (const p of made) {
    assert.equal(Object.getPrototypeOf(p), proto);
    assert.deepEqual(Reflect.ownKeys(p), []);
    assert.equal(typeof p.equals, 'function');
    assert.equal(typeof p.getCPtr, 'function');
  }
  assert.ok(Object.hasOwn(proto, 'equals'));
  assert.ok(Object.hasOwn(proto, 'getCPtr'));
  a.delete_intp(made[0]);
  a.delete_charpp(made[1]);
  a.delete_charppp(made[2]);
  a.delete_double_array(made[3]);
  a.kl_client_destroy(made[4]);
});

test('a null C result becomes null, not a proxy', () => {
  assert.equal(a.new_mm(), null);
  assert.equal(a.new_empty_kl_return_tpp(), null);
  const pp = a.new_intpp();
  assert.equal(a.intpp_value(pp), null);
  a.delete_intpp(pp);
});

test('null reaches C as a null pointer for any pointer parameter; undefined, numbers, strings and booleans do not', () => {
  const log = calls(() => a.kl_get_whole(null, 'k', 1, null, null, '', 0));
  assert.deepEqual(log.map((l) => [l.fn, l.args[0], l.args[3], l.args[4]]), [['kl_get_whole', null, null, null]]);
  for (const bad of [undefined, 1, 'x', true]) {
    throwsExactly(() => a.kl_get_whole(bad, 'k', 1, null, null, '', 0), argMessage('kl_get_whole', 1, 'kl_client *'));
  }
});

test('a proxy of a same-sized other type is refused', () => {
  const sizeCell = a.new_ulongp();
  const doubleCell = a.new_doublep();
  throwsExactly(() => a.kl_get_whole(null, 'k', 1, sizeCell, sizeCell, '', 0), argMessage('kl_get_whole', 4, 'char **'));
  throwsExactly(() => a.ulongp_value(doubleCell), argMessage('ulongp_value', 1, 'size_t *'));
  throwsExactly(() => a.doublep_value(sizeCell), argMessage('doublep_value', 1, 'double *'));
  a.delete_ulongp(sizeCell);
  a.delete_doublep(doubleCell);
});

test('proxies are collectable: the module holds them only weakly', async () => {
  const c = a.copy_intp(42);
  const pp = a.copy_intpp(c);
  const n = 200;
  let collected = 0;
  const registry = new FinalizationRegistry(() => { collected += 1; });
  (() => {
    for (let i = 0; i < n; i++) registry.register(a.intpp_value(pp), i);
    registry.register(a.kl_client_create(0, 0, null, 1), 'client');
  })();
  for (let round = 0; round < 20 && collected < n + 1; round++) {
    fullGc();
    await new Promise((resolve) => setImmediate(resolve));
  }
  assert.equal(collected, n + 1);
  // The C cell outlives its collected proxies.
  assert.equal(a.intp_value(c), 42);
  a.delete_intpp(pp);
  a.delete_intp(c);
});

test('a collected proxy leaves its cell to a later delete through another proxy of the same address', () => {
  const pp = a.new_intpp();
  (() => {
    const c = a.copy_intp(7);
    a.intpp_assign(pp, c);
  })();
  fullGc();
  const again = a.intpp_value(pp);
  assert.equal(a.intp_value(again), 7);
  assert.equal(a.delete_intp(again), undefined);
  a.delete_intpp(pp);
});

test('collecting a client proxy does not end the client', () => {
  const log = calls(() => {
    (() => { a.kl_client_create(0, 0, null, 1); })();
    fullGc();
  });
  assert.deepEqual(log.map((l) => l.fn), ['kl_client_create']);
});

test('every proxy is an instance of the one class KeyloomProxy, whatever its type', () => {
  const cells = [a.new_intp(), a.new_charpp(), a.new_charppp(), a.new_ulongp()];
  for (const cell of cells) {
    const cls = Object.getPrototypeOf(cell).constructor;
    assert.equal(cls.name, 'KeyloomProxy');
    assert.equal(cls, Object.getPrototypeOf(cells[0]).constructor);
    assert.match(require('node:util').inspect(cell), /^KeyloomProxy /);
  }
  a.delete_intp(cells[0]);
  a.delete_charpp(cells[1]);
  a.delete_charppp(cells[2]);
  a.delete_ulongp(cells[3]);
});
