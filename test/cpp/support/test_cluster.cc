#include "support/test_cluster.h"

#include <stdexcept>

namespace keyloom::test {

TestCluster::TestCluster(size_t servers, size_t groups, kl_server_distribution distribution,
                         unsigned flags, std::vector<std::string> server_args)
    : groups_(groups) {
  client_ = kl_client_create(KL_HASH_DEFAULT, distribution, nullptr, flags);
  if (!client_) throw std::runtime_error("kl_client_create failed");
  kl_client_connection_timeout(client_, 1000);
  kl_client_reconnect_attempt_timeout(client_, 200);
  for (size_t i = 0; i < servers; ++i) {
    servers_.push_back(std::make_unique<RedisServer>(server_args));
    std::string group = group_name(i);
    kl_server_add(client_, const_cast<char *>("127.0.0.1"), servers_.back()->port(),
                  const_cast<char *>(group.c_str()));
  }
}

TestCluster::~TestCluster() { kl_client_destroy(client_); }

std::string TestCluster::group_name(size_t server_index) const {
  if (groups_ == 1) return "default";
  std::string name = "g";
  name += std::to_string(server_index % groups_);
  return name;
}

std::unique_ptr<redisReply, void (*)(void *)> TestCluster::direct(
    size_t i, const std::vector<std::string> &args) {
  std::unique_ptr<redisReply, void (*)(void *)> none(nullptr, freeReplyObject);
  timeval tv{2, 0};
  redisContext *ctx = redisConnectWithTimeout("127.0.0.1", static_cast<int>(servers_[i]->port()), tv);
  if (!ctx || ctx->err) {
    if (ctx) redisFree(ctx);
    return none;
  }
  redisSetTimeout(ctx, tv);
  std::vector<const char *> argv;
  std::vector<size_t> lens;
  for (auto &a : args) {
    argv.push_back(a.data());
    lens.push_back(a.size());
  }
  auto *r = static_cast<redisReply *>(
      redisCommandArgv(ctx, static_cast<int>(argv.size()), argv.data(), lens.data()));
  redisFree(ctx);
  return std::unique_ptr<redisReply, void (*)(void *)>(r, freeReplyObject);
}

long long TestCluster::dbsize(size_t i) {
  auto r = direct(i, {"DBSIZE"});
  return r && r->type == REDIS_REPLY_INTEGER ? r->integer : -1;
}

}  // namespace keyloom::test
