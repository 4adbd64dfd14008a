'use strict';
// The idiomatic client: require('keyloom/client'). Methods named after the commands,
// strings and Buffers in, strings (or Buffers on request) and plain values out,
// KeyloomError on failure, and no cell, array or reply left behind on any path.
//
// Layout: core.js is the client object, the answer shapes every command
// shares and the way a command's library calls are made; table.js turns a
// simple command's one line into its method; commands/ holds one file per
// family, whose methods are put on KeyloomClient's prototype here (and on
// the promise client's in promises.js); options.js is createClient;
// support.js the conversions of arguments. Commands call the answered forms
// of keyloom_client.node (one crossing, the value back) or the exact layer's
// exports (js/exact) for those that answer with their code alone.
const { kl, codes, KeyloomError } = require('./support.js');
const { KeyloomClient, runNow } = require('./core.js');
const { createClient } = require('./options.js');
const { commands } = require('./commands/index.js');
const { installScans, iterate } = require('./scan.js');

// Each command runs at once: its library calls are made on this thread.
for (const [name, command] of commands) {
  if (Object.prototype.hasOwnProperty.call(KeyloomClient.prototype, name)) {
    throw new Error(`keyloom: ${name} is also a member of KeyloomClient`);
  }
  const method = function run(...args) {
    return runNow(command.apply(this, args));
  };
  Object.defineProperty(method, 'name', { value: name });
  Object.defineProperty(KeyloomClient.prototype, name, {
    value: method, writable: true, enumerable: false, configurable: true,
  });
}

// scan() and its kin hand keys out as an iterator.
installScans(KeyloomClient, iterate);

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
