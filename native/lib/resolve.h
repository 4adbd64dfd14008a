// Host names resolved within a time limit. getaddrinfo() has no time-out of
// its own: a resolver that does not answer would hold a call for as long as
// the system's resolver settings allow (seconds), whatever the call's budget.
#pragma once

#include <string>

namespace keyloom {

// The blocking lookup used: getaddrinfo's first IPv4 address of host (its
// first address when it has none) as text ("10.0.0.5", "::1"), or false with
// *error set. Replaceable for tests.
using Resolver = bool (*)(const std::string &host, std::string *address, std::string *error);
bool system_resolve(const std::string &host, std::string *address, std::string *error);

// host as a numeric address within ms milliseconds: an address is returned
// as it is; a name is looked up on a thread of its own, which is left to
// finish by itself when the time is up ("resolving <host> took longer than
// <ms> ms").
bool resolve_within(const std::string &host, unsigned ms, std::string *address, std::string *error,
                    Resolver resolver = &system_resolve);

}  // namespace keyloom
