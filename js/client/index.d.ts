// Type declarations of the idiomatic client: require('keyloom/client').
/// <reference types="node" />
import type { KlClient } from '../exact/index';

/** A key, field, member or value: strings travel as UTF-8; a Buffer must be valid UTF-8 (except set()'s value). */
export type Text = string | Buffer | Uint8Array | number;
/** A server: 'host:port', '[ipv6]:port', 'host' (port 6379) or { host, port }. */
export type Server = string | { host: string; port?: number };
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
   * redis://[user:password@]host:port[/db] (rediss:// is refused until TLS exists).
   * Without servers, groups, host, url or server: KEYLOOM_SERVERS, else 127.0.0.1:6379.
   */
  servers?: Server[] | string;
  /** One server, as other clients write it (with port). */
  host?: string;
  port?: number;
  /** One server as a redis:// URL. */
  url?: string;
  /** One server. */
  server?: Server;
  /** Named groups, each a full copy of the data; reads fail over in this order. */
  groups?: Record<string, Server[] | string>;
  /** Key hash (default 'default', Jenkins one-at-a-time). */
  hash?: HashName | number;
  /** How keys are spread over a group's servers (default 'consistent'). */
  distribution?: DistributionName | number;
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
  /** Lets the client be used from several threads of the library (internal mutex). */
  shared?: boolean;
  /** Called for each write that succeeded in some groups and failed in others. */
  onDirty?: (write: DirtyWrite) => void;
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
  /** AUTH for the default user, remembered for reconnects. */
  auth(password: string): true;
  /** AUTH as an ACL user, remembered for reconnects. */
  auth(username: string, password: string): true;
  /**
   * Closes the connections only (QUIT): the client stays usable, and the next command opens
   * them again (AUTH and SELECT replayed). For a pause in traffic; close() ends the client.
   */
  quit(): true;
  select(db: number): true;

  // strings and keys
  get<O extends RouteOption & BufferOption>(key: Text, options?: O): Value<O> | null;
  getBuffer(key: Text, options?: RouteOption): Buffer | null;
  set(key: Text, value: Text, options?: SetOptions): boolean;
  setnx(key: Text, value: Text, options?: TtlOption): boolean;
  setifx(key: Text, value: Text, options?: TtlOption): boolean;
  append(key: Text, value: Text, options?: TtlOption): true;
  getset<O extends RouteOption & BufferOption>(key: Text, value: Text, options?: O): Value<O> | null;
  mget<O extends MultiOptions>(keys: Text[], options?: O): Array<Value<O> | null>;
  mset(entries: Entries, options?: TtlOption): true;
  del(keys: Text | Text[]): number;
  exists(key: Text): boolean;
  incr(key: Text, options?: TtlOption): number;
  incrby(key: Text, by: number, options?: TtlOption): number;
  decr(key: Text, options?: TtlOption): number;
  decrby(key: Text, by: number, options?: TtlOption): number;
  expire(key: Text, seconds: number): boolean;
  persist(key: Text): boolean;
  /** Seconds to live, -1 without a TTL, null for a missing key. */
  ttl(key: Text): number | null;
  type(key: Text): 'string' | 'list' | 'set' | 'zset' | 'hash' | 'none' | string;
  rename(key: Text, newKey: Text): true;
  renamenx(key: Text, newKey: Text): boolean;
  keys(pattern?: Text, options?: GroupOption): string[];
  keys(pattern: Text, options: GroupOption & { buffer: true }): Buffer[];
  randomkey(): string | null;
  move(key: Text, db: number): boolean;
  dbsize(options?: GroupOption): number;
  flushdb(options?: GroupOption): true;
  flushall(options?: GroupOption): true;
  save(options?: GroupOption): true;
  bgsave(options?: GroupOption): true;
  /** INFO text of every server addressed. */
  info(options?: GroupOption): string[];
  configGet(parameter: string, options?: GroupOption & { server?: string }): Record<string, string | null>;
  configSet(parameter: string, value: Text, options?: GroupOption & { server?: string }): true;
  sort(key: Text, options: SortOptions & { store: Text }): number;
  sort<O extends SortOptions>(key: Text, options?: O): Array<Value<O> | null>;
  /** Copies key from the first group holding it to the groups lacking it: the number repaired. */
  repair(key: Text, options?: { ttl?: number; keepTtl?: boolean; commit?: boolean }): number;

  // lists
  lpush(key: Text, values: Text | Text[], options?: TtlOption): true;
  rpush(key: Text, values: Text | Text[], options?: TtlOption): true;
  lrange<O extends RouteOption & BufferOption>(key: Text, start?: number, stop?: number, options?: O): Array<Value<O> | null>;
  lindex<O extends RouteOption & BufferOption>(key: Text, index: number, options?: O): Value<O> | null;
  lset(key: Text, index: number, value: Text, options?: TtlOption): true;
  lrem(key: Text, count: number, value: Text): number;
  lpop<O extends RouteOption & BufferOption>(key: Text, options?: O): Value<O> | null;
  rpop<O extends RouteOption & BufferOption>(key: Text, options?: O): Value<O> | null;
  llen(key: Text): number;
  ltrim(key: Text, start: number, stop: number): true;

  // sets
  sadd(key: Text, members: Text | Text[], options?: TtlOption): true;
  saddval(key: Text, member: Text, value: Text, options?: TtlOption): true;
  srem(key: Text, member: Text): boolean;
  srem(key: Text, members: Text[]): number;
  smembers<O extends RouteOption & BufferOption>(key: Text, options?: O & { withValues?: false }): Array<Value<O>>;
  smembers<O extends RouteOption & BufferOption>(key: Text, options: O & { withValues: true }):
    Array<{ member: Value<O>; value: Value<O> | null }>;
  sismember(key: Text, member: Text): boolean;
  sismemberval(key: Text, member: Text): 'value' | 'empty' | 'not-member' | 'no-set';
  sval<O extends RouteOption & BufferOption>(key: Text, member: Text, options?: O): Value<O> | null;
  svalfromip<O extends BufferOption>(key: Text, ip: string, options?: O): Value<O> | null;
  scard(key: Text): number;
  spop<O extends RouteOption & BufferOption>(key: Text, options?: O): Value<O> | null;
  sunion<O extends MultiOptions>(keys: Text[], options?: O): Array<Value<O>>;
  sunionstore(destination: Text, keys: Text[], options?: TtlOption & { bestEffort?: boolean }): true;

  // sorted sets
  zadd(key: Text, score: number, member: Text, options?: TtlOption): true;
  zadd(key: Text, entries: ZEntry[], options?: TtlOption): true;
  zaddval(key: Text, score: number, member: Text, value: Text, options?: TtlOption): true;
  /** false when the member's score was not lower than score (nothing changed). */
  zaddvalmax(key: Text, score: number, member: Text, value: Text, options?: TtlOption): boolean;
  zaddmaxinc(key: Text, n: number, options?: TtlOption): true;
  zadddis<O extends BufferOption & TtlOption>(key: Text, score: number, member: Text, distance: number, options?: O): Value<O> | null;
  zrem(key: Text, member: Text): boolean;
  zrem(key: Text, members: Text[]): number;
  zrange<O extends RangeOptions>(key: Text, start?: number, stop?: number, options?: O):
    O extends { withScores: true } | { withValues: true } ? Array<ScoredMember<Value<O>>> : Array<Value<O>>;
  zrangebyscore<O extends RangeOptions>(key: Text, min?: number, max?: number, options?: O):
    O extends { withScores: true } | { withValues: true } ? Array<ScoredMember<Value<O>>> : Array<Value<O>>;
  zscore(key: Text, member: Text): number | null;
  zscore<O extends BufferOption>(key: Text, member: Text, options: O & { withValue: true }):
    { score: number; value: Value<O> | null } | null;
  zrank(key: Text, member: Text, options?: { reverse?: boolean }): number | null;
  zcard(key: Text): number;
  zcount(key: Text, min?: number, max?: number): number;
  zincrby(key: Text, increment: number, member: Text, options?: TtlOption): number;
  zremrangebyscore(key: Text, min: number, max: number): number;
  zremrangebyrank(key: Text, start: number, stop: number): number;

  // hashes
  hset(key: Text, field: Text, value: Text, options?: TtlOption): true;
  hsetnx(key: Text, field: Text, value: Text, options?: TtlOption): boolean;
  hget<O extends RouteOption & BufferOption>(key: Text, field: Text, options?: O): Value<O> | null;
  hmset(key: Text, fields: Entries, options?: TtlOption): true;
  hmget<O extends RouteOption & BufferOption>(key: Text, fields: Text[], options?: O): Array<Value<O> | null>;
  mhmget<O extends RouteOption & BufferOption>(keys: Text[], fields: Text[], options?: O): Array<Array<Value<O> | null>>;
  hgetall<O extends BufferOption>(key: Text, options?: O): Record<string, Value<O> | null>;
  hdel(key: Text, field: Text): boolean;
  hdel(key: Text, fields: Text[]): number;
  hexists(key: Text, field: Text): boolean;
  hlen(key: Text): number;
  hincrby(key: Text, field: Text, by: number, options?: TtlOption): number;

  // dictionaries
  dadd(key: Text, word: Text, value: Text, options?: TtlOption & { weight?: number }): true;
  dmadd(key: Text, entries: Entries, options?: TtlOption & { weight?: number }): number;
  dget<O extends RouteOption & BufferOption>(key: Text, word: Text, options?: O): Value<O> | null;
  drem(key: Text, word: Text): boolean;
  dclose<O extends RouteOption & BufferOption>(key: Text, prefix: Text, options?: O): Array<WordEntry<Value<O>>>;
  dgetall<O extends RouteOption & BufferOption>(key: Text, options?: O): Array<WordEntry<Value<O>>>;

  [Symbol.dispose](): void;
}

/** Makes a client (a string or an array is taken as the servers). */
export declare function createClient(options?: ClientOptions | string | Server[]): KeyloomClient;

/** Result codes by name (KL_SUCCESS: 0 ... KL_ALL_GROUP_SERVERS_DOWN: 20). */
export declare const codes: Readonly<Record<string, number>>;
/** The library's version, "major.minor.patch". */
export declare const version: string;
