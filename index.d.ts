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

// ---- the 54 constants (read-only) ----
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
/** ---- Client lifecycle and configuration ------------------------------- * / /* Makes a client (NULL on failure); mm NULL means the C library's allocator. */
export declare function kl_client_create(hash: KlHash, distribution: KlDistribution, mm: KlMm | null, flags: number): KlClient | null;
/** Closes every connection and frees the client; NULL is ignored. */
export declare function kl_client_destroy(client: KlClient | null): void;
/** Chooses the command forms the client uses (CLIENT_VERSION_*). */
export declare function kl_set_client_version(client: KlClient | null, version: KlClientVersion): KlReturn;
/** Connect and reply time-out in milliseconds (0 restores the default). */
export declare function kl_client_connection_timeout(client: KlClient | null, timeout_ms: number): KlReturn;
/** How long a failed server stays marked down before a reconnect, in ms. */
export declare function kl_client_reconnect_attempt_timeout(client: KlClient | null, timeout_ms: number): KlReturn;
/** Adds host:port to a group (NULL or "" means the group "default"). */
export declare function kl_server_add(client: KlClient | null, host: string, port: number, group: string): KlReturn;
/** * keyloom: a client for sharded, replicated Redis-protocol key/value stores. * * Ownership rules, once for the whole interface: * - A client made by kl_client_create() or kl_group_client() is ended by * kl_client_destroy(); nothing else frees it. * - Every reply the library hands back through a caller's cell is allocated * with the client's memory manager (kl_mm_t; the C library's when null): * one value char * (NUL-terminated) + size_t length * several values char ** array of separately allocated elements * + size_t * array of lengths (+ a size_t count); * a missing element is NULL with length SIZE_MAX * per-server codes kl_return_t * array, one code per server addressed * Release a value with kl_free_php_reply_p(&value) and an array of n * values with kl_free_php_reply_pp(&array, n); both set the cell to NULL, * so releasing twice is harmless. Other arrays (lengths, scores, codes) * are released with kl_free_php_reply_p((char **)&array). * - Strings kl_get_version() and kl_strerror() return, and the prefix * kl_database_key() reads back, belong to the library: never free them. * - The library never crashes on a NULL client or NULL pointer argument; it * returns KL_INVALID_CLIENT or KL_INVALID_PARAMETER instead. * * Routing: every key/value is a byte string plus a length. The extra * (route, route_len) pair of the _whole commands is a routing string: when * route_len > 0 the server is chosen by hashing it instead of the key, so * related keys can share one server. * * Time to live: the trailing size_t `ttl` of the adding commands is a time to * live in seconds set atomically with the write when above 0. * * Groups: every group holds a full copy of the data. Writes go to every * group; a write that succeeded in one group and failed in another returns * its code with KL_DIRTY set. Reads fail over across groups in creation order. * * Administration commands take `group` (NULL or "" = every group, in group * order) and an optional kl_return_t ** cell that receives one code per * server addressed. * / #ifndef KEYLOOM_H #define KEYLOOM_H #include <stddef.h> #include <stdint.h> #ifdef __cplusplus extern "C" { #endif /* Every function declared here is part of the library's exported interface, also when the library is built with hidden visibility. * / #if defined(__GNUC__) #pragma GCC visibility push(default) #endif #define KEYLOOM_VERSION_MAJOR 1 #define KEYLOOM_VERSION_MINOR 0 #define KEYLOOM_VERSION_PATCH 0 /* Result codes. KL_DIRTY is a bit set on top of another code. * / typedef enum kl_return_t { KL_SUCCESS = 0, KL_ERROR = 1, KL_PTHREAD_OP_FAILURE = 2, KL_MEMORY_FAILURE = 3, KL_CONNECTION_FAILURE = 4, KL_INVALID_CLIENT = 5, KL_INVALID_COMMAND = 6, KL_SERVER_ERROR = 7, KL_SERVER_DOWN = 8, KL_UNKNOWN_REPLY = 9, KL_WRONG_REPLY = 10, KL_TTL_ALREADY_SET = 11, KL_ALREADY_EXISTS = 12, KL_NOTFOUND = 13, KL_NO_SERVER_ATTACHED = 14, KL_INVALID_PARAMETER = 15, KL_PARTIAL_RESULT = 16, KL_NO_SET_KEY = 17, KL_SET_EMPTY_VALUE = 18, KL_NO_SUBNET = 19, KL_ALL_GROUP_SERVERS_DOWN = 20, KL_DIRTY = 128 } kl_return_t; /* How keys are spread over the servers of a group. * / typedef enum kl_server_distribution { KL_DISTRIBUTION_MODULA = 0, /* hash mod number of servers * / KL_DISTRIBUTION_CONSISTENT = 1, /* 100-point continuum per server * / KL_DISTRIBUTION_CONSISTENT_KETAMA = 2 /* weighted MD5 continuum, 160 points * / } kl_server_distribution; /* Key hash kinds. * / typedef enum kl_hash { KL_HASH_DEFAULT = 0, /* Jenkins one-at-a-time * / KL_HASH_MD5 = 1, KL_HASH_CRC = 2, /* CRC-32, then 15 bits * / KL_HASH_FNV1_64 = 3, KL_HASH_FNV1A_64 = 4, KL_HASH_FNV1_32 = 5, KL_HASH_FNV1A_32 = 6, KL_HASH_HSIEH = 7, KL_HASH_MURMUR = 8 } kl_hash; /* Which command forms the client may use. AUTO is the union of 1 and 2. * / typedef enum kl_client_version { CLIENT_VERSION_1 = 1, /* only what every server since 2.8 accepts * / CLIENT_VERSION_2 = 2, /* Redis 6.2+ forms where they save a round trip * / CLIENT_VERSION_AUTO = 3 /* chosen per server from its version at connect * / } kl_client_version; /* Read flags of the set and sorted-set commands (bits). * / typedef int setFlags; typedef int zSetFlags; #define SET_DEFAULT 0 #define SET_WITH_VALUES 2 #define ZSET_DEFAULT 0 #define ZSET_WITH_SCORES 1 #define ZSET_WITH_VALUES 2 #define ZSET_WITH_LIMIT 4 #define ZSET_REVERSE 8 /* Client flags (the unsigned int of kl_client_create). * / #define KL_FLAG_NONE 1 /* no locking * / #define KL_FLAG_RECURSIVE 2 /* with KL_FLAG_SHARED: the mutex is recursive * / #define KL_FLAG_SHARED 4 /* usable from several threads (internal mutex) * / /* Failure policies of the multi-key commands. * / #define KL_NULL_ON_FAIL 1 /* any server failing fails the whole call * / #define KL_BEST_EFFORT_ON_FAIL 2 /* nulls for failed servers, KL_PARTIAL_RESULT * / /* Log levels for kl_enable_syslog (bits). * / #define KL_LEVEL_ERROR 1 #define KL_LEVEL_DEBUG 2 #define KL_LEVEL_EVENT 4 #define KL_LEVEL_NOTICE 8 #define KL_LEVEL_WARNING 16 /* kl_dirty ttl flags: keep the source's TTL / also delete where the source has none. * / #define KL_DURABLE_TTL_BIT 0x80000000u #define KL_COMMIT_BIT 0x40000000u /* The memory manager replies are allocated with (members in this order). * / typedef struct kl_mm_t { void *(*malloc)(size_t size); void *(*calloc)(size_t count, size_t size); void *(*realloc)(void *ptr, size_t size); void (*free)(void *ptr); } kl_mm_t; /* An opaque client: servers, groups, connections and settings. * / typedef struct kl_client kl_client; /* ---- Reply release ---------------------------------------------------- * / /* Frees *reply with the client's allocator and sets *reply to NULL. */
export declare function kl_free_php_reply_p(reply: CharPP | null): void;
/** Frees the n elements of *reply and the array itself; sets *reply to NULL. */
export declare function kl_free_php_reply_pp(reply: CharPPP | null, n: number): void;
/** Releases through the memory manager record mm (never null from JavaScript: use kl_free_php_reply_p). */
export declare function kl_free_reply_p(reply: CharPP | null, mm: KlMm | null): void;
/** Releases count elements and the array through mm (never null from JavaScript: use kl_free_php_reply_pp). */
export declare function kl_free_reply_pp(reply: CharPPP | null, count: number, mm: KlMm | null): void;
/** The library version as "major.minor.patch" (library-owned). */
export declare function kl_get_version(): string | undefined;
/** A fixed text for a result code, mentioning the dirty bit (library-owned). */
export declare function kl_strerror(result: KlReturn): string | undefined;
/** CONFIG GET param: names and values alternate in *values (count in *count); server "host:port" (server_len > 0) narrows it to one server. */
export declare function kl_config_get(client: KlClient | null, param: string, param_len: number, server: string, server_len: number, values: CharPPP | null, count: SizeTP | null, lengths: SizeTPP | null, group: string, results: KlReturnTPP | null): KlReturn;
/** CONFIG SET param value, on one server (server_len > 0) or every server of group. */
export declare function kl_config_set(client: KlClient | null, param: string, param_len: number, value: string, value_len: number, server: string, server_len: number, group: string, results: KlReturnTPP | null): KlReturn;
/** Reads back the key prefix of logical database db (library-owned; NULL when unset). */
export declare function kl_database_key(client: KlClient | null, db: number, prefix: CharPP | null, prefix_len: SizeTP | null): KlReturn;
/** Sets the key prefix used for every key while logical database db is selected. */
export declare function kl_set_database_key(client: KlClient | null, db: number, prefix: string, prefix_len: number): KlReturn;
/** Sends the library's own events to syslog for the KL_LEVEL_* bits in levels. */
export declare function kl_enable_syslog(client: KlClient | null, levels: number): KlReturn;
/** Stops logging. */
export declare function kl_disable_log(client: KlClient | null): KlReturn;
/** FLUSHALL on every server of group. */
export declare function kl_flushall(client: KlClient | null, group: string, results: KlReturnTPP | null): KlReturn;
/** Closes every connection; they reopen on demand. */
export declare function kl_quit(client: KlClient | null): KlReturn;
/** AUTH on every server; remembered and replayed on reconnect. */
export declare function kl_auth(client: KlClient | null, password: string, password_len: number): KlReturn;
/** ---- String and key commands ------------------------------------------ * / /* SET key value (ttl > 0: with EX ttl). */
export declare function kl_set(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** SET taking over value, a buffer allocated with new[] that the library frees. */
export declare function kl_set_binary(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** GET key into *value / *value_len; KL_NOTFOUND when absent. */
export declare function kl_get_whole(client: KlClient | null, key: string, key_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** MGET over every server; missing keys are NULL elements; policy KL_*_ON_FAIL. */
export declare function kl_mget_whole(client: KlClient | null, keys: CharPP | null, count: number, key_lens: SizeTP | null, values: CharPPP | null, value_count: SizeTP | null, value_lens: SizeTPP | null, route: string, route_len: number, policy: number): KlReturn;
/** MSET key/value pairs, one pipelined batch per server. */
export declare function kl_mset(client: KlClient | null, keys: CharPP | null, count: number, key_lens: SizeTP | null, values: CharPP | null, value_lens: SizeTP | null): KlReturn;
/** MSET with a TTL per key (ttls[i] seconds, 0 for none). */
export declare function kl_msetex(client: KlClient | null, keys: CharPP | null, count: number, key_lens: SizeTP | null, values: CharPP | null, value_lens: SizeTP | null, ttls: SizeTP | null): KlReturn;
/** GETSET: sets value, hands back the old one (NULL when there was none). */
export declare function kl_getset_whole(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, old_value: CharPP | null, old_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** SET NX: KL_ALREADY_EXISTS when the key exists. */
export declare function kl_setnx(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** SET XX: KL_NOTFOUND when the key does not exist. */
export declare function kl_setifx(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** APPEND value to key. */
export declare function kl_append(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** INCR into *value; ttl applies only when the counter is created. */
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
/** DEL of many keys; *deleted = how many existed. */
export declare function kl_mdel(client: KlClient | null, keys: CharPP | null, count: number, key_lens: SizeTP | null, deleted: IntP | null): KlReturn;
/** TYPE into *type ("string", "list", ..., "none"). */
export declare function kl_type(client: KlClient | null, key: string, key_len: number, type: CharPP | null): KlReturn;
/** Keys matching pattern on every server of group (SCAN, never KEYS), merged. */
export declare function kl_keys(client: KlClient | null, pattern: string, pattern_len: number, keys: CharPPP | null, count: SizeTP | null, lengths: SizeTPP | null, group: string, results: KlReturnTPP | null): KlReturn;
/** RANDOMKEY from the first server that has one. */
export declare function kl_randomkey(client: KlClient | null, key: CharPP | null, key_len: SizeTP | null): KlReturn;
/** RENAME; keys on different servers are moved with DUMP/RESTORE keeping the TTL. */
export declare function kl_rename(client: KlClient | null, key: string, key_len: number, new_key: string, new_key_len: number): KlReturn;
/** RENAMENX: KL_ALREADY_EXISTS when new_key exists. */
export declare function kl_renamenx(client: KlClient | null, key: string, key_len: number, new_key: string, new_key_len: number): KlReturn;
/** DBSIZE summed over every server of group. */
export declare function kl_dbsize(client: KlClient | null, size: UIntP | null, group: string, results: KlReturnTPP | null): KlReturn;
/** EXPIRE key ttl; ttl 0 removes the TTL (PERSIST). */
export declare function kl_set_ttl(client: KlClient | null, key: string, key_len: number, ttl: number): KlReturn;
/** TTL into *ttl (-1 when the key has none); KL_NOTFOUND when absent. */
export declare function kl_get_ttl(client: KlClient | null, key: string, key_len: number, ttl: IntP | null): KlReturn;
/** ---- Lists -------------------------------------------------------------- * / /* RPUSH value (ttl > 0 sets the key's TTL in the same round trip). */
export declare function kl_rpush(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** LPUSH value (ttl as kl_rpush). */
export declare function kl_lpush(client: KlClient | null, key: string, key_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** LLEN into *len. */
export declare function kl_llen(client: KlClient | null, key: string, key_len: number, len: UIntP | null): KlReturn;
/** LRANGE start stop into *values / *count / *lengths. */
export declare function kl_lrange_whole(client: KlClient | null, key: string, key_len: number, start: number, stop: number, values: CharPPP | null, count: SizeTP | null, lengths: SizeTPP | null, route: string, route_len: number): KlReturn;
/** LTRIM start stop. */
export declare function kl_ltrim(client: KlClient | null, key: string, key_len: number, start: number, stop: number): KlReturn;
/** LINDEX index into *value; KL_NOTFOUND when out of range. */
export declare function kl_lindex_whole(client: KlClient | null, key: string, key_len: number, index: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** LSET index value (ttl > 0 refreshes the key's TTL). */
export declare function kl_lset(client: KlClient | null, key: string, key_len: number, index: number, value: string, value_len: number, ttl: number): KlReturn;
/** LREM count value; *removed = how many were removed. */
export declare function kl_lrem(client: KlClient | null, key: string, key_len: number, count: number, value: string, value_len: number, removed: UIntP | null): KlReturn;
/** LPOP into *value; KL_NOTFOUND on an empty list. */
export declare function kl_lpop_whole(client: KlClient | null, key: string, key_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** RPOP into *value; KL_NOTFOUND on an empty list. */
export declare function kl_rpop_whole(client: KlClient | null, key: string, key_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** ---- Sets (optionally with a value per member) ------------------------- * / /* SADD member (ttl as kl_rpush). */
export declare function kl_sadd(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, ttl: number): KlReturn;
/** SADD member and attach value to it (kept beside the set, on its server). */
export declare function kl_saddval(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** SREM member (and its value); KL_NOTFOUND when it was not a member. */
export declare function kl_srem(client: KlClient | null, key: string, key_len: number, member: string, member_len: number): KlReturn;
/** SPOP into *member; KL_NOTFOUND on an empty set. */
export declare function kl_spop_whole(client: KlClient | null, key: string, key_len: number, member: CharPP | null, member_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** The value attached to member. */
export declare function kl_sval_whole(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** Members are CIDR networks (IPv4/IPv6): the value of the most specific one containing ip; KL_NO_SUBNET when none does. */
export declare function kl_svalfromip(client: KlClient | null, key: string, key_len: number, ip: string, ip_len: number, value: CharPP | null, value_len: SizeTP | null): KlReturn;
/** SCARD into *count. */
export declare function kl_scard(client: KlClient | null, key: string, key_len: number, count: UIntP | null): KlReturn;
/** SISMEMBER: KL_SUCCESS or KL_NOTFOUND. */
export declare function kl_sismember(client: KlClient | null, key: string, key_len: number, member: string, member_len: number): KlReturn;
/** KL_SUCCESS (member has a value), KL_SET_EMPTY_VALUE, KL_NOTFOUND or KL_NO_SET_KEY. */
export declare function kl_sismemberval(client: KlClient | null, key: string, key_len: number, member: string, member_len: number): KlReturn;
/** SUNION of keys (across servers) into *members; policy KL_*_ON_FAIL. */
export declare function kl_sunion_whole(client: KlClient | null, keys: CharPP | null, count: number, key_lens: SizeTP | null, members: CharPPP | null, member_count: SizeTP | null, member_lens: SizeTPP | null, route: string, route_len: number, policy: number): KlReturn;
/** SUNIONSTORE into dest; policy KL_*_ON_FAIL; ttl as kl_rpush. */
export declare function kl_sunionstore(client: KlClient | null, dest: string, dest_len: number, keys: CharPP | null, count: number, key_lens: SizeTP | null, policy: number, ttl: number): KlReturn;
/** SMEMBERS; with SET_WITH_VALUES also *values / *value_lens (one per member). */
export declare function kl_smembers_whole(client: KlClient | null, key: string, key_len: number, members: CharPPP | null, count: SizeTP | null, member_lens: SizeTPP | null, route: string, route_len: number, flags: SetFlags, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** ---- Sorted sets (optionally with a value per member) ------------------ * / /* ZADD score member (ttl as kl_rpush). */
export declare function kl_zadd(client: KlClient | null, key: string, key_len: number, score: number, member: string, member_len: number, ttl: number): KlReturn;
/** ZADD count members with their scores. */
export declare function kl_zmadd(client: KlClient | null, key: string, key_len: number, scores: DoubleP | null, members: CharPP | null, count: number, member_lens: SizeTP | null, ttl: number): KlReturn;
/** ZADD score member and attach value to it. */
export declare function kl_zaddval(client: KlClient | null, key: string, key_len: number, score: number, member: string, member_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** ZADD count members with scores and values. */
export declare function kl_zmaddval(client: KlClient | null, key: string, key_len: number, scores: DoubleP | null, members: CharPP | null, count: number, member_lens: SizeTP | null, values: CharPP | null, value_lens: SizeTP | null, ttl: number): KlReturn;
/** ZREM member (and its value); KL_NOTFOUND when absent. */
export declare function kl_zrem(client: KlClient | null, key: string, key_len: number, member: string, member_len: number): KlReturn;
/** ZREM count members; *removed = how many were present. */
export declare function kl_zmrem(client: KlClient | null, key: string, key_len: number, members: CharPP | null, count: number, member_lens: SizeTP | null, removed: IntP | null): KlReturn;
/** ZRANGE by rank (ZSET_WITH_LIMIT: stop is a count). Flags choose *scores (ZSET_WITH_SCORES), *values (ZSET_WITH_VALUES) and order (ZSET_REVERSE). */
export declare function kl_zrange(client: KlClient | null, key: string, key_len: number, start: number, stop: number, members: CharPPP | null, count: SizeTP | null, member_lens: SizeTPP | null, flags: ZSetFlags, scores: DoublePP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_zrange with a routing string. */
export declare function kl_zrange_whole(client: KlClient | null, key: string, key_len: number, start: number, stop: number, members: CharPPP | null, count: SizeTP | null, member_lens: SizeTPP | null, route: string, route_len: number, flags: ZSetFlags, scores: DoublePP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** ZRANGEBYSCORE min max, flags as kl_zrange. */
export declare function kl_zrangebyscore(client: KlClient | null, key: string, key_len: number, min: number, max: number, members: CharPPP | null, count: SizeTP | null, member_lens: SizeTPP | null, flags: ZSetFlags, scores: DoublePP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_zrangebyscore with a routing string. */
export declare function kl_zrangebyscore_whole(client: KlClient | null, key: string, key_len: number, min: number, max: number, members: CharPPP | null, count: SizeTP | null, member_lens: SizeTPP | null, route: string, route_len: number, flags: ZSetFlags, scores: DoublePP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** ZREMRANGEBYSCORE min max; *removed = how many. */
export declare function kl_zremrangebyscore(client: KlClient | null, key: string, key_len: number, min: number, max: number, removed: UIntP | null): KlReturn;
/** ZSCORE into *score, and the member's value (NULL when it has none). */
export declare function kl_zscore(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, score: DoubleP | null, value: CharPP | null, value_len: SizeTP | null): KlReturn;
/** Raises member's score to score only when higher, then sets its value. */
export declare function kl_zaddvalmax(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, value: string, value_len: number, score: number, ttl: number): KlReturn;
/** Keeps only the n highest-scored members (n < 0: the |n| lowest). */
export declare function kl_zaddmaxinc(client: KlClient | null, key: string, key_len: number, n: number, ttl: number): KlReturn;
/** Removes members scored within distance of score, then adds member; *evicted = the first member removed (NULL when none). */
export declare function kl_zadddis(client: KlClient | null, key: string, key_len: number, score: number, member: string, member_len: number, distance: number, evicted: CharPP | null, ttl: number): KlReturn;
/** ZCARD into *count. */
export declare function kl_zcard(client: KlClient | null, key: string, key_len: number, count: UIntP | null): KlReturn;
/** ZCOUNT min max into *count. */
export declare function kl_zcount(client: KlClient | null, key: string, key_len: number, min: number, max: number, count: UIntP | null): KlReturn;
/** ZINCRBY by member; new score into *score. */
export declare function kl_zincrby(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, by: number, score: DoubleP | null, ttl: number): KlReturn;
/** ZRANK (ZREVRANK with ZSET_REVERSE) into *rank; ZSET_WITH_VALUES also the value. */
export declare function kl_zrank(client: KlClient | null, key: string, key_len: number, member: string, member_len: number, rank: UIntP | null, flags: ZSetFlags, value: CharPP | null, value_len: SizeTP | null): KlReturn;
/** ZREMRANGEBYRANK start stop; *removed = how many. */
export declare function kl_zremrangebyrank(client: KlClient | null, key: string, key_len: number, start: number, stop: number, removed: UIntP | null): KlReturn;
/** ---- Hashes -------------------------------------------------------------- * / /* HSET field value (ttl as kl_rpush). */
export declare function kl_hset(client: KlClient | null, key: string, key_len: number, field: string, field_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** HGET field into *value; KL_NOTFOUND when absent. */
export declare function kl_hget(client: KlClient | null, key: string, key_len: number, field: string, field_len: number, value: CharPP | null, value_len: SizeTP | null): KlReturn;
/** kl_hget with a routing string. */
export declare function kl_hget_whole(client: KlClient | null, key: string, key_len: number, field: string, field_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** HSETNX: KL_ALREADY_EXISTS when the field exists. */
export declare function kl_hsetnx(client: KlClient | null, key: string, key_len: number, field: string, field_len: number, value: string, value_len: number, ttl: number): KlReturn;
/** HSET of count field/value pairs. */
export declare function kl_hmset(client: KlClient | null, key: string, key_len: number, fields: CharPP | null, count: number, field_lens: SizeTP | null, values: CharPP | null, value_lens: SizeTP | null, ttl: number): KlReturn;
/** HMGET of count fields; missing fields are NULL elements. */
export declare function kl_hmget(client: KlClient | null, key: string, key_len: number, fields: CharPP | null, count: number, field_lens: SizeTP | null, values: CharPPP | null, value_count: SizeTP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_hmget with a routing string. */
export declare function kl_hmget_whole(client: KlClient | null, key: string, key_len: number, fields: CharPP | null, count: number, field_lens: SizeTP | null, values: CharPPP | null, value_count: SizeTP | null, value_lens: SizeTPP | null, route: string, route_len: number): KlReturn;
/** HMGET of the same fields over several keys: key_count * field_count values, key-major. */
export declare function kl_mhmget(client: KlClient | null, keys: CharPP | null, key_count: number, key_lens: SizeTP | null, fields: CharPP | null, field_count: number, field_lens: SizeTP | null, values: CharPPP | null, value_count: SizeTP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_mhmget with a routing string. */
export declare function kl_mhmget_whole(client: KlClient | null, keys: CharPP | null, key_count: number, key_lens: SizeTP | null, fields: CharPP | null, field_count: number, field_lens: SizeTP | null, values: CharPPP | null, value_count: SizeTP | null, value_lens: SizeTPP | null, route: string, route_len: number): KlReturn;
/** HINCRBY field by; new value into *value. */
export declare function kl_hincrby(client: KlClient | null, key: string, key_len: number, field: string, field_len: number, by: number, value: IntP | null, ttl: number): KlReturn;
/** HEXISTS: KL_SUCCESS or KL_NOTFOUND. */
export declare function kl_hexists(client: KlClient | null, key: string, key_len: number, field: string, field_len: number): KlReturn;
/** HDEL field: KL_SUCCESS or KL_NOTFOUND. */
export declare function kl_hdel(client: KlClient | null, key: string, key_len: number, field: string, field_len: number): KlReturn;
/** HDEL of count fields; *deleted = how many existed. */
export declare function kl_hmdel(client: KlClient | null, key: string, key_len: number, fields: CharPP | null, count: number, field_lens: SizeTP | null, deleted: IntP | null): KlReturn;
/** HLEN into *len. */
export declare function kl_hlen(client: KlClient | null, key: string, key_len: number, len: IntP | null): KlReturn;
/** HGETALL: *count field/value pairs in *fields and *values. */
export declare function kl_hgetall(client: KlClient | null, key: string, key_len: number, count: SizeTP | null, fields: CharPPP | null, field_lens: SizeTPP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** ---- Dictionaries (words with a value and a weight, prefix completion) -- * / /* Adds word with value and weight (ttl as kl_rpush). */
export declare function kl_dadd(client: KlClient | null, key: string, key_len: number, word: string, word_len: number, value: string, value_len: number, weight: number, ttl: number): KlReturn;
/** Adds count words with values, all with weight; *added = how many were new. */
export declare function kl_dmadd(client: KlClient | null, key: string, key_len: number, words: CharPP | null, count: number, word_lens: SizeTP | null, values: CharPP | null, value_lens: SizeTP | null, weight: number, added: IntP | null, ttl: number): KlReturn;
/** Removes word; KL_NOTFOUND when absent. */
export declare function kl_drem(client: KlClient | null, key: string, key_len: number, word: string, word_len: number): KlReturn;
/** The value of word; KL_NOTFOUND when absent. */
export declare function kl_dget(client: KlClient | null, key: string, key_len: number, word: string, word_len: number, value: CharPP | null, value_len: SizeTP | null): KlReturn;
/** kl_dget with a routing string. */
export declare function kl_dget_whole(client: KlClient | null, key: string, key_len: number, word: string, word_len: number, value: CharPP | null, value_len: SizeTP | null, route: string, route_len: number): KlReturn;
/** Entries whose word starts with prefix, heaviest first, then in byte order. */
export declare function kl_dclose(client: KlClient | null, key: string, key_len: number, prefix: string, prefix_len: number, count: SizeTP | null, words: CharPPP | null, word_lens: SizeTPP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_dclose with a routing string. */
export declare function kl_dclose_whole(client: KlClient | null, key: string, key_len: number, prefix: string, prefix_len: number, count: SizeTP | null, words: CharPPP | null, word_lens: SizeTPP | null, values: CharPPP | null, value_lens: SizeTPP | null, route: string, route_len: number): KlReturn;
/** Every entry, heaviest first, then in byte order. */
export declare function kl_dgetall(client: KlClient | null, key: string, key_len: number, count: SizeTP | null, words: CharPPP | null, word_lens: SizeTPP | null, values: CharPPP | null, value_lens: SizeTPP | null): KlReturn;
/** kl_dgetall with a routing string. */
export declare function kl_dgetall_whole(client: KlClient | null, key: string, key_len: number, count: SizeTP | null, words: CharPPP | null, word_lens: SizeTPP | null, values: CharPPP | null, value_lens: SizeTPP | null, route: string, route_len: number): KlReturn;
/** SELECT db on every connection (remembered for reconnects). */
export declare function kl_select(client: KlClient | null, db: number, results: KlReturnTPP | null): KlReturn;
/** MOVE key to database db. */
export declare function kl_move(client: KlClient | null, key: string, key_len: number, db: number): KlReturn;
/** ---- Server administration -------------------------------------------- * / /* FLUSHDB on every server of group. */
export declare function kl_flushdb(client: KlClient | null, group: string, results: KlReturnTPP | null): KlReturn;
/** SORT key [BY by] [LIMIT offset count] [GET get1..get4] [ASC|DESC] [ALPHA] [STORE store]. An empty string omits its clause; count 0 omits LIMIT (a negative count means "to the end"); desc != 0 sorts descending; a non-empty alpha sorts lexicographically; route is a NUL-terminated routing string ("" routes by key). With STORE, *count is the stored list's length and no values come back. */
export declare function kl_sort_whole(client: KlClient | null, values: CharPPP | null, count: SizeTP | null, lengths: SizeTPP | null, key: string, key_len: number, by: string, by_len: number, offset: number, route: string, limit_count: number, desc: number, get1: string, get2: string, get3: string, get4: string, alpha: string, store: string): KlReturn;
/** SAVE on every server of group. */
export declare function kl_save(client: KlClient | null, group: string, results: KlReturnTPP | null): KlReturn;
/** BGSAVE on every server of group. */
export declare function kl_bgsave(client: KlClient | null, group: string, results: KlReturnTPP | null): KlReturn;
/** LASTSAVE: one unix time per server into *times, count in *count. */
export declare function kl_lastsave(client: KlClient | null, times: UIntPP | null, count: SizeTP | null, group: string, results: KlReturnTPP | null): KlReturn;
/** SHUTDOWN NOSAVE on every server of group. */
export declare function kl_shutdown(client: KlClient | null, group: string, results: KlReturnTPP | null): KlReturn;
/** INFO: one NUL-terminated text per server in a NULL-terminated *infos. */
export declare function kl_info(client: KlClient | null, infos: CharPPP | null, group: string, results: KlReturnTPP | null): KlReturn;
/** A new client with the same settings and servers and its own connections. */
export declare function kl_group_client(client: KlClient | null): KlClient | null;
/** Copies key from the first group holding it to the groups lacking it; ttl as seconds, or with KL_DURABLE_TTL_BIT (keep the source TTL) / KL_COMMIT_BIT (also delete where the source has none); *groups = groups repaired. */
export declare function kl_dirty(client: KlClient | null, key: string, key_len: number, ttl: number, groups: IntP | null): KlReturn;
/** 1 when kl_get_result(result) == expected, else 0. */
export declare function kl_check_result(result: KlReturn, expected: KlReturn): number;
/** 1 when the dirty bit is set, else 0. */
export declare function kl_is_dirty(result: KlReturn): number;
/** ---- Result codes and dirty state ------------------------------------ * / /* r without the dirty bit. */
export declare function kl_get_result(result: KlReturn): number;
