// The pipeline's side of an exchange made on one of its fibers.
#pragma once

#include <cstddef>

namespace keyloom {

struct Batch;

// The most calls one round runs at once, each on a fiber of its own; more wait
// for the next round. Rounds of about a hundred calls already share one write
// and one read per server; larger ones touch more stacks and call records
// than the caches hold and ran slower per call (bench/ENGINE.md).
constexpr size_t kRoundCalls = 128;

// Fiber stacks an idle pipeline's thread keeps for its next round (their
// pages given back); the rest are unmapped.
constexpr size_t kIdleKeptStacks = 16;

// Suspends the calling fiber's call until its round has queued, sent, read
// and settled these batches together with those of the round's other calls.
void await_round(Batch *batches, size_t n);

}  // namespace keyloom
