// Type declarations of the idiomatic client: require('keyloom/client').
/// <reference types="node" />
import type { KlClient } from '../exact/index';

/** A key, field, member or value: strings travel as UTF-8; a Buffer must be valid UTF-8 (except set()'s value). */
export type Text = string | Buffer | Uint8Array | number;
/** A server: 'host:port', '[ipv6]:port', 'host' (port 6379) or { host, port }. */
/**
 * A server: 'host:port', a URL, or { host, port, weight } (weight: a whole number from 1, the
 * server's share of the keys under the 'ketama' distribution, which weights imply).
 */
export type Server = string | { host: string; port?: number; weight?: number };
/** Pairs given as a plain object, a Map or an array of [name, value] pairs. */
export type Entries = Record<string, Text> | Map<Text, Text> | ReadonlyArray<readonly [Text, Text]>;

export type HashName = 'default' | 'md5' | 'crc' | 'fnv1_64' | 'fnv1a_64' | 'fnv1_32' | 'fnv1a_32' | 'hsieh' | 'murmur';
export type DistributionName = 'modula' | 'consistent' | 'ketama' | 'consistent_ketama';

export interface DirtyWrite {
  command: string;
  key?: unknown;
  /** The result code with the KL_DIRTY bit (128) set. */
  code: number;
}

export interface ClientOptions {
  /**
   * Servers of the group "default": 'host:port', '[v6]:port', 'host', { host, port } or
   * redis[s]://[user:password@]host:port[/db] (rediss://: TLS, for every server of the client).
   * Without servers, groups, host, url or server: KEYLOOM_SERVERS, else 127.0.0.1:6379.
   */
  servers?: Server[] | string;
  /** One server, as other clients write it (with port). */
  host?: string;
  port?: number;
  /** One server as a redis:// or rediss:// URL. */
  url?: string;
  /** One server. */
  server?: Server;
  /** Named groups, each a full copy of the data; reads fail over in this order. */
  groups?: Record<string, Server[] | string>;
  /** Key hash (default 'default', Jenkins one-at-a-time). */
  hash?: HashName | number;
  /** How keys are spread over a group's servers (default 'consistent'; 'ketama' when servers have weights). */
  distribution?: DistributionName | number;
  /**
   * Hash tags: true (for '{}') or two characters. A key with a tag ("{user42}:cart") is routed by
   * the tag alone (what lies between the first opening character and the next closing one, when
   * not empty), so keys with one tag share a server. Routing only: the whole key is stored.
   */
  hashTag?: boolean | string;
  /** Connect and reply time-out in milliseconds. */
  connectTimeoutMs?: number;
  /** How long a failed server stays marked down before a reconnect, in milliseconds. */
  reconnectMs?: number;
  /**
   * The most one reply may take, in bytes (default 512 MiB). A larger reply is refused before
   * its memory is taken: the command throws KeyloomError KL_MEMORY_FAILURE and the server stays up.
   */
  maxReplyBytes?: number;
  /** Command forms: 'auto' (default), 1 (Redis 2.8 forms only) or 2 (Redis 6.2+ forms). */
  clientVersion?: 'auto' | 1 | 2;
  /** AUTH on every server (remembered for reconnects). */
  password?: string;
  /** The ACL user that password belongs to (default: the default user). */
  username?: string;
  /** SELECT on every connection (remembered for reconnects). */
  db?: number;
  /**
   * TLS for every server (rediss:// URLs turn it on too): true for the system's CAs, or the
   * settings. The OpenSSL used is the running Node.js's own.
   */
  tls?: boolean | TlsOptions;
  /** Lets the client be used from several threads of the library (internal mutex). */
  shared?: boolean;
  /** Called for each write that succeeded in some groups and failed in others. */
  onDirty?: (write: DirtyWrite) => void;
}

export interface TlsOptions {
  /** PEM certificates to trust instead of the system's. */
  ca?: string | Buffer | Array<string | Buffer>;
  /** The client's PEM certificate (chain), for servers that check clients; with key. */
  cert?: string | Buffer;
  /** The PEM private key of cert. */
  key?: string | Buffer;
  /** The name the servers' certificates must carry, also sent as SNI (default: each server's host). */
  servername?: string;
  /** false accepts any certificate (default true). */
  rejectUnauthorized?: boolean;
}

export interface TtlOption { /** Time to live in seconds (0: none). */ ttl?: number }
export interface RouteOption { /** Routing string: pick the server by it instead of by the key. */ route?: Text }
export interface BufferOption { /** Return Buffers (the exact bytes) instead of strings. */ buffer?: boolean }
export interface GroupOption { /** Only the servers of this group (default: every group). */ group?: string }
export interface MultiOptions extends RouteOption, BufferOption {
  /** Nulls for unreachable shards instead of an error. */
  bestEffort?: boolean;
}
export interface SetOptions extends TtlOption, RouteOption {
  /** Only when the key does not exist (returns false otherwise). */
  nx?: boolean;
  /** Only when the key exists (returns false otherwise). */
  xx?: boolean;
}
export interface RangeOptions extends RouteOption, BufferOption {
  withScores?: boolean;
  withValues?: boolean;
  reverse?: boolean;
}
export interface ScoredMember<V = string> {
  member: V;
  score?: number;
  value?: V | null;
}
export interface ZEntry { member: Text; score: number; value?: Text }
export interface WordEntry<V = string> { word: string; value: V | null }
export interface SortOptions extends RouteOption, BufferOption {
  by?: Text;
  limit?: { offset?: number; count?: number };
  get?: Text | Text[];
  desc?: boolean;
  alpha?: boolean;
  /** Store the result under this key; sort() then returns its length. */
  store?: Text;
}

type Value<O> = O extends { buffer: true } ? Buffer : string;

export declare class KeyloomError extends Error {
  name: 'KeyloomError';
  /** The library's result code (kl_return_t). */
  code: number;
  /** Its name, e.g. 'KL_SERVER_ERROR'. */
  codeName: string;
  /** The method that failed. */
  command?: string;
  key?: unknown;
  /** The server ('host:port') where the failure was met, when the library knows it. */
  server?: string;
  /** The server's own error reply (WRONGTYPE ..., WRONGPASS ...), when it answered with one. */
  serverMessage?: string;
  private constructor(code: number, details?: { command?: string; key?: unknown; message?: string });
}

/**
 * The commands, declared once for both clients: M is 'sync' for keyloom/client (answers as
 * they are) and 'promise' for keyloom/promises (each answer a Promise, and the per-call
 * options of CallOptions beside a method's own).
 */
export type Mode = 'sync' | 'promise';
export type Out<M extends Mode, T> = M extends 'promise' ? Promise<T> : T;
export type Opt<M extends Mode, T> = M extends 'promise' ? T & CallOptions : T;
/** Options of every command of the promise client. */
export interface CallOptions {
  /** Rejects the command's Promise with an AbortError when the signal aborts. */
  signal?: AbortSignal;
  /** The command's own time budget in milliseconds (default: the client's). */
  timeoutMs?: number;
}

/** A reply as call() and the script methods give it; an error inside an array is a KeyloomError. */
export type Reply = string | Buffer | number | bigint | null | KeyloomError | Reply[];
/** An argument of call(): strings are sent as UTF-8, numbers and BigInts in decimal. */
export type CommandArgument = Text | number | bigint;
export interface AnyCommandOptions extends BufferOption {
  /** Route by this key instead of the command's first argument. */
  key?: Text;
  /** Send to this server only: 'host:port' or its index in the order the servers were given. */
  server?: string | number;
  /** Send to every server: the answer is { 'host:port': reply } (a server's failure in its place). */
  all?: boolean;
  /** Send to every group, as writes go (the dirty bit and onDirty kept). */
  write?: boolean;
}
export interface ScriptOptions extends BufferOption {
  /** Run on this server ('host:port' or index): for scripts without keys. */
  server?: string | number;
  /** Run on the first group up only, as reads go (default: every group, as writes go). */
  readOnly?: boolean;
}
export interface ScanOptions extends BufferOption {
  /** Glob-style pattern (SCAN MATCH). */
  match?: string;
  /** How many keys each server looks at per round trip (SCAN COUNT). */
  count?: number;
  /** Only keys of this type ('string', 'hash', ...). */
  type?: string;
}
/** An iterator (synchronous client) or an async iterator (promise client, for await). */
export type Iter<M extends Mode, T> = M extends 'promise' ? AsyncIterableIterator<T> : IterableIterator<T>;

export interface Commands<M extends Mode> {
  /** AUTH for the default user, remembered for reconnects. */
  auth(password: string): Out<M, true>;
  /** AUTH as an ACL user, remembered for reconnects. */
  auth(username: string, password: string): Out<M, true>;
  /**
   * Closes the connections only (QUIT): the client stays usable, and the next command opens
   * them again (AUTH and SELECT replayed). For a pause in traffic; close() ends the client.
   */
  quit(): Out<M, true>;
  select(db: number): Out<M, true>;

  // strings and keys
  get<O extends RouteOption & BufferOption>(key: Text, options?: Opt<M, O>): Out<M, Value<O> | null>;
  getBuffer(key: Text, options?: Opt<M, RouteOption>): Out<M, Buffer | null>;
  set(key: Text, value: Text, options?: Opt<M, SetOptions>): Out<M, boolean>;
  setnx(key: Text, value: Text, options?: Opt<M, TtlOption>): Out<M, boolean>;
  setifx(key: Text, value: Text, options?: Opt<M, TtlOption>): Out<M, boolean>;
  append(key: Text, value: Text, options?: Opt<M, TtlOption>): Out<M, true>;
  getset<O extends RouteOption & BufferOption>(key: Text, value: Text, options?: Opt<M, O>): Out<M, Value<O> | null>;
  mget<O extends MultiOptions>(keys: Text[], options?: Opt<M, O>): Out<M, Array<Value<O> | null>>;
  mset(entries: Entries, options?: Opt<M, TtlOption>): Out<M, true>;
  del(keys: Text | Text[]): Out<M, number>;
  exists(key: Text): Out<M, boolean>;
  /** The new value: a Number, or a BigInt past 2^53 (counters are 64-bit on the server). */
  incr(key: Text, options?: Opt<M, TtlOption>): Out<M, number | bigint>;
  incrby(key: Text, by: number | bigint, options?: Opt<M, TtlOption>): Out<M, number | bigint>;
  decr(key: Text, options?: Opt<M, TtlOption>): Out<M, number | bigint>;
  decrby(key: Text, by: number | bigint, options?: Opt<M, TtlOption>): Out<M, number | bigint>;
  expire(key: Text, seconds: number): Out<M, boolean>;
  persist(key: Text): Out<M, boolean>;
  /** Seconds to live, -1 without a TTL, null for a missing key. */
  ttl(key: Text): Out<M, number | null>;
  type(key: Text): Out<M, 'string' | 'list' | 'set' | 'zset' | 'hash' | 'none' | string>;
  rename(key: Text, newKey: Text): Out<M, true>;
  renamenx(key: Text, newKey: Text): Out<M, boolean>;
  keys(pattern?: Text, options?: Opt<M, GroupOption>): Out<M, string[]>;
  keys(pattern: Text, options: Opt<M, GroupOption & { buffer: true }>): Out<M, Buffer[]>;
  randomkey(): Out<M, string | null>;
  move(key: Text, db: number): Out<M, boolean>;
  dbsize(options?: Opt<M, GroupOption>): Out<M, number>;
  flushdb(options?: Opt<M, GroupOption>): Out<M, true>;
  flushall(options?: Opt<M, GroupOption>): Out<M, true>;
  save(options?: Opt<M, GroupOption>): Out<M, true>;
  bgsave(options?: Opt<M, GroupOption>): Out<M, true>;
  /** INFO text of every server addressed. */
  info(options?: Opt<M, GroupOption>): Out<M, string[]>;
  configGet(parameter: string, options?: Opt<M, GroupOption & { server?: string }>): Out<M, Record<string, string | null>>;
  configSet(parameter: string, value: Text, options?: Opt<M, GroupOption & { server?: string }>): Out<M, true>;
  sort(key: Text, options: Opt<M, SortOptions & { store: Text }>): Out<M, number>;
  sort<O extends SortOptions>(key: Text, options?: Opt<M, O>): Out<M, Array<Value<O> | null>>;
  /** Copies key from the first group holding it to the groups lacking it: the number repaired. */
  repair(key: Text, options?: Opt<M, { ttl?: number; keepTtl?: boolean; commit?: boolean }>): Out<M, number>;

  // lists
  lpush(key: Text, values: Text | Text[], options?: Opt<M, TtlOption>): Out<M, true>;
  rpush(key: Text, values: Text | Text[], options?: Opt<M, TtlOption>): Out<M, true>;
  lrange<O extends RouteOption & BufferOption>(key: Text, start?: number, stop?: number, options?: Opt<M, O>): Out<M, Array<Value<O> | null>>;
  lindex<O extends RouteOption & BufferOption>(key: Text, index: number, options?: Opt<M, O>): Out<M, Value<O> | null>;
  lset(key: Text, index: number, value: Text, options?: Opt<M, TtlOption>): Out<M, true>;
  lrem(key: Text, count: number, value: Text): Out<M, number>;
  lpop<O extends RouteOption & BufferOption>(key: Text, options?: Opt<M, O>): Out<M, Value<O> | null>;
  rpop<O extends RouteOption & BufferOption>(key: Text, options?: Opt<M, O>): Out<M, Value<O> | null>;
  llen(key: Text): Out<M, number>;
  ltrim(key: Text, start: number, stop: number): Out<M, true>;

  // sets
  sadd(key: Text, members: Text | Text[], options?: Opt<M, TtlOption>): Out<M, true>;
  saddval(key: Text, member: Text, value: Text, options?: Opt<M, TtlOption>): Out<M, true>;
  srem(key: Text, member: Text): Out<M, boolean>;
  srem(key: Text, members: Text[]): Out<M, number>;
  smembers<O extends RouteOption & BufferOption>(key: Text, options?: Opt<M, O & { withValues?: false }>): Out<M, Array<Value<O>>>;
  smembers<O extends RouteOption & BufferOption>(key: Text, options: Opt<M, O & { withValues: true }>):
    Out<M, Array<{ member: Value<O>; value: Value<O> | null }>>;
  sismember(key: Text, member: Text): Out<M, boolean>;
  sismemberval(key: Text, member: Text): Out<M, 'value' | 'empty' | 'not-member' | 'no-set'>;
  sval<O extends RouteOption & BufferOption>(key: Text, member: Text, options?: Opt<M, O>): Out<M, Value<O> | null>;
  svalfromip<O extends BufferOption>(key: Text, ip: string, options?: Opt<M, O>): Out<M, Value<O> | null>;
  scard(key: Text): Out<M, number>;
  spop<O extends RouteOption & BufferOption>(key: Text, options?: Opt<M, O>): Out<M, Value<O> | null>;
  sunion<O extends MultiOptions>(keys: Text[], options?: Opt<M, O>): Out<M, Array<Value<O>>>;
  sunionstore(destination: Text, keys: Text[], options?: Opt<M, TtlOption & { bestEffort?: boolean }>): Out<M, true>;

  // sorted sets
  zadd(key: Text, score: number, member: Text, options?: Opt<M, TtlOption>): Out<M, true>;
  zadd(key: Text, entries: ZEntry[], options?: Opt<M, TtlOption>): Out<M, true>;
  zaddval(key: Text, score: number, member: Text, value: Text, options?: Opt<M, TtlOption>): Out<M, true>;
  /** false when the member's score was not lower than score (nothing changed). */
  zaddvalmax(key: Text, score: number, member: Text, value: Text, options?: Opt<M, TtlOption>): Out<M, boolean>;
  zaddmaxinc(key: Text, n: number, options?: Opt<M, TtlOption>): Out<M, true>;
  zadddis<O extends BufferOption & TtlOption>(key: Text, score: number, member: Text, distance: number, options?: Opt<M, O>): Out<M, Value<O> | null>;
  zrem(key: Text, member: Text): Out<M, boolean>;
  zrem(key: Text, members: Text[]): Out<M, number>;
  zrange<O extends RangeOptions>(key: Text, start?: number, stop?: number, options?: Opt<M, O>):
    Out<M, O extends { withScores: true } | { withValues: true } ? Array<ScoredMember<Value<O>>> : Array<Value<O>>>;
  zrangebyscore<O extends RangeOptions>(key: Text, min?: number, max?: number, options?: Opt<M, O>):
    Out<M, O extends { withScores: true } | { withValues: true } ? Array<ScoredMember<Value<O>>> : Array<Value<O>>>;
  zscore(key: Text, member: Text): Out<M, number | null>;
  zscore<O extends BufferOption>(key: Text, member: Text, options: Opt<M, O & { withValue: true }>):
    Out<M, { score: number; value: Value<O> | null } | null>;
  zrank(key: Text, member: Text, options?: Opt<M, { reverse?: boolean }>): Out<M, number | null>;
  zcard(key: Text): Out<M, number>;
  zcount(key: Text, min?: number, max?: number): Out<M, number>;
  zincrby(key: Text, increment: number, member: Text, options?: Opt<M, TtlOption>): Out<M, number>;
  zremrangebyscore(key: Text, min: number, max: number): Out<M, number>;
  zremrangebyrank(key: Text, start: number, stop: number): Out<M, number>;

  // hashes
  hset(key: Text, field: Text, value: Text, options?: Opt<M, TtlOption>): Out<M, true>;
  hsetnx(key: Text, field: Text, value: Text, options?: Opt<M, TtlOption>): Out<M, boolean>;
  hget<O extends RouteOption & BufferOption>(key: Text, field: Text, options?: Opt<M, O>): Out<M, Value<O> | null>;
  hmset(key: Text, fields: Entries, options?: Opt<M, TtlOption>): Out<M, true>;
  hmget<O extends RouteOption & BufferOption>(key: Text, fields: Text[], options?: Opt<M, O>): Out<M, Array<Value<O> | null>>;
  mhmget<O extends RouteOption & BufferOption>(keys: Text[], fields: Text[], options?: Opt<M, O>): Out<M, Array<Array<Value<O> | null>>>;
  hgetall<O extends BufferOption>(key: Text, options?: Opt<M, O>): Out<M, Record<string, Value<O> | null>>;
  hdel(key: Text, field: Text): Out<M, boolean>;
  hdel(key: Text, fields: Text[]): Out<M, number>;
  hexists(key: Text, field: Text): Out<M, boolean>;
  hlen(key: Text): Out<M, number>;
  /** The new value: a Number, or a BigInt past 2^53. */
  hincrby(key: Text, field: Text, by: number | bigint, options?: Opt<M, TtlOption>): Out<M, number | bigint>;

  // dictionaries
  dadd(key: Text, word: Text, value: Text, options?: Opt<M, TtlOption & { weight?: number }>): Out<M, true>;
  dmadd(key: Text, entries: Entries, options?: Opt<M, TtlOption & { weight?: number }>): Out<M, number>;
  dget<O extends RouteOption & BufferOption>(key: Text, word: Text, options?: Opt<M, O>): Out<M, Value<O> | null>;
  drem(key: Text, word: Text): Out<M, boolean>;
  dclose<O extends RouteOption & BufferOption>(key: Text, prefix: Text, options?: Opt<M, O>): Out<M, Array<WordEntry<Value<O>>>>;
  dgetall<O extends RouteOption & BufferOption>(key: Text, options?: Opt<M, O>): Out<M, Array<WordEntry<Value<O>>>>;

  // any command, scans and scripts
  /**
   * Any command: call('HSET', key, field, value). Routed by its first argument (the key), or
   * by options (key, server, all); options go last. Error replies throw (reject) KeyloomError.
   */
  call(name: string, ...args: Array<CommandArgument | Opt<M, AnyCommandOptions>>): Out<M, Reply | Record<string, Reply>>;
  /** A Lua script over keys that are all on one server (a hash tag keeps them together). */
  eval(script: string, keys?: Text[], args?: CommandArgument[], options?: Opt<M, ScriptOptions>): Out<M, Reply>;
  /** A script by its SHA-1; one loaded by scriptLoad or eval runs again as EVAL where a server lost it. */
  evalsha(sha: string, keys?: Text[], args?: CommandArgument[], options?: Opt<M, ScriptOptions>): Out<M, Reply>;
  /** SCRIPT LOAD on every server; the script's SHA-1. */
  scriptLoad(script: string): Out<M, string>;
  /** Every key of every shard of the first group that answers, each once (SCAN). */
  scan<O extends ScanOptions>(options?: O): Iter<M, Value<O>>;
  /** The fields of a hash as [field, value] pairs (HSCAN). */
  hscan<O extends BufferOption & { match?: string; count?: number }>(key: Text, options?: O): Iter<M, [Value<O>, Value<O>]>;
  /** The members of a set (SSCAN). */
  sscan<O extends BufferOption & { match?: string; count?: number }>(key: Text, options?: O): Iter<M, Value<O>>;
  /** The members of a sorted set with their scores (ZSCAN). */
  zscan<O extends BufferOption & { match?: string; count?: number }>(key: Text, options?: O): Iter<M, [Value<O>, number]>;
}

export interface KeyloomClient extends Commands<'sync'> {}
export declare class KeyloomClient {
  private constructor();
  /** The exact layer's kl_client proxy, for calls this client does not wrap; it keeps the client alive, and is valid until close(). */
  readonly handle: KlClient;
  readonly closed: boolean;
  /**
   * Ends the client for good: closes its connections and frees it. Later calls throw
   * KL_INVALID_CLIENT; closing again does nothing. Call it once, when the process is done.
   */
  close(): void;
  /** A new client with the same settings and servers and its own connections. */
  duplicate(): KeyloomClient;
  // The commands: Commands<'sync'> (above).
  [Symbol.dispose](): void;
}

/** Makes a client (a string or an array is taken as the servers). */
export declare function createClient(options?: ClientOptions | string | Server[]): KeyloomClient;

/** Result codes by name (KL_SUCCESS: 0 ... KL_ALL_GROUP_SERVERS_DOWN: 20). */
export declare const codes: Readonly<Record<string, number>>;
/** The library's version, "major.minor.patch". */
export declare const version: string;
