'use strict';
// Iterating keys without KEYS: scan() walks every server of the first group
// that answers with SCAN, and hscan/sscan/zscan walk one key. A walk is a
// generator of steps, written once: { fetch: call() arguments } asks for a
// page (the walk resumes with its reply) and { items } hands entries out. The
// synchronous client drives it into an iterator, the promise client into an
// async iterator.
const { KeyloomError } = require('./support.js');
const { $servers } = require('./core.js');

const SCAN_OPTIONS = ['match', 'count', 'type', 'buffer'];

// SCAN's own arguments for options, checked.
function scanArguments(options, command, known) {
  if (options === undefined || options === null) return [];
  if (typeof options !== 'object' || Array.isArray(options)) throw new TypeError(`keyloom ${command}: options are an object`);
  for (const name of Object.keys(options)) {
    if (!known.includes(name)) throw new TypeError(`keyloom ${command}: unknown option '${name}' (it reads ${known.join(', ')})`);
  }
  const out = [];
  if (options.match !== undefined) {
    if (typeof options.match !== 'string') throw new TypeError(`keyloom ${command}: match is a glob-style pattern string`);
    out.push('MATCH', options.match);
  }
  if (options.count !== undefined) {
    if (!Number.isInteger(options.count) || options.count < 1) throw new TypeError(`keyloom ${command}: count is a whole number > 0`);
    out.push('COUNT', options.count);
  }
  if (options.type !== undefined) {
    if (typeof options.type !== 'string') throw new TypeError(`keyloom ${command}: type is a type name ('string', 'hash', ...)`);
    out.push('TYPE', options.type);
  }
  return out;
}

// The client's servers, group by group, in the order given.
function groupsOf(client) {
  const groups = new Map();
  for (const { group, name } of client[$servers]) {
    if (!groups.has(group)) groups.set(group, []);
    if (!groups.get(group).includes(name)) groups.get(group).push(name);
  }
  return [...groups.values()];
}

// Every key once: SCAN on each server of the first group that answers. A
// group that fails before any key was handed out gives way to the next one.
function* keysWalk(client, args, buffer) {
  const groups = groupsOf(client);
  for (let g = 0; g < groups.length; g++) {
    let handedOut = false;
    try {
      for (const server of groups[g]) {
        const seen = new Set(); // SCAN may return a key twice
        let cursor = '0';
        do {
          const [next, keys] = yield { fetch: ['SCAN', cursor, ...args, { server, buffer }] };
          cursor = Buffer.isBuffer(next) ? next.toString() : next;
          const fresh = keys.filter((k) => {
            const id = Buffer.isBuffer(k) ? k.toString('latin1') : k;
            return !seen.has(id) && seen.add(id);
          });
          if (fresh.length > 0) {
            handedOut = true;
            yield { items: fresh };
          }
        } while (cursor !== '0');
      }
      return;
    } catch (err) {
      if (handedOut || g === groups.length - 1 || !(err instanceof KeyloomError)) throw err;
    }
  }
}

// A score as the server writes it ("1.5", "inf", "-inf").
const scoreOf = (text) => Number(text.replace(/^([+-]?)inf$/i, '$1Infinity'));

// One key's entries: HSCAN gives [field, value], SSCAN members, ZSCAN [member, score].
function* entriesWalk(command, key, args, buffer) {
  const seen = new Set();
  let cursor = '0';
  do {
    const [next, flat] = yield { fetch: [command, key, cursor, ...args, { key, buffer }] };
    cursor = Buffer.isBuffer(next) ? next.toString() : next;
    const items = [];
    const step = command === 'SSCAN' ? 1 : 2;
    for (let i = 0; i < flat.length; i += step) {
      const id = Buffer.isBuffer(flat[i]) ? flat[i].toString('latin1') : flat[i];
      if (seen.has(id)) continue;
      seen.add(id);
      if (command === 'SSCAN') items.push(flat[i]);
      else if (command === 'HSCAN') items.push([flat[i], flat[i + 1]]);
      else items.push([flat[i], scoreOf(String(flat[i + 1]))]);
    }
    if (items.length > 0) yield { items };
  } while (cursor !== '0');
}

// The walks by method name; their options are checked when the method is called.
const ENTRY_OPTIONS = ['match', 'count', 'buffer'];
const entries = (command) => (client, key, options) =>
  entriesWalk(command, key, scanArguments(options, command.toLowerCase(), ENTRY_OPTIONS), options?.buffer);
const WALKS = {
  scan: (client, options) => keysWalk(client, scanArguments(options, 'scan', SCAN_OPTIONS), options?.buffer),
  hscan: entries('HSCAN'),
  sscan: entries('SSCAN'),
  zscan: entries('ZSCAN'),
};

/** The synchronous client's iterator over a walk. */
function* iterate(client, walk) {
  let step = walk.next();
  while (!step.done) {
    if (step.value.items) {
      yield* step.value.items;
      step = walk.next();
      continue;
    }
    let reply;
    try {
      reply = client.call(...step.value.fetch);
    } catch (err) {
      step = walk.throw(err);
      continue;
    }
    step = walk.next(reply);
  }
}

/** The promise client's async iterator over a walk. */
async function* iterateAsync(client, walk) {
  let step = walk.next();
  while (!step.done) {
    if (step.value.items) {
      yield* step.value.items;
      step = walk.next();
      continue;
    }
    let reply;
    try {
      reply = await client.call(...step.value.fetch);
    } catch (err) {
      step = walk.throw(err);
      continue;
    }
    step = walk.next(reply);
  }
}

/** Puts scan, hscan, sscan and zscan on a client class, driven by `drive`. */
function installScans(Client, drive) {
  for (const [name, walk] of Object.entries(WALKS)) {
    const method = function scanning(...args) {
      if (args.length > walk.length - 1) throw new TypeError(`keyloom ${name}: too many arguments (${args.length})`);
      if (name !== 'scan' && args[0] === undefined) throw new TypeError(`keyloom ${name}: the key is missing`);
      return drive(this, walk(this, ...args));
    };
    Object.defineProperty(method, 'name', { value: name });
    Object.defineProperty(Client.prototype, name, { value: method, writable: true, enumerable: false, configurable: true });
  }
}

module.exports = { installScans, iterate, iterateAsync };
