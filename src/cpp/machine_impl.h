// What a k5x::Machine holds: one complete state. For the library's own layers above the C++
// API (the C entry points over the process-wide machine); callers never see it.
#ifndef K5X_CPP_MACHINE_IMPL_H
#define K5X_CPP_MACHINE_IMPL_H

#include "cpp/k5x.hpp"
#include "machine/machine_model.h"

namespace k5x {

struct Machine::Impl {
  State st;
};

// Copies the model and settings of from into to (the result buffers are not copied).
void copy_state(const State& from, State& to);

}  // namespace k5x

#endif  // K5X_CPP_MACHINE_IMPL_H
