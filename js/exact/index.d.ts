// Type declarations of the exact layer: keyloom.node as require('keyloom') returns it.
// One function per C function of libkeyloom (include/keyloom.h), same name, same
// argument order: a string goes in followed by its byte length; outputs come back
// through cells made with new_*() and read with the *_value readers; lists go in as
// C arrays made with new_*_array(). Every C pointer is an opaque proxy, branded here
// by its C type, so that a size_t * cannot be passed where a char ** is wanted.
// Library failures are returned as result codes (KlReturn), never thrown; a wrong
// argument throws an Error. Nothing here frees itself: release every cell, array and
// reply you make (delete_*, kl_free_php_reply_p/_pp).

declare const pointerType: unique symbol;

/** A C pointer of type T as the addon hands it to JavaScript. */
export interface Pointer<T extends string> {
  readonly [pointerType]: T;
  /** True when both proxies hold the same address (types are not compared). */
  equals(other: Pointer<string>): boolean;
  /** The address as a number. */
  getCPtr(): number;
}

export type KlClient = Pointer<'kl_client *'>;
export type KlMm = Pointer<'kl_mm_t *'>;
/** A char ** : a cell from new_charpp() or an array from new_charp_array(). */
export type CharPP = Pointer<'char **'>;
/** A char *** cell from new_charppp(): receives an array of texts. */
export type CharPPP = Pointer<'char ***'>;
/** A size_t * : a cell from new_ulongp() or an array from new_ulong_array(). */
export type SizeTP = Pointer<'size_t *'>;
/** A size_t ** cell from new_ulongpp(): receives an array of lengths. */
export type SizeTPP = Pointer<'size_t **'>;
export type IntP = Pointer<'int *'>;
export type IntPP = Pointer<'int **'>;
/** An unsigned int * : a cell from new_uintp() or an array from new_uint_array(). */
export type UIntP = Pointer<'unsigned int *'>;
export type UIntPP = Pointer<'unsigned int **'>;
/** A double * : a cell from new_doublep() or an array from new_double_array(). */
export type DoubleP = Pointer<'double *'>;
/** A double ** cell from new_doublepp(): receives an array of doubles (scores). */
export type DoublePP = Pointer<'double **'>;
export type KlReturnTP = Pointer<'kl_return_t *'>;
/** A kl_return_t ** cell: receives one code per server (null: not wanted). */
export type KlReturnTPP = Pointer<'kl_return_t **'>;

/** A kl_return_t result code (KL_SUCCESS ... KL_ALL_GROUP_SERVERS_DOWN), possibly with KL_DIRTY (128) set. */
export type KlReturn = number;
/** A kl_hash (KL_HASH_*). */
export type KlHash = number;
/** A kl_server_distribution (KL_DISTRIBUTION_*). */
export type KlDistribution = number;
/** A kl_client_version (CLIENT_VERSION_*). */
export type KlClientVersion = number;
/** SET_* flags. */
export type SetFlags = number;
/** ZSET_* flags, combined with |. */
export type ZSetFlags = number;

// ---- the constants (read-only) ----
export declare const KL_SUCCESS: 0;
export declare const KL_ERROR: 1;
export declare const KL_PTHREAD_OP_FAILURE: 2;
export declare const KL_MEMORY_FAILURE: 3;
export declare const KL_CONNECTION_FAILURE: 4;
export declare const KL_INVALID_CLIENT: 5;
export declare const KL_INVALID_COMMAND: 6;
export declare const KL_SERVER_ERROR: 7;
export declare const KL_SERVER_DOWN: 8;
export declare const KL_UNKNOWN_REPLY: 9;
export declare const KL_WRONG_REPLY: 10;
export declare const KL_TTL_ALREADY_SET: 11;
export declare const KL_ALREADY_EXISTS: 12;
export declare const KL_NOTFOUND: 13;
export declare const KL_NO_SERVER_ATTACHED: 14;
export declare const KL_INVALID_PARAMETER: 15;
export declare const KL_PARTIAL_RESULT: 16;
export declare const KL_NO_SET_KEY: 17;
export declare const KL_SET_EMPTY_VALUE: 18;
export declare const KL_NO_SUBNET: 19;
export declare const KL_ALL_GROUP_SERVERS_DOWN: 20;
export declare const KL_DIRTY: 128;
export declare const KL_DISTRIBUTION_MODULA: 0;
export declare const KL_DISTRIBUTION_CONSISTENT: 1;
export declare const KL_DISTRIBUTION_CONSISTENT_KETAMA: 2;
export declare const KL_HASH_DEFAULT: 0;
export declare const KL_HASH_MD5: 1;
export declare const KL_HASH_CRC: 2;
export declare const KL_HASH_FNV1_64: 3;
export declare const KL_HASH_FNV1A_64: 4;
export declare const KL_HASH_FNV1_32: 5;
export declare const KL_HASH_FNV1A_32: 6;
export declare const KL_HASH_HSIEH: 7;
export declare const KL_HASH_MURMUR: 8;
export declare const CLIENT_VERSION_AUTO: 3;
export declare const CLIENT_VERSION_1: 1;
export declare const CLIENT_VERSION_2: 2;
export declare const SET_DEFAULT: 0;
export declare const SET_WITH_VALUES: 2;
export declare const ZSET_DEFAULT: 0;
export declare const ZSET_WITH_SCORES: 1;
export declare const ZSET_WITH_VALUES: 2;
export declare const ZSET_WITH_LIMIT: 4;
export declare const ZSET_REVERSE: 8;
export declare const KL_FLAG_NONE: 1;
export declare const KL_FLAG_RECURSIVE: 2;
export declare const KL_FLAG_SHARED: 4;
export declare const KL_NULL_ON_FAIL: 1;
export declare const KL_BEST_EFFORT_ON_FAIL: 2;
export declare const KL_LEVEL_ERROR: 1;
export declare const KL_LEVEL_DEBUG: 2;
export declare const KL_LEVEL_EVENT: 4;
export declare const KL_LEVEL_NOTICE: 8;
export declare const KL_LEVEL_WARNING: 16;

// ---- typed pointer cells ----
export declare function new_intp(): IntP;
export declare function copy_intp(value: number): IntP;
export declare function delete_intp(cell: IntP | null): void;
export declare function intp_assign(cell: IntP, value: number): void;
export declare function intp_value(cell: IntP): number;
export declare function new_intpp(): IntPP;
export declare function copy_intpp(value: IntP | null): IntPP;
export declare function delete_intpp(cell: IntPP | null): void;
export declare function intpp_assign(cell: IntPP, value: IntP | null): void;
export declare function intpp_value(cell: IntPP): IntP | null;
export declare function new_uintp(): UIntP;
export declare function copy_uintp(value: number): UIntP;
export declare function delete_uintp(cell: UIntP | null): void;
export declare function uintp_assign(cell: UIntP, value: number): void;
export declare function uintp_value(cell: UIntP): number;
export declare function new_ulongp(): SizeTP;
export declare function copy_ulongp(value: number): SizeTP;
export declare function delete_ulongp(cell: SizeTP | null): void;
export declare function ulongp_assign(cell: SizeTP, value: number): void;
export declare function ulongp_value(cell: SizeTP): number;
export declare function new_doublep(): DoubleP;
export declare function copy_doublep(value: number): DoubleP;
export declare function delete_doublep(cell: DoubleP | null): void;
export declare function doublep_assign(cell: DoubleP, value: number): void;
export declare function doublep_value(cell: DoubleP): number;
export declare function new_doublepp(): DoublePP;
export declare function copy_doublepp(value: DoubleP | null): DoublePP;
export declare function delete_doublepp(cell: DoublePP | null): void;
export declare function doublepp_assign(cell: DoublePP, value: DoubleP | null): void;
export declare function doublepp_value(cell: DoublePP): DoubleP | null;
export declare function new_uintpp(): UIntPP;
export declare function copy_uintpp(value: UIntP | null): UIntPP;
export declare function delete_uintpp(cell: UIntPP | null): void;
export declare function uintpp_assign(cell: UIntPP, value: UIntP | null): void;
export declare function uintpp_value(cell: UIntPP): UIntP | null;
export declare function new_ulongpp(): SizeTPP;
export declare function copy_ulongpp(value: SizeTP | null): SizeTPP;
export declare function delete_ulongpp(cell: SizeTPP | null): void;
export declare function ulongpp_assign(cell: SizeTPP, value: SizeTP | null): void;
export declare function ulongpp_value(cell: SizeTPP): SizeTP | null;
export declare function new_kl_return_tp(): KlReturnTP;
export declare function copy_kl_return_tp(value: KlReturn): KlReturnTP;
export declare function delete_kl_return_tp(cell: KlReturnTP | null): void;
export declare function kl_return_tp_assign(cell: KlReturnTP, value: KlReturn): void;
export declare function kl_return_tp_value(cell: KlReturnTP): number;
export declare function new_kl_return_tpp(): KlReturnTPP;
export declare function copy_kl_return_tpp(value: KlReturnTP | null): KlReturnTPP;
export declare function delete_kl_return_tpp(cell: KlReturnTPP | null): void;
export declare function kl_return_tpp_assign(cell: KlReturnTPP, value: KlReturnTP | null): void;
export declare function kl_return_tpp_value(cell: KlReturnTPP): KlReturnTP | null;
// ---- string cells and reply readers ----
/** free() of a char * (meant for null). */
export declare function delete_charp(pointer: string): void;
/** Always null: "no per-server results wanted". */
export declare function new_empty_kl_return_tpp(): null;
export declare function uintpp_to_charpp(cell: UIntPP | null): CharPP | null;
export declare function intpp_to_charpp(cell: IntPP | null): CharPP | null;
export declare function kl_return_tpp_to_charpp(cell: KlReturnTPP | null): CharPP | null;
export declare function ulongpp_to_charpp(cell: SizeTPP | null): CharPP | null;
export declare function doublepp_to_charpp(cell: DoublePP | null): CharPP | null;
export declare function new_charpp(): CharPP;
export declare function delete_charpp(cell: CharPP | null): void;
/** The text in a char ** cell (one character per byte) exactly as stored, or null. */
export declare function charpp_value_raw(cell: CharPP | null, length: SizeTP | null): string | null;
/** The text in a char ** cell (one character per byte), or null; "_NL_" (length 4) reads as null and a single zero byte (length 1) as "". */
export declare function charpp_value(cell: CharPP | null, length: SizeTP | null): string | null;
export declare function new_charppp(): CharPPP;
export declare function delete_charppp(cell: CharPPP | null): void;
/** Element index of a multi-value reply (one character per byte) exactly as stored, or null. */
export declare function charppp_value_raw(cell: CharPPP | null, lengths: SizeTPP | null, index: number): string | null;
/** Element index of a multi-value reply (one character per byte), or null; the "_NL_" and zero-byte rules of charpp_value apply. */
export declare function charppp_value(cell: CharPPP | null, lengths: SizeTPP | null, index: number): string | null;
// ---- typed arrays ----
/** A zero-filled char *[count]; release with delete_charp_array(array, count). */
export declare function new_charp_array(count: number): CharPP | null;
export declare function delete_charp_array(array: CharPP | null, count: number): void;
/** Stores a copy of the first `length` UTF-8 bytes of text in slot index (freeing what was there). */
export declare function charp_array_set(array: CharPP, index: number, text: string, length: number): void;
/** A zero-filled unsigned int[count]; release with delete_uint_array. */
export declare function new_uint_array(count: number): UIntP | null;
export declare function delete_uint_array(array: UIntP | null): void;
export declare function uint_array_set(array: UIntP, index: number, value: number): void;
/** A zero-filled size_t[count]; release with delete_ulong_array. */
export declare function new_ulong_array(count: number): SizeTP | null;
export declare function delete_ulong_array(array: SizeTP | null): void;
export declare function ulong_array_set(array: SizeTP, index: number, value: number): void;
/** Element index (the low 32 bits). */
export declare function ulong_array_get(array: SizeTP, index: number): number;
/** A zero-filled double[count]; release with delete_double_array. */
export declare function new_double_array(count: number): DoubleP | null;
export declare function delete_double_array(array: DoubleP | null): void;
export declare function double_array_set(array: DoubleP, index: number, value: number): void;
export declare function double_array_get(array: DoubleP, index: number): number;
// ---- indexed readers ----
export declare function doublepp_index_value(cell: DoublePP, index: number): number;
export declare function intpp_index_value(cell: IntPP, index: number): number;
export declare function kl_return_tpp_index_value(cell: KlReturnTPP, index: number): number;
// ---- the module's own functions ----
/** kl_server_add, except that the group "_NL_" passes a null group (the group "default"). */
export declare function server_add(client: KlClient | null, host: string, port: number, group: string): KlReturn;
/** kl_keys, except that the group "_NL_" passes a null group (every group). */
export declare function keys(client: KlClient | null, pattern: string, pattern_len: number, keys: CharPPP | null, count: SizeTP | null, lengths: SizeTPP | null, group: string, results: KlReturnTPP | null): KlReturn;
/** kl_flushall, except that the group "_NL_" passes a null group (every group). */
export declare function flushall(client: KlClient | null, group: string, results: KlReturnTPP | null): KlReturn;
/** The ttl with bit 30 set, for kl_dirty: also delete the key where the source has none. */
export declare function COMMIT(ttl: number): number;
/** The ttl with bit 31 set (a negative number), for kl_dirty: keep the source's TTL. */
export declare function DURABLE_TTL(ttl: number): number;
/** Always null: the memory manager to pass to kl_client_create (the C library's allocator). */
export declare function new_mm(): null;
// ---- client library functions (include/keyloom.h) ----
/** Makes a client (NULL on failure); mm NULL means the C library's allocator (the record is copied); an unknown hash kind hashes as KL_HASH_DEFAULT. */
export declare function kl_client_create(hash: KlHash, distribution: KlDistribution, mm: KlMm | null, flags: number): KlClient | null;
/** Closes every connection and frees the client; NULL is ignored. */
export declare function kl_client_destroy(client: KlClient | null): void;
/** Chooses the command forms the client uses (CLIENT_VERSION_*; another value: KL_INVALID_PARAMETER). AUTO reads each server's version at connect; the string, key and administration commands use forms of Redis 2.8, except RESTORE ... REPLACE (3.0) in kl_rename and kl_dirty. */
export declare function kl_set_client_version(client: KlClient | null, version: KlClientVersion): KlReturn;
/** Connect and reply time-out in milliseconds (default and 0: 1000 ms). */
export declare function kl_client_connection_timeout(client: KlClient | null, timeout_ms: number): KlReturn;
/** How long a failed server stays marked down before a reconnect, in ms (default 1000; 0 retries on the next call). */
export declare function kl_client_reconnect_attempt_timeout(client: KlClient | null, timeout_ms: number): KlReturn;
/** Adds host:port (port 1..65535) to a group (NULL or "" means the group "default"); the same server twice in one group: KL_ALREADY_EXISTS. */
export declare function kl_server_add(client: KlClient | null, host: string, port: number, group: string): KlReturn;
/** Frees *reply with the allocator it was made with and sets *reply to NULL (reply NULL: KL_INVALID_PARAMETER; *reply NULL: nothing to do). */
export declare function kl_free_php_reply_p(reply: CharPP | null): void;
/** Frees the n elements of *reply and the array itself with the allocator they were made with; sets *reply to NULL (harmless twice). */
export declare function kl_free_php_reply_pp(reply: CharPPP | null, n: number): void;
/** Releases through the memory manager record mm (never null from JavaScript: use kl_free_php_reply_p). */
export declare function kl_free_reply_p(reply: CharPP | null, mm: KlMm | null): void;
/** Releases count elements and the array through mm (never null from JavaScript: use kl_free_php_reply_pp). */
export declare function kl_free_reply_pp(reply: CharPPP | null, count: number, mm: KlMm | null): void;
/** The library version as "major.minor.patch" (library-owned). */
export declare function kl_get_version(): string | undefined;
/** A fixed text for a result code, mentioning the dirty bit (library-owned). */
export declare function kl_strerror(result: KlReturn): string | undefined;
/** CONFIG GET param: names and values alternate in *values (count in *count), from the first addressed server that answers; server "host:port" (server_len > 0) narrows it to one server (unknown: KL_INVALID_PARAMETER). */
export declare function kl_config_get(client: KlClient | null, param: string, param_len: number, server: string, server_len: number, values: CharPPP | null, count: SizeTP | null, lengths: SizeTPP | null, group: string, results: KlReturnTPP | null): KlReturn;
/** CONFIG SET param value, on one server (server_len > 0) or every server of group. */
export declare function kl_config_set(client: KlClient | null, param: string, param_len: number, value: string, value_len: number, server: string, server_len: number, group: string, results: KlReturnTPP | null): KlReturn;
/** Reads back the key prefix of logical database db (library-owned; NULL and length 0 when unset). prefix_len is written despite its const. */
export declare function kl_database_key(client: KlClient | null, db: number, prefix: CharPP | null, prefix_len: SizeTP | null): KlReturn;
/** Sets the key prefix used for every key while logical database db is selected (prefix_len 0 removes it). Routing ignores the prefix. */
export declare function kl_set_database_key(client: KlClient | null, db: number, prefix: string, prefix_len: number): KlReturn;
/** Sends the library's own events to syslog for the KL_LEVEL_* bits in levels. */
export declare function kl_enable_syslog(client: KlClient | null, levels: number): KlReturn;
/** Stops logging. */
export declare function kl_disable_log(client: KlClient | null): KlReturn;
/** FLUSHALL on every server of group (an unknown group: KL_INVALID_PARAMETER; "_NL_" when no group has that name: every group; a failed server's code: KL_SERVER_DOWN). */
export declare function kl_flushall(client: KlClient | null, group: string, results: KlReturnTPP | null): KlReturn;
/** Closes every connection and forgets down marks; they reopen on demand. */
export declare function kl_quit(client: KlClient | null): KlReturn;
/** AUTH on every server (connecting them); remembered and replayed on reconnect. password_len 0 forgets the password. A refused password: KL_SERVER_ERROR. */
export declare function kl_auth(client: KlClient | null, password: string, password_len: number): KlReturn;
/** SET key value (ttl > 0: with EX ttl). */
export declare function kl_set(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** SET taking over value, a buffer allocated with new[] that the library frees. */
export declare function kl_set_binary(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** GET key into *value / *value_len; KL_NOTFOUND when absent. */
export declare function kl_get_whole(client: KlClient | null, key: string, key_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** GET of every key, one pipelined batch per server (route_len > 0: one MGET on the route's server); missing keys are NULL elements (length SIZE_MAX); policy KL_BEST_EFFORT_ON_FAIL or else KL_NULL_ON_FAIL; all servers failed: KL_SERVER_DOWN / KL_ALL_GROUP_SERVERS_DOWN. */
export declare function kl_mget_whole(client: KlClient | null, keys: CharPP | null, count: number, key_lens: SizeTP | null, values: CharPPP | null, value_count: SizeTP | null, value_lens: SizeTPP | null, route: string, route_len: number, policy: number): KlReturn;
/** MSET key/value pairs, one pipelined batch per server; any server failing fails the call (some groups failing: KL_DIRTY). */
export declare function kl_mset(client: KlClient | null, keys: CharPP | null, count: number, key_lens: SizeTP | null, values: CharPP | null, value_lens: SizeTP | null): KlReturn;
/** MSET with a TTL per key (ttls[i] seconds, 0 for none; ttls required). */
export declare function kl_msetex(client: KlClient | null, keys: CharPP | null, count: number, key_lens: SizeTP | null, values: CharPP | null, value_lens: SizeTP | null, ttls: SizeTP | null): KlReturn;
/** GETSET: sets value, hands back the old one (*old_value NULL and *old_len 0 when there was none). */
export declare function kl_getset_whole(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, old_value: CharPP | null, old_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** SET NX: KL_ALREADY_EXISTS when the key exists. */
export declare function kl_setnx(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** SET XX: KL_NOTFOUND when the key does not exist. */
export declare function kl_setifx(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** APPEND value to key. */
export declare function kl_append(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** INCR into *value (may be NULL); ttl applies only when the counter is created (one server-side script). */
export declare function kl_incr(client: KlClient | null, key: string, key_len: number, value: IntP | null, ttl: number): KlReturn;
/** INCRBY by into *value; ttl applies only when the counter is created. */
export declare function kl_incrby(client: KlClient | null, key: string, key_len: number, by: number, value: IntP | null, ttl: number): KlReturn;
/** DECR into *value; ttl applies only when the counter is created. */
export declare function kl_decr(client: KlClient | null, key: string, key_len: number, value: IntP | null, ttl: number): KlReturn;
/** DECRBY by into *value; ttl applies only when the counter is created. */
export declare function kl_decrby(client: KlClient | null, key: string, key_len: number, by: number, value: IntP | null, ttl: number): KlReturn;
/** EXISTS: KL_SUCCESS or KL_NOTFOUND. */
export declare function kl_exists(client: KlClient | null, key: string, key_len: number): KlReturn;
/** DEL: KL_SUCCESS or KL_NOTFOUND. */
export declare function kl_del(client: KlClient | null, key: string, key_len: number): KlReturn;
/** DEL of many keys, one pipelined batch per server; *deleted (may be NULL) = how many existed. */
export declare function kl_mdel(client: KlClient | null, keys: CharPP | null, count: number, key_lens: SizeTP | null, deleted: IntP | null): KlReturn;
/** TYPE into *type ("string", "list", ..., "none" for a missing key, which succeeds). */
export declare function kl_type(client: KlClient | null, key: string, key_len: number, type: CharPP | null): KlReturn;
/** Keys matching pattern ("" = "*") on every server of group (SCAN, never KEYS), merged: each key once over groups, without the database prefix; none: *keys NULL and *count 0. */
export declare function kl_keys(client: KlClient | null, pattern: string, pattern_len: number, keys: CharPPP | null, count: SizeTP | null, lengths: SizeTPP | null, group: string, results: KlReturnTPP | null): KlReturn;
/** RANDOMKEY from the first server (group order) that has one; KL_NOTFOUND when every server is empty. */
export declare function kl_randomkey(client: KlClient | null, key: CharPP | null, key_len: SizeTP | null): KlReturn;
/** RENAME; keys on different servers are moved with DUMP/RESTORE keeping the TTL; KL_NOTFOUND when key does not exist. */
export declare function kl_rename(client: KlClient | null, key: string, key_len: number, new_key: string, new_key_len: number): KlReturn;
/** RENAMENX: KL_ALREADY_EXISTS when new_key exists. */
export declare function kl_renamenx(client: KlClient | null, key: string, key_len: number, new_key: string, new_key_len: number): KlReturn;
/** DBSIZE summed over every server of group (each group's copy counts). */
export declare function kl_dbsize(client: KlClient | null, size: UIntP | null, group: string, results: KlReturnTPP | null): KlReturn;
/** EXPIRE key ttl; ttl 0 removes the TTL (PERSIST); KL_NOTFOUND when absent. */
export declare function kl_set_ttl(client: KlClient | null, key: string, key_len: number, ttl: number): KlReturn;
/** TTL into *ttl (-1 when the key has none); KL_NOTFOUND when absent. */
export declare function kl_get_ttl(client: KlClient | null, key: string, key_len: number, ttl: IntP | null): KlReturn;
/** RPUSH value; ttl > 0 sets the key's TTL in the same round trip (a refused write leaves it alone). A null value with length 0 is the empty string. */
export declare function kl_rpush(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** LPUSH value (ttl as kl_rpush). */
export declare function kl_lpush(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** LLEN into *len (0 for a missing key). */
export declare function kl_llen(client: KlClient | null, key: string, key_len: number, len: UIntP | null): KlReturn;
/** LRANGE start stop into *values / *count / *lengths; KL_NOTFOUND (count 0) when nothing is in range or the list is missing. */
export declare function kl_lrange_whole(client: KlClient | null, key: string, key_len: number, start: number, stop: number, values: CharPPP | null, count: SizeTP | null, lengths: SizeTPP | null, route: string, route_len: number): KlReturn;
/** LTRIM start stop (KL_SUCCESS also on a missing key). */
export declare function kl_ltrim(client: KlClient | null, key: string, key_len: number, start: number, stop: number): KlReturn;
/** LINDEX index into *value; KL_NOTFOUND when out of range. */
export declare function kl_lindex_whole(client: KlClient | null, key: string, key_len: number, index: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** LSET index value; KL_NOTFOUND for a missing key or an index out of range; ttl > 0 (re)sets the key's TTL. */
export declare function kl_lset(client: KlClient | null, key: string, key_len: number, index: number, value: string, value_len: number, ttl: number): KlReturn;
/** LREM count value (count as LREM: > 0 from the head, < 0 from the tail, 0 all); *removed = how many were removed (optional cell). */
export declare function kl_lrem(client: KlClient | null, key: string, key_len: number, count: number, value: string, value_len: number, removed: UIntP | null): KlReturn;
/** LPOP into *value (a write: it runs in every group); KL_NOTFOUND on an empty list. */
export declare function kl_lpop_whole(client: KlClient | null, key: string, key_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** RPOP into *value (as kl_lpop_whole); KL_NOTFOUND on an empty list. */
export declare function kl_rpop_whole(client: KlClient | null, key: string, key_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** SADD member (ttl as kl_rpush, on the set and its values hash); an existing member keeps its value. */
export declare function kl_sadd(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, ttl: number): KlReturn;
/** SADD member and attach value (atomic script); an empty value means no value and drops an old one. */
export declare function kl_saddval(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** SREM member and its value; KL_NOTFOUND when it was not a member. */
export declare function kl_srem(client: KlClient | null, key: string, key_len: number, member: string, member_len: number): KlReturn;
/** SPOP into *member, dropping its value; KL_NOTFOUND on an empty set. */
export declare function kl_spop_whole(client: KlClient | null, key: string, key_len: number, member: CharPP | null, member_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** The value attached to member; KL_SET_EMPTY_VALUE (*value NULL, length SIZE_MAX) when it has none; KL_NOTFOUND when it is not a member. */
export declare function kl_sval_whole(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** Members are CIDR networks (IPv4/IPv6; a bare address is a /32 or /128; members that do not parse are skipped; ::ffff:a.b.c.d also matches IPv4 networks): the value of the narrowest one containing ip (equal prefixes: the smallest member text). KL_NO_SUBNET when none does, KL_SET_EMPTY_VALUE when it has no value, KL_NO_SET_KEY when the set is missing, KL_INVALID_PARAMETER for an ip that does not parse. */
export declare function kl_svalfromip(client: KlClient | null, key: string, key_len: number, ip: string, ip_len: number, value: CharPP | null, value_len: SizeTP | null): KlReturn;
/** SCARD into *count (0 for a missing set). */
export declare function kl_scard(client: KlClient | null, key: string, key_len: number, count: UIntP | null): KlReturn;
/** SISMEMBER: KL_SUCCESS or KL_NOTFOUND. */
export declare function kl_sismember(client: KlClient | null, key: string, key_len: number, member: string, member_len: number): KlReturn;
/** KL_SUCCESS (member has a value), KL_SET_EMPTY_VALUE (none, or empty), KL_NOTFOUND (not a member) or KL_NO_SET_KEY (no set). */
export declare function kl_sismemberval(client: KlClient | null, key: string, key_len: number, member: string, member_len: number): KlReturn;
/** Union of the keys' members (SMEMBERS per key, one pipelined batch per server, merged client- side) in byte order; route_len > 0 reads every key on the route's server. policy KL_*_ON_FAIL; KL_NOTFOUND when the union is empty; a wrong-type key gives KL_SERVER_ERROR. */
export declare function kl_sunion_whole(client: KlClient | null, keys: CharPP | null, count: number, key_lens: SizeTP | null, members: CharPPP | null, member_count: SizeTP | null, member_lens: SizeTPP | null, route: string, route_len: number, policy: number): KlReturn;
/** Stores the union of keys (read as kl_sunion_whole, across servers) into dest, replacing it and its values atomically (empty union: dest deleted); policy KL_*_ON_FAIL (best effort stores what was reachable and returns KL_PARTIAL_RESULT); ttl as kl_rpush. */
export declare function kl_sunionstore(client: KlClient | null, dest: string, dest_len: number, keys: CharPP | null, count: number, key_lens: SizeTP | null, policy: number, ttl: number): KlReturn;
/** SMEMBERS into *members (KL_NOTFOUND when empty); with SET_WITH_VALUES also *values / *value_lens, aligned with the members (NULL, length SIZE_MAX where none), read in the same round trip. */
export declare function kl_smembers_whole(client: KlClient | null, key: string, key_len: number, members: CharPPP | null, count: SizeTP | null, member_lens: SizeTPP | null, route: string, route_len: number, flags: SetFlags, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** ZADD score member (ttl as kl_rpush, on the set and its values hash); the member keeps its value. A NaN score is KL_INVALID_PARAMETER. */
export declare function kl_zadd(client: KlClient | null, key: string, key_len: number, score: number, member: string, member_len: number, ttl: number): KlReturn;
/** ZADD count members with their scores (ttl as kl_zadd). */
export declare function kl_zmadd(client: KlClient | null, key: string, key_len: number, scores: DoubleP | null, members: CharPP | null, count: number, member_lens: SizeTP | null, ttl: number): KlReturn;
/** ZADD score member and attach value (atomic script); an empty value means no value and drops an old one. */
export declare function kl_zaddval(client: KlClient | null, key: string, key_len: number, score: number, member: string, member_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** ZADD count members with scores and values (as kl_zaddval, one atomic script). */
export declare function kl_zmaddval(client: KlClient | null, key: string, key_len: number, scores: DoubleP | null, members: CharPP | null, count: number, member_lens: SizeTP | null, values: CharPP | null, value_lens: SizeTP | null, ttl: number): KlReturn;
/** ZREM member and its value; KL_NOTFOUND when absent. */
export declare function kl_zrem(client: KlClient | null, key: string, key_len: number, member: string, member_len: number): KlReturn;
/** ZREM count members and their values; *removed = how many were present (optional cell). */
export declare function kl_zmrem(client: KlClient | null, key: string, key_len: number, members: CharPP | null, count: number, member_lens: SizeTP | null, removed: IntP | null): KlReturn;
/** ZRANGE by rank; KL_NOTFOUND when nothing is in range. ZSET_WITH_LIMIT: stop is a count (> 0, else KL_INVALID_PARAMETER) of members from start. Flags fill *scores (ZSET_WITH_SCORES), *values / *value_lens (ZSET_WITH_VALUES, NULL where a member has none) and order (ZSET_REVERSE: ranks counted from the highest score). */
export declare function kl_zrange(client: KlClient | null, key: string, key_len: number, start: number, stop: number, members: CharPPP | null, count: SizeTP | null, member_lens: SizeTPP | null, flags: ZSetFlags, scores: DoublePP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_zrange with a routing string. */
export declare function kl_zrange_whole(client: KlClient | null, key: string, key_len: number, start: number, stop: number, members: CharPPP | null, count: SizeTP | null, member_lens: SizeTPP | null, route: string, route_len: number, flags: ZSetFlags, scores: DoublePP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** ZRANGEBYSCORE min max (inclusive), flags as kl_zrange; ZSET_REVERSE lists from max down to min; ZSET_WITH_LIMIT is ignored. */
export declare function kl_zrangebyscore(client: KlClient | null, key: string, key_len: number, min: number, max: number, members: CharPPP | null, count: SizeTP | null, member_lens: SizeTPP | null, flags: ZSetFlags, scores: DoublePP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_zrangebyscore with a routing string. */
export declare function kl_zrangebyscore_whole(client: KlClient | null, key: string, key_len: number, min: number, max: number, members: CharPPP | null, count: SizeTP | null, member_lens: SizeTPP | null, route: string, route_len: number, flags: ZSetFlags, scores: DoublePP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** ZREMRANGEBYSCORE min max with the members' values; *removed = how many (optional cell). */
export declare function kl_zremrangebyscore(client: KlClient | null, key: string, key_len: number, min: number, max: number, removed: UIntP | null): KlReturn;
/** ZSCORE into *score, and the member's value when value is not NULL (NULL, length SIZE_MAX when it has none); KL_NOTFOUND when absent. */
export declare function kl_zscore(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, score: DoubleP | null, value: CharPP | null, value_len: SizeTP | null): KlReturn;
/** Adds member, or raises its score to score only when higher, then sets its value (empty: none); KL_ALREADY_EXISTS (nothing changed, TTL untouched) when its score was already as high. */
export declare function kl_zaddvalmax(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, value: string, value_len: number, score: number, ttl: number): KlReturn;
/** Keeps only the n highest-scored members (n < 0: the |n| lowest), dropping the others' values; n == 0 is KL_INVALID_PARAMETER; ttl > 0 sets the TTL; KL_SUCCESS also when nothing was removed. */
export declare function kl_zaddmaxinc(client: KlClient | null, key: string, key_len: number, n: number, ttl: number): KlReturn;
/** Removes the other members scored within distance (>= 0, inclusive) of score, with their values, then adds member at score (it keeps its value); *evicted = the lowest-scored member removed, NUL-terminated (NULL when none; the cell is optional). */
export declare function kl_zadddis(client: KlClient | null, key: string, key_len: number, score: number, member: string, member_len: number, distance: number, evicted: CharPP | null, ttl: number): KlReturn;
/** ZCARD into *count (0 for a missing key). */
export declare function kl_zcard(client: KlClient | null, key: string, key_len: number, count: UIntP | null): KlReturn;
/** ZCOUNT min max (inclusive) into *count. */
export declare function kl_zcount(client: KlClient | null, key: string, key_len: number, min: number, max: number, count: UIntP | null): KlReturn;
/** ZINCRBY by member; new score into *score (optional cell); ttl as kl_zadd. */
export declare function kl_zincrby(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, by: number, score: DoubleP | null, ttl: number): KlReturn;
/** ZRANK (ZREVRANK with ZSET_REVERSE) into *rank; ZSET_WITH_VALUES also the value (NULL, length SIZE_MAX when none); KL_NOTFOUND when absent. */
export declare function kl_zrank(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, rank: UIntP | null, flags: ZSetFlags, value: CharPP | null, value_len: SizeTP | null): KlReturn;
/** ZREMRANGEBYRANK start stop with the members' values; *removed = how many (optional cell). */
export declare function kl_zremrangebyrank(client: KlClient | null, key: string, key_len: number, start: number, stop: number, removed: UIntP | null): KlReturn;
/** HSET field value (new or updated: KL_SUCCESS; ttl as kl_rpush). */
export declare function kl_hset(client: KlClient | null, key: string, key_len: number, field: string, field_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** HGET field into *value; KL_NOTFOUND when absent. */
export declare function kl_hget(client: KlClient | null, key: string, key_len: number, field: string, field_len: number, value: CharPP | null, value_len: SizeTP | null): KlReturn;
/** kl_hget with a routing string. */
export declare function kl_hget_whole(client: KlClient | null, key: string, key_len: number, field: string, field_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** HSETNX: KL_ALREADY_EXISTS when the field exists (a TTL given is still applied). */
export declare function kl_hsetnx(client: KlClient | null, key: string, key_len: number, field: string, field_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** HMSET of count field/value pairs (ttl as kl_rpush). */
export declare function kl_hmset(client: KlClient | null, key: string, key_len: number, fields: CharPP | null, count: number, field_lens: SizeTP | null, values: CharPP | null, value_lens: SizeTP | null, ttl: number): KlReturn;
/** HMGET of count fields; missing fields (or key) are NULL elements, still KL_SUCCESS. */
export declare function kl_hmget(client: KlClient | null, key: string, key_len: number, fields: CharPP | null, count: number, field_lens: SizeTP | null, values: CharPPP | null, value_count: SizeTP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_hmget with a routing string. */
export declare function kl_hmget_whole(client: KlClient | null, key: string, key_len: number, fields: CharPP | null, count: number, field_lens: SizeTP | null, values: CharPPP | null, value_count: SizeTP | null, value_lens: SizeTPP | null, route: string, route_len: number): KlReturn;
/** HMGET of the same fields over several keys (one pipelined batch per server): key_count * field_count values, key-major; any server failing fails the call (no values); a wrong-type key gives KL_SERVER_ERROR. */
export declare function kl_mhmget(client: KlClient | null, keys: CharPP | null, key_count: number, key_lens: SizeTP | null, fields: CharPP | null, field_count: number, field_lens: SizeTP | null, values: CharPPP | null, value_count: SizeTP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_mhmget with a routing string (route_len > 0: every key read on the route's server). */
export declare function kl_mhmget_whole(client: KlClient | null, keys: CharPP | null, key_count: number, key_lens: SizeTP | null, fields: CharPP | null, field_count: number, field_lens: SizeTP | null, values: CharPPP | null, value_count: SizeTP | null, value_lens: SizeTPP | null, route: string, route_len: number): KlReturn;
/** HINCRBY field by; new value into *value (optional cell); ttl as kl_rpush. */
export declare function kl_hincrby(client: KlClient | null, key: string, key_len: number, field: string, field_len: number, by: number, value: IntP | null, ttl: number): KlReturn;
/** HEXISTS: KL_SUCCESS or KL_NOTFOUND. */
export declare function kl_hexists(client: KlClient | null, key: string, key_len: number, field: string, field_len: number): KlReturn;
/** HDEL field: KL_SUCCESS or KL_NOTFOUND. */
export declare function kl_hdel(client: KlClient | null, key: string, key_len: number, field: string, field_len: number): KlReturn;
/** HDEL of count fields; *deleted = how many existed (optional cell). */
export declare function kl_hmdel(client: KlClient | null, key: string, key_len: number, fields: CharPP | null, count: number, field_lens: SizeTP | null, deleted: IntP | null): KlReturn;
/** HLEN into *len (0 for a missing key). */
export declare function kl_hlen(client: KlClient | null, key: string, key_len: number, len: IntP | null): KlReturn;
/** HGETALL: *count field/value pairs in *fields and *values; KL_NOTFOUND (count 0) for a missing key. */
export declare function kl_hgetall(client: KlClient | null, key: string, key_len: number, count: SizeTP | null, fields: CharPPP | null, field_lens: SizeTPP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** Adds (or replaces) word with value and weight, atomically (ttl as kl_rpush, on the index and both hashes). */
export declare function kl_dadd(client: KlClient | null, key: string, key_len: number, word: string, word_len: number, value: string, value_len: number, weight: number, ttl: number): KlReturn;
/** Adds count words with values, all with weight, in one atomic script; *added = how many were new (optional cell). */
export declare function kl_dmadd(client: KlClient | null, key: string, key_len: number, words: CharPP | null, count: number, word_lens: SizeTP | null, values: CharPP | null, value_lens: SizeTP | null, weight: number, added: IntP | null, ttl: number): KlReturn;
/** Removes word with its value and weight; KL_NOTFOUND when absent. */
export declare function kl_drem(client: KlClient | null, key: string, key_len: number, word: string, word_len: number): KlReturn;
/** The value of word; KL_NOTFOUND when absent. */
export declare function kl_dget(client: KlClient | null, key: string, key_len: number, word: string, word_len: number, value: CharPP | null, value_len: SizeTP | null): KlReturn;
/** kl_dget with a routing string. */
export declare function kl_dget_whole(client: KlClient | null, key: string, key_len: number, word: string, word_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** Entries whose word starts with prefix (bytes), heaviest first, then in byte order; *values / *value_lens may be NULL (words only); KL_NOTFOUND when none. */
export declare function kl_dclose(client: KlClient | null, key: string, key_len: number, prefix: string, prefix_len: number, count: SizeTP | null, words: CharPPP | null, word_lens: SizeTPP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_dclose with a routing string. */
export declare function kl_dclose_whole(client: KlClient | null, key: string, key_len: number, prefix: string, prefix_len: number, count: SizeTP | null, words: CharPPP | null, word_lens: SizeTPP | null, values: CharPPP | null, value_lens: SizeTPP | null, route: string, route_len: number): KlReturn;
/** Every entry, heaviest first, then in byte order; KL_NOTFOUND when empty. */
export declare function kl_dgetall(client: KlClient | null, key: string, key_len: number, count: SizeTP | null, words: CharPPP | null, word_lens: SizeTPP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_dgetall with a routing string. */
export declare function kl_dgetall_whole(client: KlClient | null, key: string, key_len: number, count: SizeTP | null, words: CharPPP | null, word_lens: SizeTPP | null, values: CharPPP | null, value_lens: SizeTPP | null, route: string, route_len: number): KlReturn;
/** SELECT db (>= 0) on every connection (remembered for reconnects); the prefix of db (kl_set_database_key) applies from now on. */
export declare function kl_select(client: KlClient | null, db: number, results: KlReturnTPP | null): KlReturn;
/** MOVE key to database db: KL_NOTFOUND when absent, KL_ALREADY_EXISTS when db holds it already. */
export declare function kl_move(client: KlClient | null, key: string, key_len: number, db: number): KlReturn;
/** FLUSHDB on every server of group. */
export declare function kl_flushdb(client: KlClient | null, group: string, results: KlReturnTPP | null): KlReturn;
/** SORT key [BY by] [LIMIT offset count] [GET get1..get4] [ASC|DESC] [ALPHA] [STORE store]. An empty string omits its clause; count 0 omits LIMIT (a negative count means "to the end"); desc != 0 sorts descending; a non-empty alpha sorts lexicographically; route is a NUL-terminated routing string ("" routes by key). With STORE, *count is the stored list's length and no values come back. */
export declare function kl_sort_whole(client: KlClient | null, values: CharPPP | null, count: SizeTP | null, lengths: SizeTPP | null, key: string, key_len: number, by: string, by_len: number, offset: number, route: string, limit_count: number, desc: number, get1: string, get2: string, get3: string, get4: string, alpha: string, store: string): KlReturn;
/** SAVE on every server of group. */
export declare function kl_save(client: KlClient | null, group: string, results: KlReturnTPP | null): KlReturn;
/** BGSAVE on every server of group. */
export declare function kl_bgsave(client: KlClient | null, group: string, results: KlReturnTPP | null): KlReturn;
/** LASTSAVE: one unix time per server into *times (0 for a failed server), count in *count (may be NULL). */
export declare function kl_lastsave(client: KlClient | null, times: UIntPP | null, count: SizeTP | null, group: string, results: KlReturnTPP | null): KlReturn;
/** SHUTDOWN NOSAVE on every server of group (a closed connection is success). */
export declare function kl_shutdown(client: KlClient | null, group: string, results: KlReturnTPP | null): KlReturn;
/** INFO: one NUL-terminated text per server ("" for a failed server) in a NULL-terminated *infos. */
export declare function kl_info(client: KlClient | null, infos: CharPPP | null, group: string, results: KlReturnTPP | null): KlReturn;
/** A new client with the same settings (password, database, prefixes, time-outs, logging) and servers, and its own connections; NULL for a NULL client. */
export declare function kl_group_client(client: KlClient | null): KlClient | null;
/** Read repair: copies key (DUMP/RESTORE) from the first group holding it to the groups lacking it or holding a different copy. ttl: low 30 bits seconds (0: none); KL_DURABLE_TTL_BIT keeps the source TTL; KL_COMMIT_BIT makes the first group that answers the source, and when it lacks the key deletes it elsewhere. *groups (may be NULL) = groups repaired. No group holds it: KL_NOTFOUND; a group left unrepaired sets KL_DIRTY. */
export declare function kl_dirty(client: KlClient | null, key: string, key_len: number, ttl: number, groups: IntP | null): KlReturn;
/** 1 when kl_get_result(result) == expected, else 0. */
export declare function kl_check_result(result: KlReturn, expected: KlReturn): number;
/** 1 when the dirty bit is set, else 0. */
export declare function kl_is_dirty(result: KlReturn): number;
/** r without the dirty bit. */
export declare function kl_get_result(result: KlReturn): number;
