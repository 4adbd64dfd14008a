// A library call's context: made by the outermost CallScope of the call,
// joined by calls nested in it, given the budget and lock of the site it runs
// at, and its failure handed to the client only when the call ends.
#include <gtest/gtest.h>

#include <chrono>

#include "client.h"
#include "failures.h"
#include "keyloom.h"
#include "support/test_cluster.h"

using keyloom::CallScope;
using keyloom::CallSite;
using keyloom::Clock;
using keyloom::test::TestCluster;

TEST(CallScope, ANestedCallJoinsTheCallInProgressWhoseFailureTheClientGetsWhenItEnds) {
  TestCluster cluster(1);
  kl_client *c = cluster.client();
  {
    CallScope outer(c);
    ASSERT_TRUE(outer.ok());
    const Clock::time_point deadline = outer.call().deadline;
    {
      CallScope inner(c);
      ASSERT_TRUE(inner.ok());
      EXPECT_EQ(&inner.call(), &outer.call());
      keyloom::note_failure(inner.call(), nullptr, KL_FAILURE_CONNECTION, "the first");
      keyloom::note_failure(inner.call(), nullptr, KL_FAILURE_SERVER_REPLY, "a later one");
    }
    EXPECT_EQ(outer.call().deadline, deadline);  // the nested call did not restart the clock
    EXPECT_EQ(kl_last_failure_kind(c), KL_FAILURE_NONE) << "told before the call ended";
  }
  EXPECT_EQ(kl_last_failure_kind(c), KL_FAILURE_CONNECTION);
  EXPECT_STREQ(kl_last_failure_text(c), "the first");
  {
    CallScope next(c);  // a new call starts without a failure and ends with none
    EXPECT_EQ(next.call().failure.kind, KL_FAILURE_NONE);
  }
  EXPECT_EQ(kl_last_failure_kind(c), KL_FAILURE_NONE);
}

TEST(CallScope, ACallOnAnotherClientInsideACallHasAContextOfItsOwn) {
  TestCluster first(1);
  TestCluster second(1);
  CallScope outer(first.client());
  CallScope inner(second.client());
  ASSERT_TRUE(outer.ok() && inner.ok());
  EXPECT_NE(&inner.call(), &outer.call());
  EXPECT_EQ(inner.call().client, second.client());
}

TEST(CallScope, ACallAtARoundsSiteTakesItsBudgetAndNoLock) {
  // A shared client whose (error-checking) mutex this thread holds, as a
  // pipeline's round does: a second lock by this thread would fail.
  TestCluster cluster(1, 1, KL_DISTRIBUTION_CONSISTENT, KL_FLAG_SHARED);
  kl_client *c = cluster.client();
  keyloom::ClientLock round_lock(c->mutex);
  ASSERT_TRUE(round_lock.ok());
  {
    CallScope refused(c);
    EXPECT_FALSE(refused.ok());
  }
  CallSite site{c, 50, nullptr};
  CallSite *before = keyloom::enter_call_site(&site);
  {
    CallScope call(c);
    ASSERT_TRUE(call.ok());
    EXPECT_EQ(site.call, &call.call());
    EXPECT_LE(call.call().deadline - Clock::now(), std::chrono::milliseconds(50));
    EXPECT_GT(call.call().deadline - Clock::now(), std::chrono::milliseconds(0));
  }
  EXPECT_EQ(site.call, nullptr);
  keyloom::enter_call_site(before);
  EXPECT_NE(&keyloom::current_call_site(), &site);
}
