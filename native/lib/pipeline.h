// The pipeline's side of an exchange made on one of its fibers.
#pragma once

#include <cstddef>

namespace keyloom {

struct Batch;

// Suspends the calling fiber's call until its round has queued, sent, read
// and settled these batches together with those of the round's other calls.
void await_round(Batch *batches, size_t n);

}  // namespace keyloom
