'use strict';
// The promise client: require('keyloom/promises'). The same commands as
// keyloom/client (the same generator methods, commands/), each returning a
// Promise. A command's library calls go to the client's pipeline
// (keyloom_client.node): a thread of the client's own on which calls wait for
// their servers, so this thread never does. The calls made in one tick are
// handed over together, and the pipeline sends them to each server in one
// write.
const { kl, own } = require('./native.js');
const { codes, KeyloomError } = require('./support.js');
const { ClientCore, $handle, $failure, $destroy, failureFields } = require('./core.js');
const { prepareClient, setupCommands, isServersDown } = require('./options.js');
const { commands } = require('./commands/index.js');
const { installScans, iterateAsync } = require('./scan.js');

// The pipelined form of every library function a command may call, answered forms included.
const pipelinedOf = new Map();
for (const [name, pipelined] of Object.entries(own.pipelined)) {
  const fn = kl[name] ?? own[name];
  if (typeof fn === 'function') pipelinedOf.set(fn, pipelined);
}
for (const [name, pipelined] of Object.entries(own.answered_pipelined)) pipelinedOf.set(own.answered[name], pipelined);

const NO_FAILURE = Object.freeze({});
const $run = Symbol('keyloom.run');
const DEFAULT_MAX_QUEUED = 100000;

// Options each command of the promise client takes besides its own.
const CALL_OPTIONS = ['signal', 'timeoutMs'];

function abortError(signal) {
  return signal.reason ?? Object.assign(new Error('This operation was aborted'), { name: 'AbortError', code: 'ABORT_ERR' });
}

// The library calls of one client in flight, by ticket (a small whole number,
// reused once its call is settled).
class Tickets {
  #tasks = [];
  #free = [];
  take(task) {
    const ticket = this.#free.length > 0 ? this.#free.pop() : this.#tasks.length;
    this.#tasks[ticket] = task;
    return ticket;
  }
  give(ticket) {
    const task = this.#tasks[ticket];
    this.#tasks[ticket] = undefined;
    this.#free.push(ticket);
    return task;
  }
}

class KeyloomClient extends ClientCore {
  #tickets = new Tickets();
  #inFlight = 0;
  #drained = null; // resolves close() once nothing is in flight
  #closing = null;
  #failure = NO_FAILURE;
  #flushQueued = false;
  #maxQueued;
  #settings;
  #flush = () => {
    this.#flushQueued = false;
    if (!this.closed) own.pipeline_flush(this[$handle]);
  };

  constructor(handle, onDirty, sharded, settings, servers) {
    super(handle, onDirty, sharded, servers);
    this.#settings = settings;
    this.#maxQueued = settings.maxQueued ?? DEFAULT_MAX_QUEUED;
    // The callback holds the tickets, not the client: an idle client stays
    // collectable (its finaliser stops the pipeline).
    const tickets = this.#tickets;
    if (own.pipeline_start(handle, (results) => KeyloomClient.#settle(tickets, results)) !== 0) {
      this[$destroy]();
      throw new KeyloomError(codes.KL_PTHREAD_OP_FAILURE, { command: 'createClient' });
    }
    /** Settles when the credentials and database given to createClient are in place on the servers that answered. */
    this.ready = this.#setUp();
    this.ready.catch(() => {}); // a failure is the commands' to report too; ready only tells it
  }

  // AUTH and SELECT, made before any command of the caller's: the pipeline
  // keeps the order of what it is given, so every later command finds them
  // in place.
  async #setUp() {
    const steps = setupCommands(this.#settings).map(([name, args]) => this[name](...args));
    for (const step of steps) {
      try {
        await step;
      } catch (err) {
        if (!isServersDown(err)) throw err;
      }
    }
  }

  [$failure]() {
    return this.#failure;
  }

  // Hands one library call to the pipeline under a ticket; the flush at the
  // end of the tick sends it with the others of the tick.
  #submit(task, fn, args) {
    const pipelined = pipelinedOf.get(fn);
    if (pipelined === undefined) throw new Error(`keyloom: ${fn.name} has no pipelined form`);
    const h = this[$handle];
    const ticket = this.#tickets.take(task);
    if (task.timeoutMs) own.pipeline_timeout(h, task.timeoutMs);
    try {
      pipelined(...args, ticket);
    } catch (err) {
      this.#tickets.give(ticket);
      throw err;
    } finally {
      if (task.timeoutMs) own.pipeline_timeout(h, 0);
    }
    if (!this.#flushQueued) {
      this.#flushQueued = true;
      queueMicrotask(this.#flush);
    }
  }

  // Drives a command: each library call it yields goes to the pipeline, and
  // the command resumes with the call's result when the pipeline settles it
  // (#settle). One Promise per command, none per library call. It counts as
  // in flight until it ends.
  #drive(command, timeoutMs) {
    return new Promise((resolve, reject) => {
      const task = { client: this, command, timeoutMs, resolve, reject, answered: false };
      this.#inFlight++;
      let step;
      try {
        step = command.next();
      } catch (err) {
        this.#finish(task, err);
        return;
      }
      this.#advance(task, step);
    });
  }

  // Runs the command until it waits for a library call, or ends.
  #advance(task, step) {
    for (;;) {
      if (step.done) return this.#finish(task, undefined, step.value);
      const { fn, args, answered } = step.value;
      try {
        task.answered = answered === true;
        this.#submit(task, fn, args);
        return;
      } catch (err) {
        try {
          step = task.command.throw(err);
        } catch (thrown) {
          return this.#finish(task, thrown);
        }
      }
    }
  }

  // A library call of the task's came back: its answer (answered forms) or
  // its code, with the failure it met.
  #resume(task, result) {
    let step;
    try {
      if (result instanceof Error) {
        step = task.command.throw(result);
      } else if (task.answered) {
        step = task.command.next(result); // it carries its own failure (core.js $answered)
      } else if (typeof result === 'number') {
        this.#failure = NO_FAILURE;
        step = task.command.next(result);
      } else {
        this.#failure = failureFields(result[1], result[2], result[3]);
        step = task.command.next(result[0]);
      }
    } catch (err) {
      return this.#finish(task, err);
    }
    this.#advance(task, step);
  }

  #finish(task, err, value) {
    if (--this.#inFlight === 0 && this.#drained) this.#drained();
    if (err === undefined) task.resolve(value);
    else task.reject(err);
  }

  // The pipeline's settle callback: every library call that finished since
  // the last one, [ticket, result, ...], in one call.
  static #settle(tickets, results) {
    for (let i = 0; i < results.length; i += 2) {
      const task = tickets.give(results[i]);
      task.client.#resume(task, results[i + 1]);
    }
  }

  // Runs the command `command` (a checked generator method) with args.
  [$run](command, args) {
    if (this.#closing !== null || this.closed) {
      return Promise.reject(new KeyloomError(codes.KL_INVALID_CLIENT, { message: 'keyloom: the client is closed' }));
    }
    if (this.#inFlight >= this.#maxQueued) {
      return Promise.reject(new KeyloomError(codes.KL_MEMORY_FAILURE, {
        message: `keyloom: ${this.#inFlight} commands are in flight already (maxQueued ${this.#maxQueued}); wait for some to settle`,
      }));
    }
    const last = args[args.length - 1];
    if (last === null || typeof last !== 'object' || !hasCallOptions(last)) {
      return this.#drive(command.apply(this, args), 0); // the common case: no per-call options
    }
    const { signal, timeoutMs, rest } = callOptions(args);
    if (signal?.aborted) return Promise.reject(abortError(signal));
    const settled = this.#drive(command.apply(this, rest), timeoutMs);
    if (!signal) return settled;
    // An abort settles the caller's Promise at once; the command itself, if it
    // was handed over already, still runs to its end and its answer is dropped.
    return new Promise((resolve, reject) => {
      const onAbort = () => reject(abortError(signal));
      signal.addEventListener('abort', onAbort, { once: true });
      settled.then(resolve, reject).finally(() => signal.removeEventListener('abort', onAbort));
    });
  }

  /**
   * Waits for the commands in flight, then closes the connections and frees
   * the client. Commands made after close() reject with KL_INVALID_CLIENT.
   */
  close() {
    if (this.#closing === null) {
      this.#closing = new Promise((resolve) => {
        if (this.#inFlight === 0) resolve();
        else this.#drained = resolve;
      }).then(() => this[$destroy]());
    }
    return this.#closing;
  }

  /** A new promise client made from the options given to createClient. */
  duplicate() {
    return createClient(this.#settings);
  }
}

// True when an options object holds per-call options (signal, timeoutMs).
function hasCallOptions(last) {
  return !Array.isArray(last) && !(last instanceof Uint8Array) &&
    CALL_OPTIONS.some((name) => Object.prototype.hasOwnProperty.call(last, name));
}

// Splits the per-call options off a command's last argument, which is then
// passed on without them (or not at all when they were all it held).
function callOptions(args) {
  const last = args[args.length - 1];
  const { signal, timeoutMs, ...others } = last;
  if (signal !== undefined && !(signal instanceof AbortSignal)) {
    throw new TypeError('keyloom: the signal option must be an AbortSignal');
  }
  if (timeoutMs !== undefined && !(Number.isInteger(timeoutMs) && timeoutMs > 0 && timeoutMs <= 0xffffffff)) {
    throw new TypeError('keyloom: timeoutMs must be a whole number of milliseconds > 0');
  }
  const rest = args.slice(0, -1);
  if (Object.keys(others).length > 0) rest.push(others);
  return { signal, timeoutMs, rest };
}

for (const [name, command] of commands) {
  if (name in KeyloomClient.prototype) throw new Error(`keyloom: ${name} is also a member of the promise client`);
  const method = function run(...args) {
    try {
      return this[$run](command, args);
    } catch (err) {
      return Promise.reject(err);
    }
  };
  Object.defineProperty(method, 'name', { value: name });
  Object.defineProperty(KeyloomClient.prototype, name, {
    value: method, writable: true, enumerable: false, configurable: true,
  });
}

// scan() and its kin hand keys out as an async iterator (for await).
installScans(KeyloomClient, iterateAsync);

if (typeof Symbol.asyncDispose === 'symbol') {
  KeyloomClient.prototype[Symbol.asyncDispose] = function asyncDispose() { return this.close(); };
}

/**
 * Makes a promise client: the options of keyloom/client's createClient, and
 * maxQueued (the most commands in flight at once, 100000 by default; one more
 * rejects at once). It returns at once; `client.ready` settles when the
 * password and db are in place.
 */
function createClient(options = {}) {
  const prepared = prepareClient(options, { shared: true, extra: ['maxQueued'] });
  const settings = prepared.options;
  if (settings.maxQueued !== undefined && !(Number.isInteger(settings.maxQueued) && settings.maxQueued > 0)) {
    kl.kl_client_destroy(prepared.handle);
    throw new TypeError('keyloom createClient: maxQueued must be a whole number > 0');
  }
  return new KeyloomClient(prepared.handle, settings.onDirty, prepared.sharded, settings, prepared.servers);
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
