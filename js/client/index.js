'use strict';
// The idiomatic client: require('keyloom/client'). Methods named after the commands,
// strings and Buffers in, strings (or Buffers on request) and plain values out,
// KeyloomError on failure, and no cell, array or reply left behind on any path.
//
// Layout: core.js is the client object and the answer shapes every command
// shares; table.js turns a simple command's one line into its method;
// commands/ holds one file per family, whose methods are put on
// KeyloomClient's prototype here; options.js is createClient; support.js the
// conversions and the Scope that owns what a command allocates. Everything
// goes through the exact layer (js/exact).
const { kl, codes, KeyloomError } = require('./support.js');
const { KeyloomClient } = require('./core.js');
const { createClient } = require('./options.js');
const { checked } = require('./arguments.js');

const FAMILIES = ['connection', 'strings', 'keys', 'admin', 'lists', 'sets', 'sorted-sets', 'hashes', 'dictionaries'];

for (const family of FAMILIES) {
  const table = require(`./commands/${family}.js`);
  for (const [name, method] of Object.entries(table)) {
    if (Object.prototype.hasOwnProperty.call(KeyloomClient.prototype, name)) {
      throw new Error(`keyloom: ${name} is defined twice (commands/${family}.js)`);
    }
    Object.defineProperty(KeyloomClient.prototype, name, {
      value: checked(name, method), writable: true, enumerable: false, configurable: true,
    });
  }
}

module.exports = {
  createClient,
  KeyloomError,
  KeyloomClient,
  codes,
  /** The library's version, "major.minor.patch". */
  get version() {
    return kl.kl_get_version();
  },
};
