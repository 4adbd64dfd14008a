// The pipeline's side of an exchange made on one of its fibers.
#pragma once

#include <cstddef>

namespace keyloom {

struct Batch;

// Fiber stacks an idle pipeline's thread keeps for its next round (their
// pages given back); the rest are unmapped.
constexpr size_t kIdleKeptStacks = 16;

// Suspends the calling fiber's call until its round has queued, sent, read
// and settled these batches together with those of the round's other calls.
void await_round(Batch *batches, size_t n);

}  // namespace keyloom
