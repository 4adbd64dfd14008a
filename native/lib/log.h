// The library's own events to syslog, filtered by the client's KL_LEVEL_* mask.
// Callers pass hosts, ports and reasons only: never a password or a value.
#pragma once

struct kl_client;

namespace keyloom {

void log_event(const kl_client *client, unsigned level, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace keyloom
