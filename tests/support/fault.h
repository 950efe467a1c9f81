// Decides when a wrapped interface fails.

#pragma once

#include "pavex/runtime/status.h"

namespace Pavex {

// Counts calls and decides which of them fail. The default never fails. A test that raises
// `nth` from 1 until its operation succeeds has met every place that can fail. Not shared
// between threads.
class Fault {
 public:
  Fault() = default;

  // Only call number `nth` (the first is 1) fails, with `status`.
  static Fault Once(int nth, PavexStatus status) { return {nth, nth, status}; }

  // Call number `nth` and all later ones fail with `status`.
  static Fault From(int nth, PavexStatus status) { return {nth, kForEver, status}; }

  // Counts one call and returns whether it fails.
  bool Due() {
    ++mCalls;
    return mFirst <= mCalls && mCalls <= mLast;
  }

  PavexStatus Status() const { return mStatus; }

  // Whether any call has failed so far.
  bool Struck() const { return mFirst <= mLast && mFirst <= mCalls; }

 private:
  static constexpr int kForEver = 0x7fffffff;

  Fault(int first, int last, PavexStatus status)
      : mFirst(first), mLast(last), mStatus(status) {}

  int mFirst = 1;
  int mLast = 0;
  PavexStatus mStatus = STATUS_OK;
  int mCalls = 0;
};

}  // namespace Pavex
