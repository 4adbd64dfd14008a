/* Loaded with LD_PRELOAD by the security test:
   - a stand-in for the C library's syslog: every message the process logs is
     appended, one line each, to $KEYLOOM_SYSLOG_FILE instead of the system log;
   - a wrapper of connect(): the destination of every IPv4/IPv6 connection the
     process opens is appended to $KEYLOOM_CONNECT_FILE ("family address port"). */
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static void put(int priority, const char *format, va_list ap) {
  const char *path = getenv("KEYLOOM_SYSLOG_FILE");
  if (!path || !*path) return;
  char line[4096];
  int n = snprintf(line, sizeof line, "<%d> ", priority);
  if (n < 0) return;
  int m = vsnprintf(line + n, sizeof line - n - 1, format, ap);
  if (m < 0) return;
  size_t len = strlen(line);
  line[len++] = '\n';
  int fd = open(path, O_WRONLY | O_APPEND | O_CREAT, 0600);
  if (fd < 0) return;
  ssize_t w = write(fd, line, len);
  (void)w;
  close(fd);
}

void openlog(const char *ident, int option, int facility) { (void)ident; (void)option; (void)facility; }
void closelog(void) {}
int setlogmask(int mask) { return mask; }
void vsyslog(int priority, const char *format, va_list ap) { put(priority, format, ap); }
void syslog(int priority, const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  put(priority, format, ap);
  va_end(ap);
}
void __vsyslog_chk(int priority, int flag, const char *format, va_list ap) { (void)flag; put(priority, format, ap); }
void __syslog_chk(int priority, int flag, const char *format, ...) {
  va_list ap;
  (void)flag;
  va_start(ap, format);
  put(priority, format, ap);
  va_end(ap);
}

int connect(int fd, const struct sockaddr *addr, socklen_t len) {
  static int (*real_connect)(int, const struct sockaddr *, socklen_t);
  if (!real_connect) real_connect = (int (*)(int, const struct sockaddr *, socklen_t))dlsym(RTLD_NEXT, "connect");
  const char *path = getenv("KEYLOOM_CONNECT_FILE");
  if (path && *path && addr && (addr->sa_family == AF_INET || addr->sa_family == AF_INET6)) {
    char host[INET6_ADDRSTRLEN] = "?";
    unsigned port = 0;
    if (addr->sa_family == AF_INET) {
      const struct sockaddr_in *in = (const struct sockaddr_in *)addr;
      inet_ntop(AF_INET, &in->sin_addr, host, sizeof host);
      port = ntohs(in->sin_port);
    } else {
      const struct sockaddr_in6 *in6 = (const struct sockaddr_in6 *)addr;
      inet_ntop(AF_INET6, &in6->sin6_addr, host, sizeof host);
      port = ntohs(in6->sin6_port);
    }
    char line[128];
    int n = snprintf(line, sizeof line, "%s %s %u\n", addr->sa_family == AF_INET ? "ipv4" : "ipv6", host, port);
    int out = open(path, O_WRONLY | O_APPEND | O_CREAT, 0600);
    if (out >= 0 && n > 0) {
      ssize_t w = write(out, line, (size_t)n);
      (void)w;
      close(out);
    }
  }
  return real_connect(fd, addr, len);
}
