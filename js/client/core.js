'use strict';
// The client object and what every command does with it: the handle of the
// library's client, the result-code checks (KeyloomError, the dirty bit and
// onDirty) and the read shapes (one value, several values, an integer). The
// commands themselves live in commands/, one file per family; index.js puts
// them on KeyloomClient's prototype.
const {
  kl, codes, DIRTY, KeyloomError,
} = require('./support.js');
const { own } = require('./native.js');

const NOTFOUND = codes.KL_NOTFOUND;
const resultOf = (rc) => rc & ~DIRTY;

// The members the command files use, under symbols: not part of the public surface.
const $handle = Symbol('keyloom.handle');
const $check = Symbol('keyloom.check');
const $status = Symbol('keyloom.status');
const $answered = Symbol('keyloom.answered');
// True when some group spreads its keys over more than one server.
const $sharded = Symbol('keyloom.sharded');
// The client's servers in the order given: [{ group, name: 'host:port' }].
const $servers = Symbol('keyloom.servers');
// The failure the last library call met: { server, cause } or { server, serverMessage } or {}.
const $failure = Symbol('keyloom.failure');
const $destroy = Symbol('keyloom.destroy');
const $onDirty = Symbol('keyloom.onDirty');

// A command is a generator: each library call it makes is
//   const rc = yield request(kl.kl_get_whole, this[$handle], ...)
// and the client's driver makes the call: at once on this thread (the
// synchronous client) or through the client's pipeline (the promise client),
// resuming the command with the call's code either way.
const request = (fn, ...args) => ({ fn, args });
// A call of an answered form (keyloom_client.node `answered`): it comes back
// with the value itself, null for KL_NOTFOUND, or for any other code the
// failure record { code, value, kind, server, text } (an object without a
// prototype, which no value is), which the command hands to $answered.
const requestAnswer = (fn, ...args) => ({ fn, args, answered: true });
const isFailureRecord = (answer) => typeof answer === 'object' && answer !== null && Object.getPrototypeOf(answer) === null;

/** Runs a command to its end, each library call made as it comes. */
function runNow(command) {
  let step = command.next();
  while (!step.done) {
    const { fn, args } = step.value;
    let rc;
    try {
      rc = fn(...args);
    } catch (err) {
      step = command.throw(err);
      continue;
    }
    step = command.next(rc);
  }
  return step.value;
}

// A client is destroyed by close(), by its finaliser, or, in a worker thread that
// ends first, by the thread's cleanup (keyloom_client.node).
const clients = new FinalizationRegistry((handle) => own.client_destroy(handle));

const FAILURE_CONNECTION = 1;
const FAILURE_SERVER_REPLY = 2;

/** A failure's kind, server and text as KeyloomError's fields. */
function failureFields(kind, server, text) {
  switch (kind) {
    case FAILURE_CONNECTION: return { server, cause: text };
    case FAILURE_SERVER_REPLY: return { server, serverMessage: text };
    default: return {};
  }
}

// What the library knows of the last call's failure: the server and the cause,
// or the server's own error reply.
function failureOf(handle) {
  if (handle === null) return {};
  const kind = own.kl_last_failure_kind(handle);
  if (kind === 0) return {};
  return failureFields(kind, own.kl_last_failure_server(handle), own.kl_last_failure_text(handle));
}

// On the handle given out: the client it belongs to, kept alive by it.
const $owner = Symbol('keyloom.owner');

// What both clients share: the library's client, the code checks and the
// answer shapes. KeyloomClient (here) runs commands at once; the promise
// client (promises.js) through the client's pipeline.
class ClientCore {
  #h;
  #onDirty;
  #alias; // the handle given out: another proxy of #h, which the finaliser does not hold

  constructor(handle, onDirty, sharded = false, servers = []) {
    own.client_adopt(handle);
    this.#h = handle;
    this.#onDirty = onDirty;
    this[$sharded] = sharded;
    this[$servers] = servers;
    clients.register(this, handle, this);
  }

  get [$handle]() {
    if (this.#h === null) {
      throw new KeyloomError(codes.KL_INVALID_CLIENT, { message: 'keyloom: the client is closed' });
    }
    return this.#h;
  }

  /**
   * The exact layer's kl_client proxy, for calls this client does not wrap. It
   * keeps this client alive; it is valid until close().
   */
  get handle() {
    const h = this[$handle];
    if (this.#alias === undefined) {
      this.#alias = own.client_alias(h);
      Object.defineProperty(this.#alias, $owner, { value: this });
    }
    return this.#alias;
  }

  get closed() {
    return this.#h === null;
  }

  // failure: what the call met, when the caller has it already.
  [$check](rc, command, key, failure) {
    if (rc === 0) return;
    const r = resultOf(rc);
    if (r !== 0) throw new KeyloomError(r, { command, key, ...(failure ?? this[$failure]()) });
    if (this.#onDirty) this.#onDirty({ command, key, code: rc });
  }

  // The answer of an answered call: its value, or the value once its code is
  // checked (an error throws; the dirty bit tells onDirty); null for one of
  // the `soft` codes.
  [$answered](answer, command, key, soft) {
    if (!isFailureRecord(answer)) return answer;
    if (soft && soft.includes(resultOf(answer.code))) return null;
    this[$check](answer.code, command, key, failureFields(answer.kind, answer.server, answer.text));
    return answer.value;
  }

  // What the last library call met, for its KeyloomError.
  [$failure]() {
    return failureOf(this.#h);
  }

  // A command whose only answer is its code: true on success; `soft` codes give false.
  [$status](rc, command, key, soft) {
    const r = resultOf(rc);
    if (soft && soft.includes(r)) return false;
    this[$check](rc, command, key);
    return true;
  }

  // Closes the connections and frees the library's client.
  [$destroy]() {
    if (this.#h === null) return;
    const h = this.#h;
    this.#h = null;
    clients.unregister(this);
    own.client_destroy(h);
  }

  get [$onDirty]() {
    return this.#onDirty;
  }
}

class KeyloomClient extends ClientCore {
  /** Closes the connections and frees the client; later calls throw KL_INVALID_CLIENT. */
  close() {
    this[$destroy]();
  }

  /** A new client with the same settings and servers and its own connections. */
  duplicate() {
    const h = kl.kl_group_client(this[$handle]);
    if (h === null) throw new KeyloomError(codes.KL_MEMORY_FAILURE, { command: 'duplicate' });
    return new KeyloomClient(h, this[$onDirty], this[$sharded], this[$servers]);
  }
}

if (typeof Symbol.dispose === 'symbol') {
  KeyloomClient.prototype[Symbol.dispose] = function dispose() { this.close(); };
}

module.exports = {
  ClientCore, KeyloomClient, NOTFOUND, resultOf, request, requestAnswer, isFailureRecord, runNow, failureFields,
  $handle, $check, $status, $answered, $sharded, $servers, $failure, $destroy, $onDirty,
};
