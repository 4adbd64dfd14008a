/*
 * Time to build a client's continuum: kl_server_add of N servers into a fresh
 * client, then one GET, whose routing builds the continuum if the library
 * left that for later, through the public C interface. The servers are
 * distinct loopback hosts on port 1, where nothing listens: the GET's
 * connection is refused at once (a few tens of microseconds, included).
 *
 *   continuum_build DISTRIBUTION N [REPEATS]
 *     DISTRIBUTION: modula | consistent | ketama
 * Prints one JSON line: {"servers":N,"seconds":<median of repeats, all adds>}.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "keyloom.h"

static double now(void) {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return (double)ts.tv_sec + (double)ts.tv_nsec * 1e-9;
}

static int cmp(const void *a, const void *b) {
  double x = *(const double *)a, y = *(const double *)b;
  return (x > y) - (x < y);
}

int main(int argc, char **argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: continuum_build modula|consistent|ketama N [REPEATS]\n");
    return 2;
  }
  kl_server_distribution dist = !strcmp(argv[1], "modula")       ? KL_DISTRIBUTION_MODULA
                                : !strcmp(argv[1], "consistent") ? KL_DISTRIBUTION_CONSISTENT
                                                                 : KL_DISTRIBUTION_CONSISTENT_KETAMA;
  int n = atoi(argv[2]);
  int repeats = argc > 3 ? atoi(argv[3]) : 5;
  if (repeats < 1 || repeats > 1000) repeats = 5;
  double *t = malloc(sizeof(double) * (size_t)repeats);
  char host[32];
  char key[] = "k";
  for (int r = 0; r < repeats; r++) {
    kl_client *c = kl_client_create(KL_HASH_DEFAULT, dist, NULL, KL_FLAG_NONE);
    if (!c) {
      fprintf(stderr, "kl_client_create failed\n");
      return 1;
    }
    double t0 = now();
    for (int i = 0; i < n; i++) {
      snprintf(host, sizeof host, "127.1.%d.%d", i / 250, i % 250 + 1);
      kl_return_t rc = kl_server_add(c, host, 1u, NULL);
      if (rc != KL_SUCCESS) {
        fprintf(stderr, "kl_server_add: %s\n", kl_strerror(rc));
        return 1;
      }
    }
    char *value = NULL;
    size_t len = 0;
    kl_return_t rc = kl_get_whole(c, key, 1, &value, &len, NULL, 0);
    if (rc != KL_SERVER_DOWN) {
      fprintf(stderr, "kl_get_whole: %s (expected a refused connection)\n", kl_strerror(rc));
      return 1;
    }
    t[r] = now() - t0;
    kl_client_destroy(c);
  }
  qsort(t, (size_t)repeats, sizeof(double), cmp);
  printf("{\"servers\":%d,\"seconds\":%.9f,\"ops\":%d}\n", n, t[repeats / 2], n);
  free(t);
  return 0;
}
