'use strict';
// The floor and the peer of a JS -> native call: an empty native callback, and
// koffi calling the very library function that keyloom's kl_exists wraps.
const path = require('node:path');

async function prepare(task) {
  const w = task.workload;
  if (task.variant === 'empty' && w.kind === 'call-trivial') {
    const addon = require(path.join(task.buildDir, 'bench', 'empty_callback.node'));
    return { mode: 'sync', every: 4096, op: () => addon.empty() };
  }
  if (task.variant === 'koffi' && w.kind === 'call-exists') {
    const koffi = require('koffi');
    const lib = koffi.load(path.join(task.buildDir, 'lib', 'libkeyloom.so.1'));
    const klExists = lib.func('int kl_exists(void *client, const char *key, size_t key_len)');
    return { mode: 'sync', every: 4096, op: () => klExists(null, 'k', 1) };
  }
  return null;
}

module.exports = { prepare };
