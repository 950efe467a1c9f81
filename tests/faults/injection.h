// One fault: which call of an operation fails, how, and with what.

#pragma once

#include "tests/faults/steps.h"
#include "tests/support/trace_comm.h"

#include <string>
#include <vector>

namespace Pavex {

struct Injection {
  std::size_t step = 0;  // index of the failing call among those of the operation
  int nth = 1;           // its number among the calls of the pool or of the communicator
  bool isPool = false;
  bool forEver = false;  // all later calls fail as well
  PavexStatus status = STATUS_OK;
  TraceComm::FaultMode mode = TraceComm::INSTEAD;

  Fault ToFault() const {
    return forEver ? Fault::From(nth, status) : Fault::Once(nth, status);
  }
};

// A text like "pool call 2 fails for ever with -9".
std::string Text(Injection const& injection);

// Every way in which each of `steps` can fail.
std::vector<Injection> AllInjections(std::vector<Step> const& steps);

// Two ways in which each of `steps` can fail: the mildest, and the one that differs from it in
// every respect.
std::vector<Injection> TwoInjectionsEach(std::vector<Step> const& steps);

}  // namespace Pavex
