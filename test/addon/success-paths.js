'use strict';
// Run as a child process by 95-memory.test.js under the sanitizers: makes one
// successful call of every exported function (kl_set_binary aside, whose
// buffer goes to the library by design), frees everything it made and exits.
// With `fail-after-copy` it instead leaves one string copy behind the way a
// failing later argument does, to show that such a leak is seen.
const { functions } = require('./signatures');
const { addon: a } = require('./harness');
const { makeFixtures, valid } = require('./values');
const { fullGc } = require('./gc');

const fx = makeFixtures();

if (process.argv[2] === 'fail-after-copy') {
  try { a.kl_set(fx.client, 'a key that is copied', 20, 5, 1, 0); } catch { /* argument 4 */ }
} else {
  for (const f of functions.filter((g) => g.calls && g.name !== 'kl_set_binary')) {
    const args = f.args.map((type, i) => valid(fx, type, i + 1)[0]);
    if (f.name === 'kl_client_destroy') args[0] = a.kl_client_create(0, 0, null, 1);
    const result = a[f.name](...args);
    if (f.result === 'proxy:_p_kl_client' && result) a.kl_client_destroy(result);
  }
  // Cells: make, copy, assign, read and delete each family.
  const inner = { intpp: 'intp', uintpp: 'uintp', ulongpp: 'ulongp', doublepp: 'doublep', kl_return_tpp: 'kl_return_tp' };
  for (const x of ['intp', 'uintp', 'ulongp', 'doublep', 'kl_return_tp', ...Object.keys(inner)]) {
    const target = inner[x] ? a[`new_${inner[x]}`]() : 3;
    const c = a[`new_${x}`]();
    const d = a[`copy_${x}`](target);
    a[`${x}_assign`](c, target);
    a[`${x}_value`](c);
    a[`${x}_value`](d);
    a[`delete_${x}`](c);
    a[`delete_${x}`](d);
    if (inner[x]) a[`delete_${inner[x]}`](target);
  }
  // Arrays and readers.
  const texts = a.new_charp_array(3);
  a.charp_array_set(texts, 0, 'first', 5);
  a.charp_array_set(texts, 0, 'again', 5);
  a.charp_array_set(texts, 2, '_NL_', 4);
  const length = a.copy_ulongp(0);
  a.charpp_value(texts, length);
  a.charpp_value_raw(texts, length);
  a.delete_ulongp(length);
  a.delete_charp_array(texts, 3);
  const u = a.new_uint_array(2); a.uint_array_set(u, 1, 4294967295); a.delete_uint_array(u);
  const l = a.new_ulong_array(2); a.ulong_array_set(l, 1, 5000000000); a.ulong_array_get(l, 1); a.delete_ulong_array(l);
  const d = a.new_double_array(2); a.double_array_set(d, 1, 0.5); a.double_array_get(d, 1);
  const dpp = a.copy_doublepp(d);
  a.doublepp_index_value(dpp, 1);
  a.ulongpp_to_charpp(null);
  a.doublepp_to_charpp(dpp);
  a.delete_doublepp(dpp);
  a.delete_double_array(d);
  const many = a.new_charppp();
  a.charppp_value(many, null, 0);
  a.charppp_value_raw(many, null, 0);
  a.delete_charppp(many);
  a.new_empty_kl_return_tpp();
  a.new_mm();
  a.DURABLE_TTL(1);
  a.COMMIT(1);
  a.kl_free_reply_pp(null, 3, null);
  const cell = a.new_charpp(); a.delete_charpp(cell);
}
fx.release();
fullGc();
