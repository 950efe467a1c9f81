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
  bool forEver = false;  // all later ones fail as well
  PavexStatus status = STATUS_OK;
  TraceComm::FaultMode mode = TraceComm::INSTEAD;

  Fault ToFault() const {
    return forEver ? Fault::From(nth, status) : Fault::Once(nth, status);
  }
};

// Like "pool call 2 fails for ever with -9".
std::string Text(Injection const& injection);

// Every way to fail every one of `steps`.
std::vector<Injection> AllInjections(std::vector<Step> const& steps);

// Two ways for each of `steps`: the mildest, and the one that differs from it in everything.
std::vector<Injection> TwoInjectionsEach(std::vector<Step> const& steps);

}  // namespace Pavex
