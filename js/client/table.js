'use strict';
// The simple commands, one line each:
//
//   command(library function, [argument kinds], answer, [option kinds])
//
// makes the method. The caller's arguments come in the order of the kinds
// (options last); the C call is laid out as (client, the arguments' C values,
// the answer's cells, the options' C values), which is how every simple
// function of the library reads. A kind carries its own conversion and the
// text of its TypeError; an answer says which codes are not errors and what
// the method returns. An answer that reads cells (one value, several, a count)
// calls the command's answered form, which keeps the cells natively and gives
// the value back: the method passes the arguments and options alone.
const {
  text, byteLength, seconds, integer, number, wideInteger, decodeInteger, INT64_MIN, INT64_MAX,
} = require('./support.js');
const { own, libraryFunction, answeredFunction } = require('./native.js');
const { $handle, $status, $answered, request, requestAnswer } = require('./core.js');

const NULL_STRING = '_NL_'; // the addon's null-string sentinel (keys, flushall)

// ---- argument kinds: one caller argument, the C arguments it becomes ----------
//
// Each kind and answer names the C kinds it stands for (`c`, in the spelling
// of the native tables; 'CharP|CharConstP' takes either), and each line is
// checked against its library function's declaration when it is made.

const TEXT_C = ['CharP|CharConstP', 'Size'];

/** Text as (chars, byte length): keys, fields, members, values. */
const textOf = (label) => ({
  label,
  c: TEXT_C,
  push(argv, value, command) {
    const t = text(value, label, command);
    argv.push(t, byteLength(t));
  },
});
/** A whole number (int). `fallback` stands for an omitted argument. */
const integerOf = (label, fallback) => ({
  label,
  fallback,
  c: ['Int'],
  push(argv, value, command) { argv.push(integer(value, label, command)); },
});
/**
 * A whole number as wide as the server's (64-bit), sent as decimal text: a
 * safe-integer Number or a BigInt. `negate` sends its opposite (DECRBY).
 */
const wideIntegerOf = (label, { negate = false } = {}) => ({
  label,
  c: TEXT_C,
  push(argv, value, command) {
    let n = wideInteger(value, label, command);
    if (negate) n = -n;
    if (n < INT64_MIN || n > INT64_MAX) {
      throw new RangeError(`keyloom ${command}: the ${label} must fit 64 bits`);
    }
    const t = String(n);
    argv.push(t, t.length);
  },
});
/** A fixed whole number the caller does not give (INCR is INCRBY 1). */
const fixedInteger = (n) => ({
  fixed: true,
  c: TEXT_C,
  push(argv) {
    const t = String(n);
    argv.push(t, t.length);
  },
});
/** A number (double). */
const numberOf = (label, fallback) => ({
  label,
  fallback,
  c: ['Double'],
  push(argv, value, command) { argv.push(number(value, label, command)); },
});
/** Seconds (size_t). */
const secondsOf = (label) => ({
  label,
  c: ['Size'],
  push(argv, value, command) { argv.push(seconds(value, label, command)); },
});

const KEY = textOf('key');
const FIELD = textOf('field');
const MEMBER = textOf('member');
const VALUE = textOf('value');
const WORD = textOf('word');

// ---- option kinds: read from the options object -------------------------------

function routeOf(options, command) {
  const r = options?.route;
  return r === undefined || r === null ? '' : text(r, 'route', command);
}

function groupOf(options, command) {
  return options?.group ? text(options.group, 'group', command) : '';
}

const option = (name, c, push) => Object.assign(push, { optionName: name, c });
const TTL = option('ttl', ['Size'], (argv, o, command) => argv.push(seconds(o?.ttl, 'ttl', command)));
const ROUTE = option('route', TEXT_C, (argv, o, command) => {
  const r = routeOf(o, command);
  argv.push(r, byteLength(r));
});
// The group addressed (every group when none) and no per-server result cell.
const GROUP = option('group', ['CharConstP|CharP', 'RetPP'], (argv, o, command) => argv.push(groupOf(o, command), null));
const WEIGHT = option('weight', ['UInt'], (argv, o, command) => argv.push(seconds(o?.weight ?? 1, 'weight', command)));

// ---- answers ------------------------------------------------------------------

/** The code alone: true, or false for one of the `soft` codes. */
const done = (...soft) => ({
  c: [],
  * read(client, name, key, argv, fn) {
    return client[$status](yield request(fn, ...argv), name, key, soft.length ? soft : undefined);
  },
});
/**
 * One value (null when missing); options.buffer gives a Buffer. The library
 * call is the command's answered form: one crossing, no cells.
 */
const value = () => ({
  c: ['CharPP', 'SizeP'],
  options: ['buffer'],
  answered: true,
  * read(client, name, key, argv, fn, options) {
    return client[$answered](yield requestAnswer(fn, ...argv, options?.buffer === true), name, key);
  },
});
/** Several values ([] when missing); options.buffer gives Buffers. Answered, like value(). */
const values = () => ({
  c: ['CharPPP', 'SizeP', 'SizePP'],
  options: ['buffer'],
  answered: true,
  * read(client, name, key, argv, fn, options) {
    return client[$answered](yield requestAnswer(fn, ...argv, options?.buffer === true), name, key) ?? [];
  },
});
/** A count (an int or unsigned int cell); `missing` when the key is not there. Answered. */
const count = ({ missing = 0 } = {}) => ({
  c: ['IntP|UIntP'],
  answered: true,
  * read(client, name, key, argv, fn) {
    return client[$answered](yield requestAnswer(fn, ...argv, false), name, key) ?? missing;
  },
});
/**
 * A 64-bit answer given as decimal text (a char ** and a size_t * cell): a
 * Number, or a BigInt past 2^53; `missing` when the key is not there.
 */
const wide = ({ missing = null } = {}) => ({
  c: ['CharPP', 'SizeP'],
  answered: true,
  * read(client, name, key, argv, fn) {
    const t = client[$answered](yield requestAnswer(fn, ...argv, false), name, key);
    return t === null ? missing : decodeInteger(t);
  },
});
// ---- the method of one line ---------------------------------------------------

/**
 * The method `name` calls library function `fnName` (js/client/native.js) with the caller's
 * arguments converted by `args` and the options read by
 * `optionKinds` (the options object is the argument after the last kind).
 */
function command(fnName, args, answer, optionKinds = []) {
  checkLayout(fnName, [['Client'], ...[...args, answer, ...optionKinds].map((k) => k.c)].flat());
  const fn = answer.answered ? answeredFunction(fnName) : libraryFunction(fnName);
  const keyed = args[0] === KEY;
  const optionNames = [...optionKinds.map((k) => k.optionName), ...(answer.options ?? [])];
  const taken = args.filter((k) => !k.fixed).length; // what the caller gives
  return Object.assign(function* method(...given) {
    const name = method.commandName;
    const argv = [this[$handle]];
    let i = 0;
    for (const kind of args) {
      if (kind.fixed) {
        kind.push(argv);
        continue;
      }
      const v = given[i] === undefined && kind.fallback !== undefined ? kind.fallback : given[i];
      kind.push(argv, v, name);
      i++;
    }
    const options = given[taken];
    for (const read of optionKinds) read(argv, options, name);
    return yield* answer.read(this, name, keyed ? given[0] : undefined, argv, fn, options);
  }, {
    // What it takes, for the argument checks (arguments.js).
    parameters: [...args.filter((k) => !k.fixed).map((k) => k.label), ...(optionNames.length ? ['options'] : [])],
    optionNames: new Set(optionNames),
  });
}

/**
 * Throws when the C kinds a line stands for (`laid`) are not those of its
 * library function's table line, in number and order.
 */
function checkLayout(fnName, laid) {
  const spelled = own.signatures[fnName];
  if (spelled === undefined) throw new Error(`keyloom: ${fnName} is no library command of the native tables`);
  const declared = spelled.split(', ');
  const at = declared.findIndex((kind, i) => laid[i] === undefined || !laid[i].split('|').includes(kind));
  if (at === -1 && laid.length === declared.length) return;
  const where = at === -1 ? `it lays out ${laid.length} C arguments, not ${declared.length}` : `C argument ${at + 1} is ${laid[at] ?? 'missing'}`;
  throw new Error(`keyloom: the line of ${fnName} does not match its declaration (${spelled}): ${where}`);
}

/**
 * The methods of a family's table: { name: command(...) or a generator
 * function }. Every method is a command generator (core.js); the clients
 * drive them.
 */
function methods(table) {
  for (const [name, m] of Object.entries(table)) {
    if (!(m instanceof GeneratorFunction)) {
      throw new Error(`keyloom: the method ${name} is not a generator function (write *${name}(...) { ... })`);
    }
    commands[name] = m;
    if (m.commandName !== undefined) continue;
    m.commandName = name;
    Object.defineProperty(m, 'name', { value: name });
  }
  return table;
}

const GeneratorFunction = Object.getPrototypeOf(function* generator() {}).constructor;
// Every method by name, for the commands that run another: yield* subcommand(this, 'get', key).
const commands = Object.create(null);

/** Runs the command `name` as part of the running one (its arguments are not checked again). */
function* subcommand(self, name, ...args) {
  return yield* commands[name].apply(self, args);
}

module.exports = {
  command, checkLayout, methods, subcommand, textOf, integerOf, wideIntegerOf, fixedInteger, numberOf, secondsOf, KEY, FIELD, MEMBER, VALUE, WORD,
  TTL, ROUTE, GROUP, WEIGHT, done, value, values, count, wide, routeOf, groupOf, NULL_STRING,
};
