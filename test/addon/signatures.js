'use strict';
// The exported surface of keyloom.node, written from the module's documented
// tables: the 54 constants with their values, then the 214 functions in export
// order. Each function: exported name, group, the C type text of every argument
// exactly as the error messages spell it, the C function it calls (null when the
// module computes the result itself) and the kind of its result.

const constants = [
  ['KL_SUCCESS', 0], ['KL_ERROR', 1], ['KL_PTHREAD_OP_FAILURE', 2], ['KL_MEMORY_FAILURE', 3],
  ['KL_CONNECTION_FAILURE', 4], ['KL_INVALID_CLIENT', 5], ['KL_INVALID_COMMAND', 6],
  ['KL_SERVER_ERROR', 7], ['KL_SERVER_DOWN', 8], ['KL_UNKNOWN_REPLY', 9], ['KL_WRONG_REPLY', 10],
  ['KL_TTL_ALREADY_SET', 11], ['KL_ALREADY_EXISTS', 12], ['KL_NOTFOUND', 13],
  ['KL_NO_SERVER_ATTACHED', 14], ['KL_INVALID_PARAMETER', 15], ['KL_PARTIAL_RESULT', 16],
  ['KL_NO_SET_KEY', 17], ['KL_SET_EMPTY_VALUE', 18], ['KL_NO_SUBNET', 19],
  ['KL_ALL_GROUP_SERVERS_DOWN', 20], ['KL_DIRTY', 128],
  ['KL_DISTRIBUTION_MODULA', 0], ['KL_DISTRIBUTION_CONSISTENT', 1],
  ['KL_DISTRIBUTION_CONSISTENT_KETAMA', 2],
  ['KL_HASH_DEFAULT', 0], ['KL_HASH_MD5', 1], ['KL_HASH_CRC', 2], ['KL_HASH_FNV1_64', 3],
  ['KL_HASH_FNV1A_64', 4], ['KL_HASH_FNV1_32', 5], ['KL_HASH_FNV1A_32', 6], ['KL_HASH_HSIEH', 7],
  ['KL_HASH_MURMUR', 8],
  ['CLIENT_VERSION_AUTO', 3], ['CLIENT_VERSION_1', 1], ['CLIENT_VERSION_2', 2],
  ['SET_DEFAULT', 0], ['SET_WITH_VALUES', 2],
  ['ZSET_DEFAULT', 0], ['ZSET_WITH_SCORES', 1], ['ZSET_WITH_VALUES', 2], ['ZSET_WITH_LIMIT', 4],
  ['ZSET_REVERSE', 8],
  ['KL_FLAG_NONE', 1], ['KL_FLAG_RECURSIVE', 2], ['KL_FLAG_SHARED', 4],
  ['KL_NULL_ON_FAIL', 1], ['KL_BEST_EFFORT_ON_FAIL', 2],
  ['KL_LEVEL_ERROR', 1], ['KL_LEVEL_DEBUG', 2], ['KL_LEVEL_EVENT', 4], ['KL_LEVEL_NOTICE', 8],
  ['KL_LEVEL_WARNING', 16],
];

// Result kinds:
//   'code'       the library's kl_return_t as a number
//   'int'        a signed 32-bit number computed or read by the module
//   'uint8'      the library's 8-bit unsigned result, zero-extended
//   'number'     a JavaScript number (double)
//   'string'     a string, or undefined for a null C string
//   'text'       a string, or null (reply readers)
//   'undefined'  nothing
//   'null'       always null
//   'proxy:_p_x' a new proxy of that descriptor, or null for a null pointer
const functions = [];
function fn(name, group, args, calls, result) {
  functions.push({ name, group, args, calls, result });
}

// 1. Typed pointer cells: five functions for each of ten cell families.
const cellFamilies = [
  // word, cell type, value type, cell descriptor, kind of X_value's result
  ['intp', 'int *', 'int', '_p_int', 'int'],
  ['intpp', 'int **', 'int *', '_p_p_int', 'proxy:_p_int'],
  ['uintp', 'unsigned int *', 'unsigned int', '_p_unsigned_int', 'int'],
  ['ulongp', 'size_t *', 'size_t', '_p_size_t', 'int'],
  ['doublep', 'double *', 'double', '_p_double', 'number'],
  ['doublepp', 'double **', 'double *', '_p_p_double', 'proxy:_p_double'],
  ['uintpp', 'unsigned int **', 'unsigned int *', '_p_p_unsigned_int', 'proxy:_p_unsigned_int'],
  ['ulongpp', 'size_t **', 'size_t *', '_p_p_size_t', 'proxy:_p_size_t'],
  ['kl_return_tp', 'kl_return_t *', 'kl_return_t', '_p_kl_return_t', 'int'],
  ['kl_return_tpp', 'kl_return_t **', 'kl_return_t *', '_p_p_kl_return_t', 'proxy:_p_kl_return_t'],
];
for (const [x, cell, value, desc, valueKind] of cellFamilies) {
  fn(`new_${x}`, 'cells', [], null, `proxy:${desc}`);
  fn(`copy_${x}`, 'cells', [value], null, `proxy:${desc}`);
  fn(`delete_${x}`, 'cells', [cell], null, 'undefined');
  fn(`${x}_assign`, 'cells', [cell, value], null, 'undefined');
  fn(`${x}_value`, 'cells', [cell], null, valueKind);
}

// 2. String cells and reply readers.
fn('delete_charp', 'readers', ['char *'], null, 'undefined');
fn('new_empty_kl_return_tpp', 'readers', [], null, 'null');
fn('uintpp_to_charpp', 'readers', ['unsigned int **'], null, 'proxy:_p_p_char');
fn('intpp_to_charpp', 'readers', ['int **'], null, 'proxy:_p_p_char');
fn('kl_return_tpp_to_charpp', 'readers', ['kl_return_t **'], null, 'proxy:_p_p_char');
fn('ulongpp_to_charpp', 'readers', ['size_t **'], null, 'proxy:_p_p_char');
fn('doublepp_to_charpp', 'readers', ['double **'], null, 'proxy:_p_p_char');
fn('new_charpp', 'readers', [], null, 'proxy:_p_p_char');
fn('delete_charpp', 'readers', ['char **'], null, 'undefined');
fn('charpp_value_raw', 'readers', ['char **', 'size_t *'], null, 'text');
fn('charpp_value', 'readers', ['char **', 'size_t *'], null, 'text');
fn('new_charppp', 'readers', [], null, 'proxy:_p_p_p_char');
fn('delete_charppp', 'readers', ['char ***'], null, 'undefined');
fn('charppp_value_raw', 'readers', ['char ***', 'size_t **', 'int'], null, 'text');
fn('charppp_value', 'readers', ['char ***', 'size_t **', 'int'], null, 'text');

// 3. Typed arrays.
fn('new_charp_array', 'arrays', ['int'], null, 'proxy:_p_p_char');
fn('delete_charp_array', 'arrays', ['char **', 'int'], null, 'undefined');
fn('charp_array_set', 'arrays', ['char **', 'int', 'char *', 'int'], null, 'undefined');
fn('new_uint_array', 'arrays', ['int'], null, 'proxy:_p_unsigned_int');
fn('delete_uint_array', 'arrays', ['unsigned int *'], null, 'undefined');
fn('uint_array_set', 'arrays', ['unsigned int *', 'int', 'unsigned int'], null, 'undefined');
fn('new_ulong_array', 'arrays', ['int'], null, 'proxy:_p_size_t');
fn('delete_ulong_array', 'arrays', ['size_t *'], null, 'undefined');
fn('ulong_array_set', 'arrays', ['size_t *', 'int', 'size_t'], null, 'undefined');
fn('ulong_array_get', 'arrays', ['size_t *', 'int'], null, 'int');
fn('new_double_array', 'arrays', ['int'], null, 'proxy:_p_double');
fn('delete_double_array', 'arrays', ['double *'], null, 'undefined');
fn('double_array_set', 'arrays', ['double *', 'int', 'double'], null, 'undefined');
fn('double_array_get', 'arrays', ['double *', 'int'], null, 'number');

// 4. Indexed readers.
fn('doublepp_index_value', 'indexed', ['double **', 'int'], null, 'number');
fn('intpp_index_value', 'indexed', ['int **', 'int'], null, 'int');
fn('kl_return_tpp_index_value', 'indexed', ['kl_return_t **', 'int'], null, 'int');

// 5. The module's own functions.
const C = 'kl_client *';
const keysArgs = [C, 'char *', 'size_t', 'char ***', 'size_t *', 'size_t **', 'char const *', 'kl_return_t **'];
fn('server_add', 'own', [C, 'char *', 'unsigned int', 'char *'], 'kl_server_add', 'code');
fn('keys', 'own', keysArgs, 'kl_keys', 'code');
fn('flushall', 'own', [C, 'char const *', 'kl_return_t **'], 'kl_flushall', 'code');
fn('COMMIT', 'own', ['int'], null, 'int');
fn('DURABLE_TTL', 'own', ['int'], null, 'int');
fn('new_mm', 'own', [], null, 'null');

// 6. Client library functions, each under the C function's own name.
function lib(name, args, result = 'code', calls = name) {
  fn(name, 'library', args, calls, result);
}
const S = 'char *';
const CS = 'char const *';
const Z = 'size_t';
const admin = [CS, 'kl_return_t **'];
const store = [S, Z, S, Z, Z];                      // key, len, value, len, final size_t
const whole = [S, Z];                               // the extra string-and-length pair
lib('kl_client_create', ['kl_hash', 'kl_server_distribution', 'kl_mm_t *', 'unsigned int'], 'proxy:_p_kl_client');
lib('kl_client_destroy', [C], 'undefined');
lib('kl_set_client_version', [C, 'kl_client_version']);
lib('kl_client_connection_timeout', [C, 'unsigned int']);
lib('kl_client_reconnect_attempt_timeout', [C, 'unsigned int']);
lib('kl_server_add', [C, S, 'unsigned int', S]);
lib('kl_free_php_reply_p', ['char **'], 'undefined');
lib('kl_free_php_reply_pp', ['char ***', 'unsigned int'], 'undefined');
lib('kl_free_reply_p', ['char **', 'kl_mm_t *'], 'undefined', null);
lib('kl_free_reply_pp', ['char ***', 'unsigned int', 'kl_mm_t *'], 'undefined', null);
lib('kl_get_version', [], 'string');
lib('kl_strerror', ['kl_return_t'], 'string');
lib('kl_config_get', [C, CS, Z, CS, Z, 'char ***', 'size_t *', 'size_t **', ...admin]);
lib('kl_config_set', [C, CS, Z, CS, Z, CS, Z, ...admin]);
lib('kl_database_key', [C, Z, 'char const **', 'size_t const *']);
lib('kl_set_database_key', [C, Z, CS, Z]);
lib('kl_enable_syslog', [C, 'unsigned int']);
lib('kl_disable_log', [C]);
lib('kl_flushall', [C, ...admin]);
lib('kl_quit', [C]);
lib('kl_auth', [C, S, Z]);
lib('kl_set', [C, ...store]);
lib('kl_set_binary', [C, S, Z, 'binary encoded string', Z, Z]);
lib('kl_get_whole', [C, S, Z, 'char **', 'size_t *', ...whole]);
lib('kl_mget_whole', [C, 'char **', Z, 'size_t *', 'char ***', 'size_t *', 'size_t **', ...whole, 'int']);
lib('kl_mset', [C, 'char const **', Z, 'size_t *', 'char **', 'size_t *']);
lib('kl_msetex', [C, 'char const **', Z, 'size_t const *', 'char const **', 'size_t const *', 'size_t const *']);
lib('kl_getset_whole', [C, S, Z, S, Z, 'char **', 'size_t *', ...whole]);
lib('kl_setnx', [C, ...store]);
lib('kl_setifx', [C, ...store]);
lib('kl_append', [C, ...store]);
lib('kl_incr', [C, S, Z, 'int *', Z]);
lib('kl_incrby', [C, S, Z, 'int', 'int *', Z]);
lib('kl_decr', [C, S, Z, 'int *', Z]);
lib('kl_decrby', [C, S, Z, 'int', 'int *', Z]);
lib('kl_exists', [C, S, Z]);
lib('kl_del', [C, S, Z]);
lib('kl_mdel', [C, 'char **', Z, 'size_t *', 'int *']);
lib('kl_type', [C, S, Z, 'char **']);
lib('kl_keys', keysArgs);
lib('kl_randomkey', [C, 'char **', 'size_t *']);
lib('kl_rename', [C, S, Z, S, Z]);
lib('kl_renamenx', [C, S, Z, S, Z]);
lib('kl_dbsize', [C, 'unsigned int *', ...admin]);
lib('kl_set_ttl', [C, S, Z, Z]);
lib('kl_get_ttl', [C, S, Z, 'int *']);
lib('kl_rpush', [C, ...store]);
lib('kl_lpush', [C, ...store]);
lib('kl_llen', [C, S, Z, 'unsigned int *']);
lib('kl_lrange_whole', [C, S, Z, 'int', 'int', 'char ***', 'size_t *', 'size_t **', ...whole]);
lib('kl_ltrim', [C, S, Z, 'int', 'int']);
lib('kl_lindex_whole', [C, S, Z, 'int', 'char **', 'size_t *', ...whole]);
lib('kl_lset', [C, S, Z, 'int', S, Z, Z]);
lib('kl_lrem', [C, S, Z, 'int', S, Z, 'unsigned int *']);
lib('kl_lpop_whole', [C, S, Z, 'char **', 'size_t *', ...whole]);
lib('kl_rpop_whole', [C, S, Z, 'char **', 'size_t *', ...whole]);
lib('kl_sadd', [C, ...store]);
lib('kl_saddval', [C, S, Z, S, Z, S, Z, Z]);
lib('kl_srem', [C, S, Z, S, Z]);
lib('kl_spop_whole', [C, S, Z, 'char **', 'size_t *', ...whole]);
lib('kl_sval_whole', [C, S, Z, S, Z, 'char **', 'size_t *', ...whole]);
lib('kl_svalfromip', [C, CS, Z, CS, Z, 'char **', 'size_t *']);
lib('kl_scard', [C, S, Z, 'unsigned int *']);
lib('kl_sismember', [C, S, Z, S, Z]);
lib('kl_sismemberval', [C, S, Z, S, Z]);
lib('kl_sunion_whole', [C, 'char **', Z, 'size_t *', 'char ***', 'size_t *', 'size_t **', ...whole, 'int']);
lib('kl_sunionstore', [C, S, Z, 'char **', Z, 'size_t *', 'int', Z]);
lib('kl_smembers_whole', [C, CS, Z, 'char ***', 'size_t *', 'size_t **', CS, Z, 'setFlags', 'char ***', 'size_t **']);
const zOut = ['char ***', 'size_t *', 'size_t **'];
const zTail = ['zSetFlags', 'double **', 'char ***', 'size_t **'];
lib('kl_zadd', [C, S, Z, 'double', S, Z, Z]);
lib('kl_zmadd', [C, S, Z, 'double *', 'char **', Z, 'size_t *', Z]);
lib('kl_zaddval', [C, S, Z, 'double', S, Z, S, Z, Z]);
lib('kl_zmaddval', [C, S, Z, 'double *', 'char **', Z, 'size_t *', 'char **', 'size_t *', Z]);
lib('kl_zrem', [C, S, Z, S, Z]);
lib('kl_zmrem', [C, S, Z, 'char **', Z, 'size_t *', 'int *']);
lib('kl_zrange', [C, S, Z, 'int', 'int', ...zOut, ...zTail]);
lib('kl_zrange_whole', [C, S, Z, 'int', 'int', ...zOut, ...whole, ...zTail]);
lib('kl_zrangebyscore', [C, S, Z, 'double', 'double', ...zOut, ...zTail]);
lib('kl_zrangebyscore_whole', [C, S, Z, 'double', 'double', ...zOut, ...whole, ...zTail]);
lib('kl_zremrangebyscore', [C, S, Z, 'double', 'double', 'unsigned int *']);
lib('kl_zscore', [C, S, Z, S, Z, 'double *', 'char **', 'size_t *']);
lib('kl_zaddvalmax', [C, S, Z, S, Z, S, Z, 'double', Z]);
lib('kl_zaddmaxinc', [C, S, Z, 'int', Z]);
lib('kl_zadddis', [C, S, Z, 'double', S, Z, 'double', 'char **', Z]);
lib('kl_zcard', [C, S, Z, 'unsigned int *']);
lib('kl_zcount', [C, S, Z, 'double', 'double', 'unsigned int *']);
lib('kl_zincrby', [C, S, Z, S, Z, 'double', 'double *', Z]);
lib('kl_zrank', [C, S, Z, S, Z, 'unsigned int *', 'zSetFlags', 'char **', 'size_t *']);
lib('kl_zremrangebyrank', [C, S, Z, 'int', 'int', 'unsigned int *']);
const hOut = ['char ***', 'size_t *', 'size_t **'];
lib('kl_hset', [C, S, Z, S, Z, S, Z, Z]);
lib('kl_hget', [C, S, Z, S, Z, 'char **', 'size_t *']);
lib('kl_hget_whole', [C, S, Z, S, Z, 'char **', 'size_t *', ...whole]);
lib('kl_hsetnx', [C, S, Z, S, Z, S, Z, Z]);
lib('kl_hmset', [C, S, Z, 'char **', Z, 'size_t *', 'char **', 'size_t *', Z]);
lib('kl_hmget', [C, S, Z, 'char **', Z, 'size_t *', ...hOut]);
lib('kl_hmget_whole', [C, S, Z, 'char **', Z, 'size_t *', ...hOut, ...whole]);
lib('kl_mhmget', [C, 'char **', Z, 'size_t *', 'char **', Z, 'size_t *', ...hOut]);
lib('kl_mhmget_whole', [C, 'char **', Z, 'size_t *', 'char **', Z, 'size_t *', ...hOut, ...whole]);
lib('kl_hincrby', [C, S, Z, S, Z, 'int', 'int *', Z]);
lib('kl_hexists', [C, S, Z, S, Z]);
lib('kl_hdel', [C, S, Z, S, Z]);
lib('kl_hmdel', [C, S, Z, 'char **', Z, 'size_t *', 'int *']);
lib('kl_hlen', [C, S, Z, 'int *']);
lib('kl_hgetall', [C, S, Z, 'size_t *', 'char ***', 'size_t **', 'char ***', 'size_t **']);
const dPairs = ['size_t *', 'char ***', 'size_t **', 'char ***', 'size_t **'];
lib('kl_dadd', [C, S, Z, S, Z, S, Z, 'unsigned int', Z]);
lib('kl_dmadd', [C, S, Z, 'char **', Z, 'size_t *', 'char **', 'size_t *', 'unsigned int', 'int *', Z]);
lib('kl_drem', [C, S, Z, S, Z]);
lib('kl_dget', [C, S, Z, S, Z, 'char **', 'size_t *']);
lib('kl_dget_whole', [C, S, Z, S, Z, 'char **', 'size_t *', ...whole]);
lib('kl_dclose', [C, S, Z, S, Z, ...dPairs]);
lib('kl_dclose_whole', [C, S, Z, S, Z, ...dPairs, ...whole]);
lib('kl_dgetall', [C, S, Z, ...dPairs]);
lib('kl_dgetall_whole', [C, S, Z, ...dPairs, CS, Z]);
lib('kl_select', [C, 'int', 'kl_return_t **']);
lib('kl_move', [C, S, Z, 'int']);
lib('kl_flushdb', [C, ...admin]);
lib('kl_sort_whole', [C, 'char ***', 'size_t *', 'size_t **', S, Z, S, Z, Z, S, 'int', 'int', S, S, S, S, S, S]);
lib('kl_save', [C, ...admin]);
lib('kl_bgsave', [C, ...admin]);
lib('kl_lastsave', [C, 'unsigned int **', 'size_t *', ...admin]);
lib('kl_shutdown', [C, ...admin]);
lib('kl_info', [C, 'char ***', ...admin]);
lib('kl_group_client', [C], 'proxy:_p_kl_client');
lib('kl_dirty', [C, S, Z, 'int', 'int *']);
lib('kl_check_result', ['kl_return_t', 'kl_return_t'], 'uint8');
lib('kl_is_dirty', ['kl_return_t'], 'uint8');
lib('kl_get_result', ['kl_return_t'], 'int');

const byName = new Map(functions.map((f) => [f.name, f]));
// Every exported name, in the order of the exports object: constants first.
const exportedNames = [...constants.map(([name]) => name), ...functions.map((f) => f.name)];
// The library's functions that the exports call, each once.
const libraryFunctions = [...new Set(functions.map((f) => f.calls).filter(Boolean))];

// The documented size of the surface, the one place these figures are written;
// the tests compare the tables above with them.
const documentedCounts = { constants: 54, functions: 214, exports: 268, libraryFunctions: 124 };

module.exports = { constants, functions, byName, exportedNames, libraryFunctions, documentedCounts };
