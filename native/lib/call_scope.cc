// A library call's lock and context (client.h), and the site calls run at.
#include "client.h"

namespace keyloom {

namespace {

thread_local CallSite thread_site;             // a caller's own thread
thread_local CallSite *entered_site = nullptr;  // a pipeline's call, while it runs

}  // namespace

CallSite &current_call_site() { return entered_site ? *entered_site : thread_site; }

CallSite *enter_call_site(CallSite *site) {
  CallSite *before = entered_site;
  entered_site = site;
  return before;
}

CallScope::CallScope(kl_client *client)
    : client_(client), site_(current_call_site()), lock_(client->mutex, site_.round_client != client) {
  if (!lock_.ok()) return;
  enclosing_ = site_.call;
  if (enclosing_ && enclosing_->client == client) {
    call_ = enclosing_;
    return;
  }
  const unsigned budget_ms = site_.budget_ms ? site_.budget_ms : 2 * client->connect_timeout_ms;
  own_.client = client;
  own_.deadline = Clock::now() + std::chrono::milliseconds(budget_ms);
  call_ = &own_;
  site_.call = &own_;
}

CallScope::~CallScope() {
  if (call_ != &own_) return;
  site_.call = enclosing_;
  client_->last_failure = std::move(own_.failure);
}

}  // namespace keyloom
