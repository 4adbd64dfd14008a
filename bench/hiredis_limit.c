/*
 * The limit: what a C program on hiredis's synchronous API achieves for each
 * workload, with no layer in between. One command per round trip; multi-key
 * work is split by server and pipelined (one batch per server, like keyloom).
 *
 *   hiredis_limit MODE PORTS DURATION_MS MAX_OPS WARMUP_OPS [ARGS...]
 *     get     PREFIX NKEYS            GET PREFIX<i>, i cycling over NKEYS
 *     set     PREFIX NKEYS SIZE       SET PREFIX<i> to SIZE bytes
 *     get-pipelined PREFIX NKEYS SIZE DEPTH
 *     set-pipelined PREFIX NKEYS SIZE DEPTH
 *                                     DEPTH GETs (SETs) appended, then their
 *                                     DEPTH replies read: the limit of a
 *                                     client with DEPTH commands in flight
 *     mget    PREFIX COUNT            MGET of PREFIX0..PREFIX<COUNT-1>
 *     mset    PREFIX COUNT SIZE       MSET of COUNT keys of SIZE bytes
 *     hgetall KEY                     HGETALL KEY
 *     zrange  KEY                     ZRANGE KEY 0 -1 WITHSCORES (scores parsed)
 *     mempeak PREFIX COUNT            one MGET; peak resident memory around it
 *   PORTS is a comma-separated list of loopback ports.
 * Prints one JSON line: {"ops":..,"seconds":..,"items":..}.
 */
#include <hiredis/hiredis.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#define MAX_SERVERS 16

static redisContext *conn[MAX_SERVERS];
static int nservers;

static double now(void) {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (double)ts.tv_sec + (double)ts.tv_nsec * 1e-9;
}

static void die(const char *what) {
  fprintf(stderr, "hiredis_limit: %s\n", what);
  exit(1);
}

static redisReply *checked(void *reply) {
  redisReply *r = reply;
  if (!r) die("no reply (connection lost)");
  if (r->type == REDIS_REPLY_ERROR) die(r->str);
  return r;
}

/* Jenkins one-at-a-time, the server picked by hash modulo the server count. */
static int server_of(const char *key, size_t len) {
  uint32_t h = 0;
  for (size_t i = 0; i < len; i++) {
    h += (unsigned char)key[i];
    h += h << 10;
    h ^= h >> 6;
  }
  h += h << 3;
  h ^= h >> 11;
  h += h << 15;
  return (int)(h % (uint32_t)nservers);
}

static char **make_keys(const char *prefix, int n, size_t **lens) {
  char **keys = malloc(sizeof(char *) * (size_t)n);
  *lens = malloc(sizeof(size_t) * (size_t)n);
  for (int i = 0; i < n; i++) {
    char buf[128];
    int l = snprintf(buf, sizeof buf, "%s%d", prefix, i);
    keys[i] = strdup(buf);
    (*lens)[i] = (size_t)l;
  }
  return keys;
}

static long read_status_kib(const char *field) {
  FILE *f = fopen("/proc/self/status", "r");
  char line[256];
  long v = -1;
  size_t fl = strlen(field);
  if (!f) return -1;
  while (fgets(line, sizeof line, f))
    if (strncmp(line, field, fl) == 0 && line[fl] == ':') v = atol(line + fl + 1);
  fclose(f);
  return v;
}

static void reset_peak(void) {
  FILE *f = fopen("/proc/self/clear_refs", "w");
  if (f) {
    fputs("5", f);
    fclose(f);
  }
}

/* Per-server argument vectors for one multi-key command over fixed keys. */
typedef struct {
  int argc;
  const char **argv;
  size_t *argvlen;
  int *index; /* caller's position of each key */
} batch;

static void build_batches(batch *b, const char *cmd, char **keys, size_t *lens, int n,
                          const char *value, size_t vlen) {
  int per = value ? 2 : 1;
  for (int s = 0; s < nservers; s++) {
    b[s].argc = 1;
    b[s].argv = malloc(sizeof(char *) * (size_t)(n * per + 1));
    b[s].argvlen = malloc(sizeof(size_t) * (size_t)(n * per + 1));
    b[s].index = malloc(sizeof(int) * (size_t)n);
    b[s].argv[0] = cmd;
    b[s].argvlen[0] = strlen(cmd);
  }
  for (int i = 0; i < n; i++) {
    batch *t = &b[server_of(keys[i], lens[i])];
    t->index[(t->argc - 1) / per] = i;
    t->argv[t->argc] = keys[i];
    t->argvlen[t->argc++] = lens[i];
    if (value) {
      t->argv[t->argc] = value;
      t->argvlen[t->argc++] = vlen;
    }
  }
}

/* One pipelined multi-key call: append every batch, then read every reply. */
static size_t run_batches(batch *b, int want_values) {
  size_t touched = 0;
  for (int s = 0; s < nservers; s++)
    if (b[s].argc > 1 && redisAppendCommandArgv(conn[s], b[s].argc, b[s].argv, b[s].argvlen) != REDIS_OK)
      die("append failed");
  for (int s = 0; s < nservers; s++) {
    if (b[s].argc <= 1) continue;
    void *reply = NULL;
    if (redisGetReply(conn[s], &reply) != REDIS_OK) die("read failed");
    redisReply *r = checked(reply);
    if (want_values)
      for (size_t i = 0; i < r->elements; i++)
        if (r->element[i]->type == REDIS_REPLY_STRING) touched += r->element[i]->len;
    freeReplyObject(r);
  }
  return touched;
}

int main(int argc, char **argv) {
  if (argc < 6) die("usage: MODE PORTS DURATION_MS MAX_OPS WARMUP_OPS [ARGS...]");
  const char *mode = argv[1];
  double duration = atof(argv[3]) / 1000.0;
  long max_ops = atol(argv[4]), warmup = atol(argv[5]);
  char *ports = strdup(argv[2]);
  for (char *p = strtok(ports, ","); p && nservers < MAX_SERVERS; p = strtok(NULL, ",")) {
    struct timeval tv = {5, 0};
    redisContext *c = redisConnectWithTimeout("127.0.0.1", atoi(p), tv);
    if (!c || c->err) die("cannot connect");
    conn[nservers++] = c;
  }

  const char *prefix = argc > 6 ? argv[6] : "";
  int nkeys = argc > 7 ? atoi(argv[7]) : 1;
  size_t size = argc > 8 ? (size_t)atol(argv[8]) : 0;
  size_t *lens;
  char **keys = make_keys(prefix, nkeys, &lens);
  char *value = malloc(size + 1);
  memset(value, 'x', size);
  value[size] = 0;
  volatile size_t sink = 0;
  long ops = 0, items_per_op = 1;
  double t0 = 0, t1 = 0;

  if (!strcmp(mode, "get") || !strcmp(mode, "set")) {
    int is_set = !strcmp(mode, "set");
    const char *av[3] = {is_set ? "SET" : "GET", NULL, value};
    size_t al[3] = {3, 0, size};
    for (long i = -warmup; i < max_ops; i++) {
      if (i == 0) t0 = now();
      long k = (i + warmup) % nkeys;
      av[1] = keys[k];
      al[1] = lens[k];
      redisReply *r = checked(redisCommandArgv(conn[server_of(keys[k], lens[k])], is_set ? 3 : 2, av, al));
      if (r->type == REDIS_REPLY_STRING) sink += (size_t)r->len;
      freeReplyObject(r);
      if (i >= 0) {
        ops++;
        if ((t1 = now()) - t0 >= duration) break;
      }
    }
  } else if (!strcmp(mode, "get-pipelined") || !strcmp(mode, "set-pipelined")) {
    int is_set = !strcmp(mode, "set-pipelined");
    long depth = argc > 9 ? atol(argv[9]) : 1;
    const char *av[3] = {is_set ? "SET" : "GET", NULL, value};
    size_t al[3] = {3, 0, size};
    items_per_op = depth;
    long next = 0;
    for (long i = -warmup; i < max_ops; i++) {
      if (i == 0) t0 = now();
      for (long d = 0; d < depth; d++, next++) {
        long k = next % nkeys;
        av[1] = keys[k];
        al[1] = lens[k];
        if (redisAppendCommandArgv(conn[0], is_set ? 3 : 2, av, al) != REDIS_OK) die("append failed");
      }
      for (long d = 0; d < depth; d++) {
        void *reply = NULL;
        if (redisGetReply(conn[0], &reply) != REDIS_OK) die("no reply (connection lost)");
        redisReply *r = checked(reply);
        if (r->type == REDIS_REPLY_STRING) sink += (size_t)r->len;
        freeReplyObject(r);
      }
      if (i >= 0) {
        ops++;
        if ((t1 = now()) - t0 >= duration) break;
      }
    }
  } else if (!strcmp(mode, "mget") || !strcmp(mode, "mset")) {
    int is_set = !strcmp(mode, "mset");
    batch b[MAX_SERVERS];
    build_batches(b, is_set ? "MSET" : "MGET", keys, lens, nkeys, is_set ? value : NULL, size);
    items_per_op = nkeys;
    for (long i = -warmup; i < max_ops; i++) {
      if (i == 0) t0 = now();
      sink += run_batches(b, !is_set);
      if (i >= 0) {
        ops++;
        if ((t1 = now()) - t0 >= duration) break;
      }
    }
  } else if (!strcmp(mode, "hgetall") || !strcmp(mode, "zrange")) {
    int z = !strcmp(mode, "zrange");
    const char *av[5] = {z ? "ZRANGE" : "HGETALL", prefix, "0", "-1", "WITHSCORES"};
    size_t al[5] = {z ? 6u : 7u, strlen(prefix), 1, 2, 10};
    double scores = 0;
    for (long i = -warmup; i < max_ops; i++) {
      if (i == 0) t0 = now();
      redisReply *r = checked(redisCommandArgv(conn[0], z ? 5 : 2, av, al));
      for (size_t e = 0; e < r->elements; e++) {
        if (z && (e & 1)) scores += strtod(r->element[e]->str, NULL);
        else sink += (size_t)r->element[e]->len;
      }
      freeReplyObject(r);
      if (i >= 0) {
        ops++;
        if ((t1 = now()) - t0 >= duration) break;
      }
    }
    sink += (size_t)scores;
  } else if (!strcmp(mode, "mempeak")) {
    batch b[MAX_SERVERS];
    build_batches(b, "MGET", keys, lens, nkeys, NULL, 0);
    /* warm the code path and the connection with a one-key call */
    redisReply *w = checked(redisCommand(conn[0], "GET %s", keys[0]));
    freeReplyObject(w);
    reset_peak();
    long base = read_status_kib("VmRSS");
    t0 = now();
    /* keep the replies, as a user reading the values would */
    for (int s = 0; s < nservers; s++)
      if (b[s].argc > 1) redisAppendCommandArgv(conn[s], b[s].argc, b[s].argv, b[s].argvlen);
    redisReply *held[MAX_SERVERS] = {0};
    size_t payload = 0;
    for (int s = 0; s < nservers; s++) {
      if (b[s].argc <= 1) continue;
      void *reply = NULL;
      if (redisGetReply(conn[s], &reply) != REDIS_OK) die("read failed");
      held[s] = checked(reply);
      for (size_t i = 0; i < held[s]->elements; i++) payload += held[s]->element[i]->len;
    }
    t1 = now();
    long peak = read_status_kib("VmHWM");
    for (int s = 0; s < nservers; s++)
      if (held[s]) freeReplyObject(held[s]);
    printf("{\"ops\":1,\"seconds\":%.9f,\"items\":%d,\"payload\":%zu,\"peakBytes\":%ld}\n", t1 - t0,
           nkeys, payload, (peak - base) * 1024);
    return 0;
  } else {
    die("unknown mode");
  }
  printf("{\"ops\":%ld,\"seconds\":%.9f,\"items\":%ld,\"sink\":%zu}\n", ops, t1 - t0,
         ops * items_per_op, (size_t)sink);
  for (int s = 0; s < nservers; s++) redisFree(conn[s]);
  return 0;
}
