/*
 * keyloom: a client for sharded, replicated Redis-protocol key/value stores.
 *
 * Ownership rules, once for the whole interface:
 *  - A client made by kl_client_create() or kl_group_client() is ended by
 *    kl_client_destroy(); nothing else frees it.
 *  - Every reply the library hands back through a caller's cell is allocated
 *    with the client's memory manager (kl_mm_t; the C library's when null):
 *      one value        char * (NUL-terminated) + size_t length
 *      several values   char ** array of separately allocated elements
 *                       + size_t * array of lengths (+ a size_t count);
 *                       a missing element is NULL with length SIZE_MAX
 *      per-server codes kl_return_t * array, one code per server addressed
 *    Release a value with kl_free_php_reply_p(&value) and an array of n
 *    values with kl_free_php_reply_pp(&array, n); both set the cell to NULL,
 *    so releasing twice is harmless. Other arrays (lengths, scores, codes)
 *    are released with kl_free_php_reply_p((char **)&array).
 *  - Strings kl_get_version() and kl_strerror() return, and the prefix
 *    kl_database_key() reads back, belong to the library: never free them.
 *  - The library never crashes on a NULL client or NULL pointer argument; it
 *    returns KL_INVALID_CLIENT or KL_INVALID_PARAMETER instead.
 *
 * Routing: every key/value is a byte string plus a length. The extra
 * (route, route_len) pair of the _whole commands is a routing string: when
 * route_len > 0 the server is chosen by hashing it instead of the key, so
 * related keys can share one server.
 *
 * Time to live: the trailing size_t `ttl` of the adding commands is a time to
 * live in seconds set atomically with the write when above 0.
 *
 * Groups: every group holds a full copy of the data. Writes go to every
 * group; a write that succeeded in one group and failed in another, or that
 * got another answer there (an error reply, a key one copy had and the other
 * not), returns the first group's code with KL_DIRTY set. Reads fail over
 * across groups in creation order.
 *
 * Administration commands take `group` (NULL or "" = every group, in group
 * order) and an optional kl_return_t ** cell that receives one code per
 * server addressed.
 */
#ifndef KEYLOOM_H
#define KEYLOOM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Every function declared here is part of the library's exported interface,
   also when the library is built with hidden visibility. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

#define KEYLOOM_VERSION_MAJOR 1
#define KEYLOOM_VERSION_MINOR 0
#define KEYLOOM_VERSION_PATCH 0

/* Result codes. KL_DIRTY is a bit set on top of another code. */
typedef enum kl_return_t {
  KL_SUCCESS = 0,
  KL_ERROR = 1,
  KL_PTHREAD_OP_FAILURE = 2,
  KL_MEMORY_FAILURE = 3,
  KL_CONNECTION_FAILURE = 4,
  KL_INVALID_CLIENT = 5,
  KL_INVALID_COMMAND = 6,
  KL_SERVER_ERROR = 7,
  KL_SERVER_DOWN = 8,
  KL_UNKNOWN_REPLY = 9,
  KL_WRONG_REPLY = 10,
  KL_TTL_ALREADY_SET = 11,
  KL_ALREADY_EXISTS = 12,
  KL_NOTFOUND = 13,
  KL_NO_SERVER_ATTACHED = 14,
  KL_INVALID_PARAMETER = 15,
  KL_PARTIAL_RESULT = 16,
  KL_NO_SET_KEY = 17,
  KL_SET_EMPTY_VALUE = 18,
  KL_NO_SUBNET = 19,
  KL_ALL_GROUP_SERVERS_DOWN = 20,
  KL_DIRTY = 128,
  /* Every 32-bit value is a valid kl_return_t: codes carry bits (KL_DIRTY)
     and callers pass numbers through unchecked. */
  KL_RETURN_T_MIN_ = -2147483647 - 1,
  KL_RETURN_T_MAX_ = 2147483647
} kl_return_t;

/* How keys are spread over the servers of a group. */
typedef enum kl_server_distribution {
  KL_DISTRIBUTION_MODULA = 0,            /* hash mod number of servers */
  KL_DISTRIBUTION_CONSISTENT = 1,        /* 100-point continuum per server */
  KL_DISTRIBUTION_CONSISTENT_KETAMA = 2, /* weighted MD5 continuum, 160 points */
  KL_DISTRIBUTION_MIN_ = -2147483647 - 1, /* any int is representable */
  KL_DISTRIBUTION_MAX_ = 2147483647
} kl_server_distribution;

/* Key hash kinds. */
typedef enum kl_hash {
  KL_HASH_DEFAULT = 0,   /* Jenkins one-at-a-time */
  KL_HASH_MD5 = 1,
  KL_HASH_CRC = 2,       /* CRC-32, then 15 bits */
  KL_HASH_FNV1_64 = 3,
  KL_HASH_FNV1A_64 = 4,
  KL_HASH_FNV1_32 = 5,
  KL_HASH_FNV1A_32 = 6,
  KL_HASH_HSIEH = 7,
  KL_HASH_MURMUR = 8,
  KL_HASH_MIN_ = -2147483647 - 1, /* any int is representable */
  KL_HASH_MAX_ = 2147483647
} kl_hash;

/* Which command forms the client may use. AUTO is the union of 1 and 2. */
typedef enum kl_client_version {
  CLIENT_VERSION_1 = 1,    /* only what every server since 2.8 accepts */
  CLIENT_VERSION_2 = 2,    /* Redis 6.2+ forms where they save a round trip */
  CLIENT_VERSION_AUTO = 3, /* chosen per server from its version at connect */
  CLIENT_VERSION_MIN_ = -2147483647 - 1, /* any int is representable */
  CLIENT_VERSION_MAX_ = 2147483647
} kl_client_version;

/* Read flags of the set and sorted-set commands (bits). */
typedef int setFlags;
typedef int zSetFlags;
#define SET_DEFAULT 0
#define SET_WITH_VALUES 2
#define ZSET_DEFAULT 0
#define ZSET_WITH_SCORES 1
#define ZSET_WITH_VALUES 2
#define ZSET_WITH_LIMIT 4
#define ZSET_REVERSE 8

/* Client flags (the unsigned int of kl_client_create). */
#define KL_FLAG_NONE 1      /* no locking */
#define KL_FLAG_RECURSIVE 2 /* with KL_FLAG_SHARED: the mutex is recursive */
#define KL_FLAG_SHARED 4    /* usable from several threads (internal mutex) */

/* Failure policies of the multi-key commands. */
#define KL_NULL_ON_FAIL 1        /* any server failing fails the whole call */
#define KL_BEST_EFFORT_ON_FAIL 2 /* nulls for failed servers, KL_PARTIAL_RESULT */

/* Log levels for kl_enable_syslog (bits). */
#define KL_LEVEL_ERROR 1
#define KL_LEVEL_DEBUG 2
#define KL_LEVEL_EVENT 4
#define KL_LEVEL_NOTICE 8
#define KL_LEVEL_WARNING 16

/* kl_dirty ttl flags: keep the source's TTL / also delete where the source has none. */
#define KL_DURABLE_TTL_BIT 0x80000000u
#define KL_COMMIT_BIT 0x40000000u

/* The memory manager replies are allocated with (members in this order). */
typedef struct kl_mm_t {
  void *(*malloc)(size_t size);
  void *(*calloc)(size_t count, size_t size);
  void *(*realloc)(void *ptr, size_t size);
  void (*free)(void *ptr);
} kl_mm_t;

/* An opaque client: servers, groups, connections and settings. */
typedef struct kl_client kl_client;

/* ---- Reply release ---------------------------------------------------- */

/* Frees *reply with the allocator it was made with and sets *reply to NULL
   (reply NULL: KL_INVALID_PARAMETER; *reply NULL: nothing to do). */
kl_return_t kl_free_php_reply_p(char **reply);
/* Frees the n elements of *reply and the array itself with the allocator they
   were made with; sets *reply to NULL (harmless twice). */
kl_return_t kl_free_php_reply_pp(char ***reply, unsigned int n);

/* ---- Client lifecycle and configuration ------------------------------- */

/* Makes a client (NULL on failure); mm NULL means the C library's allocator (the
   record is copied); an unknown hash kind hashes as KL_HASH_DEFAULT. */
kl_client *kl_client_create(kl_hash hash, kl_server_distribution distribution, kl_mm_t *mm,
                            unsigned int flags);
/* Closes every connection and frees the client; NULL is ignored. */
void kl_client_destroy(kl_client *client);
/* A new client with the same settings (password, database, prefixes, time-outs,
   logging) and servers, and its own connections; NULL for a NULL client. */
kl_client *kl_group_client(kl_client *client);
/* Chooses the command forms the client uses (CLIENT_VERSION_*; another value:
   KL_INVALID_PARAMETER). VERSION_1 keeps to forms of Redis 2.8 (except
   RESTORE ... REPLACE, 3.0, in kl_rename and kl_dirty); VERSION_2 sends the
   forms of Redis 6.2 where they replace deprecated commands (SET ... GET for
   GETSET, ZRANGE ... BYSCORE [REV] for ZRANGEBYSCORE and ZREVRANGEBYSCORE);
   AUTO (the default) reads each server's version at connect and picks per
   server. */
kl_return_t kl_set_client_version(kl_client *client, kl_client_version version);
/* Connect and reply time-out in milliseconds (default and 0: 1000 ms). One
   round of a call (its commands sent to every server it needs, their replies
   read, fail-over included) waits for at most twice this in all, however
   many servers and groups it visits; the few calls made of several rounds
   (a read and then a write, as kl_spop_whole and kl_sunionstore) get that per
   round. A server the round had no time left for fails that call only; it
   is not marked down. */
kl_return_t kl_client_connection_timeout(kl_client *client, unsigned int timeout_ms);
/* How long a failed server stays marked down before a reconnect, in ms
   (default 1000; 0 retries on the next call). */
kl_return_t kl_client_reconnect_attempt_timeout(kl_client *client, unsigned int timeout_ms);
/* The most one reply may cost, in bytes: its strings, its elements and their
   bookkeeping (default and 0: 512 MiB, what a server holds in one value at
   most). A reply that would pass it is refused before the memory for it is
   taken, an announced length or element count included: the call fails with
   KL_MEMORY_FAILURE (a read does not fail over to another group for it) and
   that connection is closed; the server is not marked down. */
kl_return_t kl_client_max_reply_size(kl_client *client, size_t bytes);

/* Why the last call on client failed: the first failure it met, kept until the
   next call starts (a call that succeeds leaves none). The kind is
   KL_FAILURE_NONE, KL_FAILURE_CONNECTION (a connection that could not be made
   or was lost, a reply that did not come in time, a reply over the maximum
   size: the text is the cause, such as "connect ECONNREFUSED" or "no reply in
   1000 ms") or KL_FAILURE_SERVER_REPLY (the text is the server's error reply,
   such as "WRONGTYPE ..."). The server is "host:port" (NULL with no failure),
   the text NULL with no failure. Both belong to the library and stay valid
   until the next call on client; they never contain a password. */
enum { KL_FAILURE_NONE = 0, KL_FAILURE_CONNECTION = 1, KL_FAILURE_SERVER_REPLY = 2 };
int kl_last_failure_kind(kl_client *client);
const char *kl_last_failure_server(kl_client *client);
const char *kl_last_failure_text(kl_client *client);
/* Counters and TTLs as wide as the server's (64-bit), as decimal text: the
   increment `by` (by_len bytes, "-5"; KL_INVALID_PARAMETER when it is not a
   64-bit integer) and the answer, a library-owned string to release with
   kl_free_php_reply_p. The int forms (kl_incrby, kl_hincrby, kl_get_ttl)
   answer KL_WRONG_REPLY for a value their int cannot hold (after the write). */
kl_return_t kl_incrby_decimal(kl_client *client, char *key, size_t key_len, char const *by,
                              size_t by_len, char **value, size_t *value_len, size_t ttl);
kl_return_t kl_hincrby_decimal(kl_client *client, char *key, size_t key_len, char *field,
                               size_t field_len, char const *by, size_t by_len, char **value,
                               size_t *value_len, size_t ttl);
/* TTL: seconds to live, "-1" without one; KL_NOTFOUND for a missing key. */
kl_return_t kl_get_ttl_decimal(kl_client *client, char *key, size_t key_len, char **ttl,
                               size_t *ttl_len);
/* The pipeline: a thread of the client's own that runs library calls handed
   to it, many at a time. A call that waits for its replies steps aside for
   the next, so the commands of every call of one round reach each server in
   one write and their replies are read in one pass; each call keeps its own
   group policy, time budget and failure record (kl_last_failure_*, read
   inside the job). While a pipeline runs, other threads use the client only
   when it was made with KL_FLAG_SHARED: every round holds the client's lock. */
typedef struct kl_pipeline kl_pipeline;
typedef struct kl_job {
  void (*run)(void *data); /* called once, on the pipeline's thread */
  void *data;
  unsigned int timeout_ms; /* the call's time budget; 0: the client's own */
} kl_job;
/* Starts client's pipeline; NULL when its thread could not be made. */
kl_pipeline *kl_pipeline_start(kl_client *client);
/* Hands n jobs over (the records are copied); they start in the order given.
   Safe from any thread. */
kl_return_t kl_pipeline_submit(kl_pipeline *pipeline, const kl_job *jobs, size_t n);
/* Runs every job handed over so far, then ends the thread and frees the
   pipeline. Not from one of its own jobs. */
void kl_pipeline_stop(kl_pipeline *pipeline);
/* Adds host:port (port 1..65535) to a group (NULL or "" means the group
   "default"); the same server twice in one group: KL_ALREADY_EXISTS. */
kl_return_t kl_server_add(kl_client *client, char *host, unsigned int port, char *group);
/* kl_server_add with a weight (1 or more): under KL_DISTRIBUTION_CONSISTENT_KETAMA
   a server's share of the continuum's points, and so of the keys, is its share
   of the group's total weight. A weight other than 1 under another
   distribution: KL_INVALID_PARAMETER. */
kl_return_t kl_server_add_weighted(kl_client *client, char *host, unsigned int port, char *group,
                                   unsigned int weight);
/* Any command. request is the command as the protocol writes it: a RESP array
   of bulk strings ("*2\r\n$3\r\nGET\r\n$1\r\nk\r\n"), copied for the
   call; anything else is KL_INVALID_PARAMETER and nothing is sent. mode:
   KL_COMMAND_READ runs it on the route's server of the first group up (fail
   over as for reads), KL_COMMAND_WRITE on the route's server of every group
   (the dirty bit as for writes), KL_COMMAND_SERVER on the server named by route
   ("host:port", as kl_last_failure_server names it). Adding
   KL_COMMAND_SCRIPT_KEYS to READ or WRITE checks a script call (EVAL script
   numkeys key...): its keys must all be on the route's server in every
   group, else KL_INVALID_PARAMETER with the reason in kl_last_failure_text.
   The route is hashed as a key (hash tags apply); the request is sent as
   given (no database prefix). *reply receives the server's reply written as
   RESP (release with kl_free_php_reply_p); an error reply comes back the
   same way, with KL_SERVER_ERROR. */
enum { KL_COMMAND_READ = 0, KL_COMMAND_WRITE = 1, KL_COMMAND_SERVER = 2, KL_COMMAND_SCRIPT_KEYS = 4 };
kl_return_t kl_command(kl_client *client, int mode, char const *route, size_t route_len,
                       char const *request, size_t request_len, char **reply, size_t *reply_len);
/* Hash tags: with delimiters "{}" (len 2: an opening and a closing byte), a key
   holding the opening byte and then, later, the closing one with something
   between is routed by the bytes between alone, so "{user42}:cart" and
   "{user42}:profile" go to one server; other keys, and keys whose first
   opening byte has no closing byte after it or "{}" empty, are routed whole.
   Routing only: the key stored is the whole key. len 0 turns tags off.
   Applies to every group, now and added later, and to group clients made
   afterwards. */
kl_return_t kl_client_set_hash_tag(kl_client *client, char *delimiters, size_t len);
/* Sends the library's own events to syslog for the KL_LEVEL_* bits in levels. */
kl_return_t kl_enable_syslog(kl_client *client, unsigned int levels);
/* Stops logging. */
kl_return_t kl_disable_log(kl_client *client);
/* The library version as "major.minor.patch" (library-owned). */
char const *kl_get_version(void);
/* A fixed text for a result code, mentioning the dirty bit (library-owned). */
char const *kl_strerror(kl_return_t result);
/* AUTH on every server (connecting them); remembered and replayed on reconnect.
   "user\0password" (password_len counting both parts) authenticates as an ACL
   user. password_len 0 forgets the password. A refused password:
   KL_SERVER_ERROR. */
kl_return_t kl_auth(kl_client *client, char *password, size_t password_len);
/* TLS for every connection the client opens from now on (open connections are
   closed). ca: PEM certificates to trust (ca_len 0: the system's); cert and
   key: the client's PEM certificate (chain) and private key, both or neither;
   servername: the name the servers' certificates must carry, also sent as SNI
   (servername_len 0: each server's own host, an address checked against the
   certificate's IP entries); verify 0 accepts any certificate. The texts are
   copied. OpenSSL is the process's own (Node.js exports it), else
   libssl.so.3; none, or a text that does not parse: KL_INVALID_PARAMETER with
   the reason in kl_last_failure_text. Group clients made afterwards share
   the settings. A handshake that fails is a connection failure: the server
   is marked down and kl_last_failure_text says why (certificate refused,
   server not speaking TLS). */
kl_return_t kl_client_set_tls(kl_client *client, char *ca, size_t ca_len, char *cert, size_t cert_len,
                              char *key, size_t key_len, char *servername, size_t servername_len,
                              int verify);
/* Closes every connection and forgets down marks; they reopen on demand. */
kl_return_t kl_quit(kl_client *client);
/* CONFIG GET param: names and values alternate in *values (count in *count),
   from the first addressed server that answers; server "host:port"
   (server_len > 0) narrows it to one server (unknown: KL_INVALID_PARAMETER). */
kl_return_t kl_config_get(kl_client *client, char const *param, size_t param_len,
                          char const *server, size_t server_len, char ***values, size_t *count,
                          size_t **lengths, char const *group, kl_return_t **results);
/* CONFIG SET param value, on one server (server_len > 0) or every server of group. */
kl_return_t kl_config_set(kl_client *client, char const *param, size_t param_len,
                          char const *value, size_t value_len, char const *server,
                          size_t server_len, char const *group, kl_return_t **results);
/* Reads back the key prefix of logical database db (library-owned; NULL and
   length 0 when unset). prefix_len is written despite its const. */
kl_return_t kl_database_key(kl_client *client, size_t db, char const **prefix,
                            size_t const *prefix_len);
/* Sets the key prefix used for every key while logical database db is
   selected (prefix_len 0 removes it). Routing ignores the prefix. */
kl_return_t kl_set_database_key(kl_client *client, size_t db, char const *prefix,
                                size_t prefix_len);

/* ---- Result codes and dirty state ------------------------------------ */

/* r without the dirty bit. */
kl_return_t kl_get_result(kl_return_t result);
/* 1 when the dirty bit is set, else 0. */
uint8_t kl_is_dirty(kl_return_t result);
/* 1 when kl_get_result(result) == expected, else 0. */
uint8_t kl_check_result(kl_return_t result, kl_return_t expected);
/* Read repair: copies key (DUMP/RESTORE), with a collection's member values and
   weights, from the first group holding it to the groups lacking it or holding
   a different copy. ttl: low 30 bits seconds (0:
   none); KL_DURABLE_TTL_BIT keeps the source TTL; KL_COMMIT_BIT makes the first
   group that answers the source, and when it lacks the key deletes it
   elsewhere. *groups (may be NULL) = groups repaired. No group holds it (and
   no KL_COMMIT_BIT): KL_NOTFOUND; a group left unrepaired sets KL_DIRTY. */
kl_return_t kl_dirty(kl_client *client, char *key, size_t key_len, int ttl, int *groups);

/* ---- String and key commands ------------------------------------------ */

/* SET key value (ttl > 0: with EX ttl). */
kl_return_t kl_set(kl_client *client, char *key, size_t key_len, char *value, size_t value_len,
                   size_t ttl);
/* kl_set_binary only when the key is absent (KL_SET_IF_ABSENT: KL_ALREADY_EXISTS
   when it was there) or present (KL_SET_IF_PRESENT: KL_NOTFOUND when it was
   not); KL_SET_ALWAYS is kl_set_binary. value is taken over as there, in every
   case. */
enum { KL_SET_ALWAYS = 0, KL_SET_IF_ABSENT = 1, KL_SET_IF_PRESENT = 2 };
kl_return_t kl_set_binary_if(kl_client *client, char *key, size_t key_len, char *value,
                             size_t value_len, size_t ttl, int condition);
/* SET taking over value, a buffer allocated with new[] that the library frees. */
kl_return_t kl_set_binary(kl_client *client, char *key, size_t key_len, char *value,
                          size_t value_len, size_t ttl);
/* SET NX: KL_ALREADY_EXISTS when the key exists. */
kl_return_t kl_setnx(kl_client *client, char *key, size_t key_len, char *value,
                     size_t value_len, size_t ttl);
/* SET XX: KL_NOTFOUND when the key does not exist. */
kl_return_t kl_setifx(kl_client *client, char *key, size_t key_len, char *value,
                      size_t value_len, size_t ttl);
/* APPEND value to key (ttl > 0: and EXPIRE, in one script, so a refused APPEND
   sets no TTL). */
kl_return_t kl_append(kl_client *client, char *key, size_t key_len, char *value,
                      size_t value_len, size_t ttl);
/* GET key into *value / *value_len; KL_NOTFOUND when absent. */
kl_return_t kl_get_whole(kl_client *client, char *key, size_t key_len, char **value,
                         size_t *value_len, char *route, size_t route_len);
/* GETSET: sets value, hands back the old one (*old_value NULL and *old_len 0
   when there was none). */
kl_return_t kl_getset_whole(kl_client *client, char *key, size_t key_len, char *value,
                            size_t value_len, char **old_value, size_t *old_len, char *route,
                            size_t route_len);
/* GET of every key: one MGET per server and 256 keys, every server's commands
   sent before any reply is read (route_len > 0: all on the route's server);
   missing keys are NULL elements (length SIZE_MAX);
   policy KL_BEST_EFFORT_ON_FAIL or else KL_NULL_ON_FAIL; all servers failed:
   KL_SERVER_DOWN / KL_ALL_GROUP_SERVERS_DOWN. */
kl_return_t kl_mget_whole(kl_client *client, char **keys, size_t count, size_t *key_lens,
                          char ***values, size_t *value_count, size_t **value_lens, char *route,
                          size_t route_len, int policy);
/* MSET key/value pairs, one pipelined batch per server; any server failing
   fails the call (some groups failing: KL_DIRTY). */
kl_return_t kl_mset(kl_client *client, char const **keys, size_t count, size_t *key_lens,
                    char **values, size_t *value_lens);
/* MSET with a TTL per key (ttls[i] seconds, 0 for none; ttls required). */
kl_return_t kl_msetex(kl_client *client, char const **keys, size_t count,
                      size_t const *key_lens, char const **values, size_t const *value_lens,
                      size_t const *ttls);
/* INCR into *value (may be NULL); ttl applies only when the counter is
   created (one server-side script). */
kl_return_t kl_incr(kl_client *client, char *key, size_t key_len, int *value, size_t ttl);
/* INCRBY by into *value; ttl applies only when the counter is created. */
kl_return_t kl_incrby(kl_client *client, char *key, size_t key_len, int by, int *value,
                      size_t ttl);
/* DECR into *value; ttl applies only when the counter is created. */
kl_return_t kl_decr(kl_client *client, char *key, size_t key_len, int *value, size_t ttl);
/* DECRBY by into *value; ttl applies only when the counter is created. */
kl_return_t kl_decrby(kl_client *client, char *key, size_t key_len, int by, int *value,
                      size_t ttl);
/* EXISTS: KL_SUCCESS or KL_NOTFOUND. */
kl_return_t kl_exists(kl_client *client, char *key, size_t key_len);
/* DEL: KL_SUCCESS or KL_NOTFOUND. The member values kept beside a set, sorted
   set or dictionary of that name are deleted with it. */
kl_return_t kl_del(kl_client *client, char *key, size_t key_len);
/* DEL of many keys, one pipelined batch per server; *deleted (may be NULL) =
   how many existed. Member values go with their keys, as in kl_del. */
kl_return_t kl_mdel(kl_client *client, char **keys, size_t count, size_t *key_lens,
                    int *deleted);
/* TYPE into *type ("string", "list", ..., "none" for a missing key, which
   succeeds). */
kl_return_t kl_type(kl_client *client, char *key, size_t key_len, char **type);
/* Keys matching pattern ("" = "*") on every server of group (SCAN, never
   KEYS), merged: each key once over groups, without the database prefix and
   without the library's own keys beside collections (member values, weights);
   none: *keys NULL and *count 0. */
kl_return_t kl_keys(kl_client *client, char *pattern, size_t pattern_len, char ***keys,
                    size_t *count, size_t **lengths, char const *group, kl_return_t **results);
/* RANDOMKEY from the first server (group order) that has one: 16 draws per
   server in one round trip, skipping the library's own keys and, under a
   database prefix, other databases' keys; KL_NOTFOUND when no draw counted. */
kl_return_t kl_randomkey(kl_client *client, char **key, size_t *key_len);
/* RENAME; keys on different servers are moved with DUMP/RESTORE keeping the
   TTL; a collection's member values and weights move with it. KL_NOTFOUND
   when key does not exist. */
kl_return_t kl_rename(kl_client *client, char *key, size_t key_len, char *new_key,
                      size_t new_key_len);
/* RENAMENX: KL_ALREADY_EXISTS when new_key exists. */
kl_return_t kl_renamenx(kl_client *client, char *key, size_t key_len, char *new_key,
                        size_t new_key_len);
/* EXPIRE key ttl; ttl 0 removes the TTL (PERSIST); KL_NOTFOUND when absent.
   The member values kept beside a collection get the same TTL. */
kl_return_t kl_set_ttl(kl_client *client, char *key, size_t key_len, size_t ttl);
/* TTL into *ttl (-1 when the key has none); KL_NOTFOUND when absent. */
kl_return_t kl_get_ttl(kl_client *client, char *key, size_t key_len, int *ttl);
/* DBSIZE summed over every server of group (each group's copy counts). */
kl_return_t kl_dbsize(kl_client *client, unsigned int *size, char const *group,
                      kl_return_t **results);
/* SELECT db (>= 0) on every connection (remembered for reconnects); the
   prefix of db (kl_set_database_key) applies from now on. */
kl_return_t kl_select(kl_client *client, int db, kl_return_t **results);
/* MOVE key (with a collection's member values and weights) to database db:
   KL_NOTFOUND when absent, KL_ALREADY_EXISTS when db holds it already. */
kl_return_t kl_move(kl_client *client, char *key, size_t key_len, int db);
/* FLUSHALL on every server of group (an unknown group: KL_INVALID_PARAMETER;
   "_NL_" when no group has that name: every group; a failed server's code:
   KL_SERVER_DOWN). */
kl_return_t kl_flushall(kl_client *client, char const *group, kl_return_t **results);

/* ---- Server administration -------------------------------------------- */

/* FLUSHDB on every server of group. */
kl_return_t kl_flushdb(kl_client *client, char const *group, kl_return_t **results);
/* SAVE on every server of group. */
kl_return_t kl_save(kl_client *client, char const *group, kl_return_t **results);
/* BGSAVE on every server of group. */
kl_return_t kl_bgsave(kl_client *client, char const *group, kl_return_t **results);
/* SHUTDOWN NOSAVE on every server of group (a closed connection is success). */
kl_return_t kl_shutdown(kl_client *client, char const *group, kl_return_t **results);
/* LASTSAVE: one unix time per server into *times (0 for a failed server),
   count in *count (may be NULL). */
kl_return_t kl_lastsave(kl_client *client, unsigned int **times, size_t *count,
                        char const *group, kl_return_t **results);
/* INFO: one NUL-terminated text per server ("" for a failed server) in a
   NULL-terminated *infos. */
kl_return_t kl_info(kl_client *client, char ***infos, char const *group, kl_return_t **results);
/* SORT key [BY by] [LIMIT offset count] [GET get1..get4] [ASC|DESC] [ALPHA] [STORE store].
   An empty string omits its clause; count 0 omits LIMIT (a negative count means
   "to the end"); desc != 0 sorts descending; a non-empty alpha sorts
   lexicographically; route is a NUL-terminated routing string ("" routes by key).
   With STORE, *count is the stored list's length and no values come back. */
kl_return_t kl_sort_whole(kl_client *client, char ***values, size_t *count, size_t **lengths,
                          char *key, size_t key_len, char *by, size_t by_len, size_t offset,
                          char *route, int limit_count, int desc, char *get1, char *get2,
                          char *get3, char *get4, char *alpha, char *store);

/* ---- Lists -------------------------------------------------------------- */

/* RPUSH value; ttl > 0 sets the key's TTL in the same round trip (a refused write leaves it
   alone). A null value with length 0 is the empty string. */
kl_return_t kl_rpush(kl_client *client, char *key, size_t key_len, char *value,
                     size_t value_len, size_t ttl);
/* LPUSH value (ttl as kl_rpush). */
kl_return_t kl_lpush(kl_client *client, char *key, size_t key_len, char *value,
                     size_t value_len, size_t ttl);
/* LLEN into *len (0 for a missing key). */
kl_return_t kl_llen(kl_client *client, char *key, size_t key_len, unsigned int *len);
/* LRANGE start stop into *values / *count / *lengths; KL_NOTFOUND (count 0) when nothing is in
   range or the list is missing. */
kl_return_t kl_lrange_whole(kl_client *client, char *key, size_t key_len, int start, int stop,
                            char ***values, size_t *count, size_t **lengths, char *route,
                            size_t route_len);
/* LTRIM start stop (KL_SUCCESS also on a missing key). */
kl_return_t kl_ltrim(kl_client *client, char *key, size_t key_len, int start, int stop);
/* LINDEX index into *value; KL_NOTFOUND when out of range. */
kl_return_t kl_lindex_whole(kl_client *client, char *key, size_t key_len, int index,
                            char **value, size_t *value_len, char *route, size_t route_len);
/* LSET index value; KL_NOTFOUND for a missing key or an index out of range; ttl > 0 (re)sets the
   key's TTL. */
kl_return_t kl_lset(kl_client *client, char *key, size_t key_len, int index, char *value,
                    size_t value_len, size_t ttl);
/* LREM count value (count as LREM: > 0 from the head, < 0 from the tail, 0 all); *removed = how
   many were removed (optional cell). */
kl_return_t kl_lrem(kl_client *client, char *key, size_t key_len, int count, char *value,
                    size_t value_len, unsigned int *removed);
/* LPOP into *value (a write: it runs in every group); KL_NOTFOUND on an empty list. */
kl_return_t kl_lpop_whole(kl_client *client, char *key, size_t key_len, char **value,
                          size_t *value_len, char *route, size_t route_len);
/* RPOP into *value (as kl_lpop_whole); KL_NOTFOUND on an empty list. */
kl_return_t kl_rpop_whole(kl_client *client, char *key, size_t key_len, char **value,
                          size_t *value_len, char *route, size_t route_len);

/* ---- Sets (optionally with a value per member) ------------------------- */
/* Member values live in the hash <key>::keyloom:svals beside the set (same
   server, same TTL); every write that touches values is one atomic script.
   A set that is deleted and made again does not inherit old values. */

/* SADD member (ttl as kl_rpush, on the set and its values hash); an existing member keeps its
   value. */
kl_return_t kl_sadd(kl_client *client, char *key, size_t key_len, char *member,
                    size_t member_len, size_t ttl);
/* SADD member and attach value (atomic script); an empty value means no value and drops an old
   one. */
kl_return_t kl_saddval(kl_client *client, char *key, size_t key_len, char *member,
                       size_t member_len, char *value, size_t value_len, size_t ttl);
/* SREM member and its value; KL_NOTFOUND when it was not a member. */
kl_return_t kl_srem(kl_client *client, char *key, size_t key_len, char *member,
                    size_t member_len);
/* Removes one member chosen at random (the same one in every group) into *member, dropping its
   value; KL_NOTFOUND on an empty set. */
kl_return_t kl_spop_whole(kl_client *client, char *key, size_t key_len, char **member,
                          size_t *member_len, char *route, size_t route_len);
/* The value attached to member; KL_SET_EMPTY_VALUE (*value NULL, length SIZE_MAX) when it has
   none; KL_NOTFOUND when it is not a member. */
kl_return_t kl_sval_whole(kl_client *client, char *key, size_t key_len, char *member,
                          size_t member_len, char **value, size_t *value_len, char *route,
                          size_t route_len);
/* Members are CIDR networks (IPv4/IPv6; a bare address is a /32 or /128; members that do not
   parse are skipped; ::ffff:a.b.c.d also matches IPv4 networks): the value of the narrowest one
   containing ip (equal prefixes: the smallest member text). KL_NO_SUBNET when none does,
   KL_SET_EMPTY_VALUE when it has no value, KL_NO_SET_KEY when the set is missing,
   KL_INVALID_PARAMETER for an ip that does not parse. */
kl_return_t kl_svalfromip(kl_client *client, char const *key, size_t key_len, char const *ip,
                          size_t ip_len, char **value, size_t *value_len);
/* SCARD into *count (0 for a missing set). */
kl_return_t kl_scard(kl_client *client, char *key, size_t key_len, unsigned int *count);
/* SISMEMBER: KL_SUCCESS or KL_NOTFOUND. */
kl_return_t kl_sismember(kl_client *client, char *key, size_t key_len, char *member,
                         size_t member_len);
/* KL_SUCCESS (member has a value), KL_SET_EMPTY_VALUE (none, or empty), KL_NOTFOUND (not a
   member) or KL_NO_SET_KEY (no set). */
kl_return_t kl_sismemberval(kl_client *client, char *key, size_t key_len, char *member,
                            size_t member_len);
/* Union of the keys' members (SMEMBERS per key, one pipelined batch per server, merged client-
   side) in byte order; route_len > 0 reads every key on the route's server. policy KL_*_ON_FAIL;
   KL_NOTFOUND when the union is empty; a wrong-type key gives KL_SERVER_ERROR. */
kl_return_t kl_sunion_whole(kl_client *client, char **keys, size_t count, size_t *key_lens,
                            char ***members, size_t *member_count, size_t **member_lens,
                            char *route, size_t route_len, int policy);
/* Stores the union of keys (read as kl_sunion_whole, across servers) into dest, replacing it and
   its values atomically (empty union: dest deleted); policy KL_*_ON_FAIL (best effort stores
   what was reachable and returns KL_PARTIAL_RESULT); ttl as kl_rpush. */
kl_return_t kl_sunionstore(kl_client *client, char *dest, size_t dest_len, char **keys,
                           size_t count, size_t *key_lens, int policy, size_t ttl);
/* SMEMBERS into *members (KL_NOTFOUND when empty); with SET_WITH_VALUES also *values /
   *value_lens, aligned with the members (NULL, length SIZE_MAX where none), read in the same
   round trip. */
kl_return_t kl_smembers_whole(kl_client *client, char const *key, size_t key_len,
                              char ***members, size_t *count, size_t **member_lens,
                              char const *route, size_t route_len, setFlags flags,
                              char ***values, size_t **value_lens);

/* ---- Sorted sets (optionally with a value per member) ------------------ */
/* Member values live in the hash <key>::keyloom:zvals beside the sorted set,
   kept as for sets (kl_zincrby alone does not clear values left by a deleted
   sorted set). Range reads with no member in range give KL_NOTFOUND. */

/* ZADD score member (ttl as kl_rpush, on the set and its values hash); the member keeps its
   value. A NaN score is KL_INVALID_PARAMETER. */
kl_return_t kl_zadd(kl_client *client, char *key, size_t key_len, double score, char *member,
                    size_t member_len, size_t ttl);
/* ZADD count members with their scores (ttl as kl_zadd). */
kl_return_t kl_zmadd(kl_client *client, char *key, size_t key_len, double *scores,
                     char **members, size_t count, size_t *member_lens, size_t ttl);
/* ZADD score member and attach value (atomic script); an empty value means no value and drops an
   old one. */
kl_return_t kl_zaddval(kl_client *client, char *key, size_t key_len, double score,
                       char *member, size_t member_len, char *value, size_t value_len,
                       size_t ttl);
/* ZADD count members with scores and values (as kl_zaddval, one atomic script). */
kl_return_t kl_zmaddval(kl_client *client, char *key, size_t key_len, double *scores,
                        char **members, size_t count, size_t *member_lens, char **values,
                        size_t *value_lens, size_t ttl);
/* ZREM member and its value; KL_NOTFOUND when absent. */
kl_return_t kl_zrem(kl_client *client, char *key, size_t key_len, char *member,
                    size_t member_len);
/* ZREM count members and their values; *removed = how many were present (optional cell). */
kl_return_t kl_zmrem(kl_client *client, char *key, size_t key_len, char **members,
                     size_t count, size_t *member_lens, int *removed);
/* ZRANGE by rank; KL_NOTFOUND when nothing is in range. ZSET_WITH_LIMIT: stop is a count (> 0,
   else KL_INVALID_PARAMETER) of members from start. Flags fill *scores (ZSET_WITH_SCORES),
   *values / *value_lens (ZSET_WITH_VALUES, NULL where a member has none) and order
   (ZSET_REVERSE: ranks counted from the highest score). */
kl_return_t kl_zrange(kl_client *client, char *key, size_t key_len, int start, int stop,
                      char ***members, size_t *count, size_t **member_lens, zSetFlags flags,
                      double **scores, char ***values, size_t **value_lens);
/* kl_zrange with a routing string. */
kl_return_t kl_zrange_whole(kl_client *client, char *key, size_t key_len, int start, int stop,
                            char ***members, size_t *count, size_t **member_lens, char *route,
                            size_t route_len, zSetFlags flags, double **scores, char ***values,
                            size_t **value_lens);
/* ZRANGEBYSCORE min max (inclusive), flags as kl_zrange; ZSET_REVERSE lists from max down to
   min; ZSET_WITH_LIMIT is ignored. */
kl_return_t kl_zrangebyscore(kl_client *client, char *key, size_t key_len, double min,
                             double max, char ***members, size_t *count, size_t **member_lens,
                             zSetFlags flags, double **scores, char ***values,
                             size_t **value_lens);
/* kl_zrangebyscore with a routing string. */
kl_return_t kl_zrangebyscore_whole(kl_client *client, char *key, size_t key_len, double min,
                                   double max, char ***members, size_t *count,
                                   size_t **member_lens, char *route, size_t route_len,
                                   zSetFlags flags, double **scores, char ***values,
                                   size_t **value_lens);
/* ZREMRANGEBYSCORE min max with the members' values; *removed = how many (optional cell). */
kl_return_t kl_zremrangebyscore(kl_client *client, char *key, size_t key_len, double min,
                                double max, unsigned int *removed);
/* ZSCORE into *score, and the member's value when value is not NULL (NULL, length SIZE_MAX when
   it has none); KL_NOTFOUND when absent. */
kl_return_t kl_zscore(kl_client *client, char *key, size_t key_len, char *member,
                      size_t member_len, double *score, char **value, size_t *value_len);
/* Adds member, or raises its score to score only when higher, then sets its value (empty: none);
   KL_ALREADY_EXISTS (nothing changed, TTL untouched) when its score was already as high. */
kl_return_t kl_zaddvalmax(kl_client *client, char *key, size_t key_len, char *member,
                          size_t member_len, char *value, size_t value_len, double score,
                          size_t ttl);
/* Keeps only the n highest-scored members (n < 0: the |n| lowest), dropping the others' values;
   n == 0 is KL_INVALID_PARAMETER; ttl > 0 sets the TTL; KL_SUCCESS also when nothing was
   removed. */
kl_return_t kl_zaddmaxinc(kl_client *client, char *key, size_t key_len, int n, size_t ttl);
/* Removes the other members scored within distance (>= 0, inclusive) of score, with their
   values, then adds member at score (it keeps its value); *evicted = the lowest-scored member
   removed, NUL-terminated (NULL when none; the cell is optional). */
kl_return_t kl_zadddis(kl_client *client, char *key, size_t key_len, double score,
                       char *member, size_t member_len, double distance, char **evicted,
                       size_t ttl);
/* ZCARD into *count (0 for a missing key). */
kl_return_t kl_zcard(kl_client *client, char *key, size_t key_len, unsigned int *count);
/* ZCOUNT min max (inclusive) into *count. */
kl_return_t kl_zcount(kl_client *client, char *key, size_t key_len, double min, double max,
                      unsigned int *count);
/* ZINCRBY by member; new score into *score (optional cell); ttl as kl_zadd. */
kl_return_t kl_zincrby(kl_client *client, char *key, size_t key_len, char *member,
                       size_t member_len, double by, double *score, size_t ttl);
/* ZRANK (ZREVRANK with ZSET_REVERSE) into *rank; ZSET_WITH_VALUES also the value (NULL, length
   SIZE_MAX when none); KL_NOTFOUND when absent. */
kl_return_t kl_zrank(kl_client *client, char *key, size_t key_len, char *member,
                     size_t member_len, unsigned int *rank, zSetFlags flags, char **value,
                     size_t *value_len);
/* ZREMRANGEBYRANK start stop with the members' values; *removed = how many (optional cell). */
kl_return_t kl_zremrangebyrank(kl_client *client, char *key, size_t key_len, int start,
                               int stop, unsigned int *removed);

/* ---- Hashes -------------------------------------------------------------- */

/* HSET field value (new or updated: KL_SUCCESS; ttl as kl_rpush). */
kl_return_t kl_hset(kl_client *client, char *key, size_t key_len, char *field, size_t field_len,
                    char *value, size_t value_len, size_t ttl);
/* HGET field into *value; KL_NOTFOUND when absent. */
kl_return_t kl_hget(kl_client *client, char *key, size_t key_len, char *field, size_t field_len,
                    char **value, size_t *value_len);
/* kl_hget with a routing string. */
kl_return_t kl_hget_whole(kl_client *client, char *key, size_t key_len, char *field,
                          size_t field_len, char **value, size_t *value_len, char *route,
                          size_t route_len);
/* HSETNX: KL_ALREADY_EXISTS when the field exists (a TTL given is still applied). */
kl_return_t kl_hsetnx(kl_client *client, char *key, size_t key_len, char *field,
                      size_t field_len, char *value, size_t value_len, size_t ttl);
/* HMSET of count field/value pairs (ttl as kl_rpush). */
kl_return_t kl_hmset(kl_client *client, char *key, size_t key_len, char **fields, size_t count,
                     size_t *field_lens, char **values, size_t *value_lens, size_t ttl);
/* HMGET of count fields; missing fields (or key) are NULL elements, still KL_SUCCESS. */
kl_return_t kl_hmget(kl_client *client, char *key, size_t key_len, char **fields, size_t count,
                     size_t *field_lens, char ***values, size_t *value_count,
                     size_t **value_lens);
/* kl_hmget with a routing string. */
kl_return_t kl_hmget_whole(kl_client *client, char *key, size_t key_len, char **fields,
                           size_t count, size_t *field_lens, char ***values,
                           size_t *value_count, size_t **value_lens, char *route,
                           size_t route_len);
/* HMGET of the same fields over several keys (one pipelined batch per server): key_count *
   field_count values, key-major; any server failing fails the call (no values); a wrong-type key
   gives KL_SERVER_ERROR. */
kl_return_t kl_mhmget(kl_client *client, char **keys, size_t key_count, size_t *key_lens,
                      char **fields, size_t field_count, size_t *field_lens, char ***values,
                      size_t *value_count, size_t **value_lens);
/* kl_mhmget with a routing string (route_len > 0: every key read on the route's server). */
kl_return_t kl_mhmget_whole(kl_client *client, char **keys, size_t key_count,
                            size_t *key_lens, char **fields, size_t field_count,
                            size_t *field_lens, char ***values, size_t *value_count,
                            size_t **value_lens, char *route, size_t route_len);
/* HINCRBY field by; new value into *value (optional cell); ttl as kl_rpush. */
kl_return_t kl_hincrby(kl_client *client, char *key, size_t key_len, char *field,
                       size_t field_len, int by, int *value, size_t ttl);
/* HEXISTS: KL_SUCCESS or KL_NOTFOUND. */
kl_return_t kl_hexists(kl_client *client, char *key, size_t key_len, char *field,
                       size_t field_len);
/* HDEL field: KL_SUCCESS or KL_NOTFOUND. */
kl_return_t kl_hdel(kl_client *client, char *key, size_t key_len, char *field,
                    size_t field_len);
/* HDEL of count fields; *deleted = how many existed (optional cell). */
kl_return_t kl_hmdel(kl_client *client, char *key, size_t key_len, char **fields, size_t count,
                     size_t *field_lens, int *deleted);
/* HLEN into *len (0 for a missing key). */
kl_return_t kl_hlen(kl_client *client, char *key, size_t key_len, int *len);
/* HGETALL: *count field/value pairs in *fields and *values; KL_NOTFOUND (count 0) for a missing
   key. */
kl_return_t kl_hgetall(kl_client *client, char *key, size_t key_len, size_t *count,
                       char ***fields, size_t **field_lens, char ***values,
                       size_t **value_lens);

/* ---- Dictionaries (words with a value and a weight, prefix completion) -- */
/* <key> is a sorted set of the words (score 0, so ZRANGEBYLEX finds a
   prefix); <key>::keyloom:dvals maps word -> value and <key>::keyloom:dwts
   word -> weight. Every write is one atomic script. */

/* Adds (or replaces) word with value and weight, atomically (ttl as kl_rpush, on the index and
   both hashes). */
kl_return_t kl_dadd(kl_client *client, char *key, size_t key_len, char *word, size_t word_len,
                    char *value, size_t value_len, unsigned int weight, size_t ttl);
/* Adds count words with values, all with weight, in one atomic script; *added = how many were
   new (optional cell). */
kl_return_t kl_dmadd(kl_client *client, char *key, size_t key_len, char **words, size_t count,
                     size_t *word_lens, char **values, size_t *value_lens, unsigned int weight,
                     int *added, size_t ttl);
/* Removes word with its value and weight; KL_NOTFOUND when absent. */
kl_return_t kl_drem(kl_client *client, char *key, size_t key_len, char *word, size_t word_len);
/* The value of word; KL_NOTFOUND when absent. */
kl_return_t kl_dget(kl_client *client, char *key, size_t key_len, char *word, size_t word_len,
                    char **value, size_t *value_len);
/* kl_dget with a routing string. */
kl_return_t kl_dget_whole(kl_client *client, char *key, size_t key_len, char *word,
                          size_t word_len, char **value, size_t *value_len, char *route,
                          size_t route_len);
/* Entries whose word starts with prefix (bytes), heaviest first, then in byte order; *values /
   *value_lens may be NULL (words only); KL_NOTFOUND when none. */
kl_return_t kl_dclose(kl_client *client, char *key, size_t key_len, char *prefix,
                      size_t prefix_len, size_t *count, char ***words, size_t **word_lens,
                      char ***values, size_t **value_lens);
/* kl_dclose with a routing string. */
kl_return_t kl_dclose_whole(kl_client *client, char *key, size_t key_len, char *prefix,
                            size_t prefix_len, size_t *count, char ***words,
                            size_t **word_lens, char ***values, size_t **value_lens,
                            char *route, size_t route_len);
/* Every entry, heaviest first, then in byte order; KL_NOTFOUND when empty. */
kl_return_t kl_dgetall(kl_client *client, char *key, size_t key_len, size_t *count,
                       char ***words, size_t **word_lens, char ***values, size_t **value_lens);
/* kl_dgetall with a routing string. */
kl_return_t kl_dgetall_whole(kl_client *client, char *key, size_t key_len, size_t *count,
                             char ***words, size_t **word_lens, char ***values,
                             size_t **value_lens, char const *route, size_t route_len);

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif

#ifdef __cplusplus
}
#endif

#endif /* KEYLOOM_H */
