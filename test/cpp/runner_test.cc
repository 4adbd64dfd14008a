// The internal runner: multi-key splits by server, the caller's order, the
// failure policies, and one pipelined batch per server.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "internal.h"
#include "support/test_cluster.h"

using keyloom::Access;
using keyloom::Command;
using keyloom::Replies;
using keyloom::Route;
using keyloom::test::mut;
using keyloom::test::TestCluster;

namespace {

struct Items {
  std::vector<std::string> keys;
  std::vector<Route> routes;
  std::vector<Command> cmds;
};

Items items(const char *verb, size_t n, const char *value = nullptr) {
  Items it;
  for (size_t i = 0; i < n; ++i) it.keys.push_back(std::string("item") + std::to_string(i));
  for (auto &k : it.keys) {
    it.routes.push_back(keyloom::route_of(k.data(), k.size()));
    it.cmds.emplace_back(verb);
    it.cmds.back().arg(k);
    if (value) it.cmds.back().arg_owned(k + value);
  }
  return it;
}

class Runner : public ::testing::TestWithParam<size_t> {
 protected:
  Runner() : cluster(GetParam()) {}
  TestCluster cluster;
};

}  // namespace

TEST_P(Runner, MultiWriteThenReadInTheCallersOrder) {
  const size_t n = 64;
  Items set = items("SET", n, "=v");
  size_t acknowledged = 0;
  ASSERT_EQ(keyloom::run_multi(cluster.client(), Access::write, set.routes, set.cmds, KL_NULL_ON_FAIL,
                               [&](size_t, redisReply *r) { acknowledged += r && r->type == REDIS_REPLY_STATUS; }),
            KL_SUCCESS);
  EXPECT_EQ(acknowledged, n);
  if (GetParam() > 1) {  // the keys were split: every server holds some
    for (size_t i = 0; i < cluster.size(); ++i) EXPECT_GT(cluster.dbsize(i), 0) << i;
  }

  Items get = items("GET", n);
  std::vector<std::string> seen(n);
  ASSERT_EQ(keyloom::run_multi(cluster.client(), Access::read, get.routes, get.cmds, KL_NULL_ON_FAIL,
                               [&](size_t i, redisReply *r) { seen[i].assign(r->str, r->len); }),
            KL_SUCCESS);
  for (size_t i = 0; i < n; ++i) EXPECT_EQ(seen[i], get.keys[i] + "=v");
}

TEST_P(Runner, FailurePolicies) {
  const size_t n = 32;
  Items set = items("SET", n, "=v");
  ASSERT_EQ(keyloom::run_multi(cluster.client(), Access::write, set.routes, set.cmds, KL_NULL_ON_FAIL,
                               [](size_t, redisReply *) {}), KL_SUCCESS);
  cluster.server(0).kill();

  Items get = items("GET", n);
  int calls = 0;
  EXPECT_EQ(keyloom::run_multi(cluster.client(), Access::read, get.routes, get.cmds, KL_NULL_ON_FAIL,
                               [&](size_t, redisReply *) { ++calls; }), KL_SERVER_DOWN);
  EXPECT_EQ(calls, 0);

  size_t nulls = 0, values = 0;
  kl_return_t r = keyloom::run_multi(cluster.client(), Access::read, get.routes, get.cmds,
                                     KL_BEST_EFFORT_ON_FAIL, [&](size_t, redisReply *reply) {
                                       if (reply) {
                                         ++values;
                                       } else {
                                         ++nulls;
                                       }
                                     });
  if (GetParam() == 1) {
    EXPECT_EQ(r, KL_SERVER_DOWN);  // nothing reachable at all
  } else {
    EXPECT_EQ(r, KL_PARTIAL_RESULT);
    EXPECT_GT(nulls, 0u);
    EXPECT_GT(values, 0u);
    EXPECT_EQ(nulls + values, n);
  }
}

TEST_P(Runner, RunWriteAndReadInterpretEveryReply) {
  std::vector<Command> cmds(2);
  cmds[0].arg("SET").arg("rk").arg_int(-42);
  cmds[1].arg("GET").arg("rk");
  std::string got;
  ASSERT_EQ(keyloom::run_write(cluster.client(), keyloom::route_of("rk", 2), cmds,
                               [&](Replies &r, bool fill) {
                                 EXPECT_TRUE(fill);
                                 got.assign(r[1]->str, r[1]->len);
                                 return keyloom::expect_type(r[0].get(), REDIS_REPLY_STATUS);
                               }),
            KL_SUCCESS);
  EXPECT_EQ(got, "-42");
  std::vector<Command> err(1);
  err[0].arg("NOSUCHCOMMAND");
  EXPECT_EQ(keyloom::run_read(cluster.client(), keyloom::route_of("rk", 2), err,
                              [](Replies &r, bool) { return keyloom::expect_type(r[0].get(), REDIS_REPLY_STRING); }),
            KL_SERVER_ERROR);
}

TEST_P(Runner, EachServerReportsPerServerCodes) {
  Command cmd("PING");
  kl_return_t *codes = nullptr;
  size_t calls = 0;
  ASSERT_EQ(keyloom::run_each_server(cluster.client(), nullptr, {}, cmd, &codes,
                                     [&](size_t, redisReply *r) {
                                       ++calls;
                                       return keyloom::expect_type(r, REDIS_REPLY_STATUS);
                                     }),
            KL_SUCCESS);
  EXPECT_EQ(calls, GetParam());
  kl_free_php_reply_p(reinterpret_cast<char **>(&codes));
  if (GetParam() > 1) {
    cluster.server(1).kill();
    ASSERT_EQ(keyloom::run_each_server(cluster.client(), nullptr, {}, cmd, &codes,
                                       [](size_t, redisReply *r) {
                                         return r ? KL_SUCCESS : KL_SERVER_DOWN;
                                       }),
              KL_PARTIAL_RESULT);
    EXPECT_EQ(codes[0], KL_SUCCESS);
    EXPECT_EQ(codes[1], KL_SERVER_DOWN);
    kl_free_php_reply_p(reinterpret_cast<char **>(&codes));
  }
}

TEST(RunnerUnits, CommandArguments) {
  Command c("X");
  c.arg_int(-7).arg_double(1.5).arg_double(1.0 / 0.0).arg_double(-1.0 / 0.0).arg_owned("own");
  Command copy = c;  // owned arguments follow the copy
  std::vector<Command> moved;
  moved.push_back(std::move(copy));
  for (int i = 0; i < 20; ++i) moved.emplace_back("Y");  // reallocations move, not copy
  const char **argv = moved[0].argv();
  ASSERT_EQ(moved[0].argc(), 6);
  EXPECT_EQ(std::string(argv[1], moved[0].argvlen()[1]), "-7");
  EXPECT_EQ(std::string(argv[2], moved[0].argvlen()[2]), "1.5");
  EXPECT_EQ(std::string(argv[3], moved[0].argvlen()[3]), "inf");
  EXPECT_EQ(std::string(argv[4], moved[0].argvlen()[4]), "-inf");
  EXPECT_EQ(std::string(argv[5], moved[0].argvlen()[5]), "own");
}

TEST(RunnerUnits, ScriptDigestIsSha1) {
  keyloom::Script empty{"", {}};
  EXPECT_EQ(keyloom::script_digest(empty), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  keyloom::Script abc{"abc", {}};
  EXPECT_EQ(keyloom::script_digest(abc), "a9993e364706816aba3e25717850c26c9cd0d89d");
  std::string long_text(1000, 'a');
  keyloom::Script longer{long_text.c_str(), {}};
  EXPECT_EQ(keyloom::script_digest(longer), "291e9a6c66994949b57ba5e650361e98fc36b1ba");
}

TEST(RunnerUnits, ReplyHelpers) {
  redisReply r{};
  r.type = REDIS_REPLY_STRING;
  char text[] = "12";
  r.str = text;
  r.len = 2;
  long long v = 0;
  double d = 0;
  EXPECT_TRUE(keyloom::reply_integer(&r, &v));
  EXPECT_EQ(v, 12);
  EXPECT_TRUE(keyloom::reply_double(&r, &d));
  EXPECT_EQ(d, 12.0);
  EXPECT_FALSE(keyloom::reply_integer(nullptr, &v));
  EXPECT_EQ(keyloom::expect_type(&r, REDIS_REPLY_STRING), KL_SUCCESS);
  EXPECT_EQ(keyloom::expect_type(&r, REDIS_REPLY_ARRAY), KL_WRONG_REPLY);
  r.type = REDIS_REPLY_ERROR;
  EXPECT_EQ(keyloom::expect_type(&r, REDIS_REPLY_STRING), KL_SERVER_ERROR);
  r.type = REDIS_REPLY_NIL;
  char *out = nullptr;
  EXPECT_EQ(keyloom::put_reply_string(nullptr, &r, &out, nullptr), KL_NOTFOUND);
  EXPECT_EQ(out, nullptr);
}

INSTANTIATE_TEST_SUITE_P(OneAndFourServers, Runner, ::testing::Values(1, 4));
