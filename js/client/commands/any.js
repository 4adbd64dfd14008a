'use strict';
// Commands the client has no method for, and scripts: call() sends any
// command (routed by its first key, a key given, a server, or every server),
// eval()/evalsha()/scriptLoad() run Lua scripts routed by their keys. The
// library keeps the scripts it has seen, loads them ahead on each connection
// and runs a script again as EVAL on a server that lost it.
const crypto = require('node:crypto');
const { KeyloomError } = require('../support.js');
const { own } = require('../native.js');
const { $handle, $answered, $servers, requestAnswer } = require('../core.js');
const { methods } = require('../table.js');
const { wordOf, encodeRequest, decodeReply } = require('../resp.js');

// kl_command's modes (include/keyloom.h).
const READ = 0;
const WRITE = 1;
const SERVER = 2;
const SCRIPT_KEYS = 4;

const CALL_OPTIONS = ['key', 'server', 'all', 'write', 'buffer'];
const SCRIPT_OPTIONS = ['server', 'readOnly', 'buffer'];

// The options object at the end of a call's arguments, if there is one.
function splitOptions(args, known, command) {
  const last = args[args.length - 1];
  if (last === null || typeof last !== 'object' || last instanceof Uint8Array || Array.isArray(last)) {
    return { words: args, options: {} };
  }
  for (const name of Object.keys(last)) {
    if (!known.includes(name)) throw new TypeError(`keyloom ${command}: unknown option '${name}' (it reads ${known.join(', ')})`);
  }
  return { words: args.slice(0, -1), options: last };
}

/** The name of a server given as 'host:port' or as its index in the order the servers were given. */
function serverName(client, server, command) {
  const list = client[$servers];
  if (typeof server === 'number') {
    if (!Number.isInteger(server) || server < 0 || server >= list.length) {
      throw new RangeError(`keyloom ${command}: server ${server} is not one of the ${list.length} servers (0 to ${list.length - 1})`);
    }
    return list[server].name;
  }
  if (typeof server !== 'string' || !list.some((s) => s.name === server)) {
    throw new TypeError(`keyloom ${command}: server is 'host:port' of one of this client's servers (${list.map((s) => s.name).join(', ')}) or its index`);
  }
  return server;
}

// One request on the library: its answer decoded.
function* send(client, command, mode, route, request, asBuffer) {
  const routeBytes = wordOf(route, command);
  const answer = yield requestAnswer(own.answered.kl_command, client[$handle], mode, routeBytes, routeBytes.length,
    request, request.length, true);
  const reply = client[$answered](answer, command, undefined);
  return decodeReply(reply, asBuffer, command);
}

// On every server: { 'host:port': answer }, a server's failure in its place.
function* onEveryServer(client, command, request, asBuffer) {
  const out = {};
  const names = [...new Set(client[$servers].map((s) => s.name))];
  for (const name of names) {
    try {
      out[name] = yield* send(client, command, SERVER, name, request, asBuffer);
    } catch (err) {
      if (!(err instanceof KeyloomError)) throw err;
      out[name] = err;
    }
  }
  return out;
}

const sha1 = (text) => crypto.createHash('sha1').update(text).digest('hex');

// EVAL or EVALSHA with its keys and arguments, routed by the keys.
function* runScript(client, command, words, keys, args, options) {
  if (!Array.isArray(keys) || !Array.isArray(args)) {
    throw new TypeError(`keyloom ${command}: keys and args are arrays`);
  }
  const request = encodeRequest([...words, String(keys.length), ...keys, ...args].map((w) => wordOf(w, command)));
  if (options.server !== undefined) {
    return yield* send(client, command, SERVER, serverName(client, options.server, command), request, options.buffer);
  }
  if (keys.length === 0) {
    throw new TypeError(`keyloom ${command}: a script without keys needs { server } to say where it runs`);
  }
  const mode = (options.readOnly ? READ : WRITE) | SCRIPT_KEYS;
  return yield* send(client, command, mode, keys[0], request, options.buffer);
}

const table = methods({
  /**
   * Any command: call('HSET', key, field, value). Routed by its first argument
   * (the key), or options.key; options.server ('host:port' or index) sends it
   * to one server, options.all to every server ({ 'host:port': answer }).
   * options.write sends it to every group, as writes go. Replies as the other
   * methods give them; options.buffer gives bulk strings as Buffers.
   */
  * call(name, ...args) {
    if (typeof name !== 'string' || name === '') throw new TypeError('keyloom call: the command name is a non-empty string');
    const { words, options } = splitOptions(args, CALL_OPTIONS, 'call');
    const request = encodeRequest([name, ...words].map((w) => wordOf(w, 'call')));
    if (options.all) return yield* onEveryServer(this, name, request, options.buffer);
    if (options.server !== undefined) {
      return yield* send(this, name, SERVER, serverName(this, options.server, 'call'), request, options.buffer);
    }
    const route = options.key ?? words[0];
    if (route === undefined) {
      throw new TypeError(`keyloom call: ${name} has no key to route by; give { server } or { all: true }`);
    }
    return yield* send(this, name, options.write ? WRITE : READ, route, request, options.buffer);
  },

  /**
   * A Lua script over keys (all on one server: a hash tag keeps them together)
   * and args, sent to every group as writes are (options.readOnly: the first
   * group up). The script is loaded once per connection and run by its SHA-1.
   */
  * eval(script, keys = [], args = [], options = {}) {
    if (typeof script !== 'string' || script === '') throw new TypeError('keyloom eval: the script is a non-empty string');
    return yield* runScript(this, 'eval', ['EVAL', script], keys, args, options ?? {});
  },

  /** A script by its SHA-1: one loaded by scriptLoad or eval is run again as EVAL where a server lost it. */
  * evalsha(sha, keys = [], args = [], options = {}) {
    if (typeof sha !== 'string' || !/^[0-9a-fA-F]{40}$/.test(sha)) throw new TypeError('keyloom evalsha: the SHA-1 is 40 hex digits');
    return yield* runScript(this, 'evalsha', ['EVALSHA', sha], keys, args, options ?? {});
  },

  /** SCRIPT LOAD on every server; returns the script's SHA-1 for evalsha. */
  * scriptLoad(script) {
    if (typeof script !== 'string' || script === '') throw new TypeError('keyloom scriptLoad: the script is a non-empty string');
    const answers = yield* onEveryServer(this, 'scriptLoad', encodeRequest(['SCRIPT', 'LOAD', script].map((w) => wordOf(w, 'scriptLoad'))));
    for (const answer of Object.values(answers)) if (answer instanceof Error) throw answer;
    return sha1(script);
  },
});

// What the script methods read of their options (checked before they run).
for (const name of ['eval', 'evalsha']) table[name].optionNames = new Set(SCRIPT_OPTIONS);

module.exports = table;
