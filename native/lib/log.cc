#include "log.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>

#include "client.h"

namespace keyloom {

namespace {

int priority_of(unsigned level) {
  switch (level) {
    case KL_LEVEL_ERROR: return LOG_ERR;
    case KL_LEVEL_DEBUG: return LOG_DEBUG;
    case KL_LEVEL_NOTICE: return LOG_NOTICE;
    case KL_LEVEL_WARNING: return LOG_WARNING;
    default: return LOG_INFO;
  }
}

}  // namespace

void log_event(const kl_client *client, unsigned level, const char *format, ...) {
  if (!client || (client->log_levels & level) == 0) return;
  char line[512];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  syslog(LOG_USER | priority_of(level), "keyloom: %s", line);
}

}  // namespace keyloom
