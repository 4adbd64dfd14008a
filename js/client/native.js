'use strict';
// The library functions the client calls by name: the exact layer's exports
// and, beside them, the client's own entry points (keyloom_client.node), which
// the exact layer does not export.
const kl = require('../exact/index.js');
const { clientAddonPath, loadNative } = require('../build-location.js');

const own = loadNative(clientAddonPath);

/** The function `name` of either module. */
function libraryFunction(name) {
  const fn = kl[name] ?? own[name];
  if (typeof fn !== 'function') throw new Error(`keyloom: no library function ${name}`);
  return fn;
}

/** The answered form of `name`: the value itself back, in one call (keyloom_client.node). */
function answeredFunction(name) {
  const fn = own.answered[name];
  if (typeof fn !== 'function') {
    throw new Error(`keyloom: ${name} has no answered form (neither its kinds nor a composed line in keyloom_client.cxx give it one)`);
  }
  return fn;
}

module.exports = { kl, own, libraryFunction, answeredFunction };
