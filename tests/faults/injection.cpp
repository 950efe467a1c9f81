#include "tests/faults/injection.h"

namespace Pavex {

namespace {

// Statuses that neither the library nor its communicators return in these tests: one that has a
// text, and one that has none and is positive.
constexpr PavexStatus kNegative = STATUS_MISMATCH;
constexpr PavexStatus kPositive = 1234;

// One injection for each step, in which only that step fails.
std::vector<Injection> Targets(std::vector<Step> const& steps) {
  std::vector<Injection> targets;
  int poolCalls = 0;
  int commCalls = 0;
  for (std::size_t k = 0; k < steps.size(); ++k) {
    Injection target;
    target.step = k;
    target.isPool = steps[k].isPool;
    target.nth = target.isPool ? ++poolCalls : ++commCalls;
    targets.push_back(target);
  }
  return targets;
}

Injection With(Injection target, bool forEver, PavexStatus status, TraceComm::FaultMode mode) {
  target.forEver = forEver;
  target.status = status;
  target.mode = mode;
  return target;
}

}  // namespace

std::string Text(Injection const& injection) {
  std::string text = injection.isPool ? "pool call " : "communicator call ";
  text += std::to_string(injection.nth) + " fails";
  if (injection.mode == TraceComm::AFTERWARDS) text += " afterwards";
  return text + (injection.forEver ? " for ever" : "") + " with " +
         std::to_string(injection.status);
}

std::vector<Injection> AllInjections(std::vector<Step> const& steps) {
  std::vector<Injection> injections;
  for (Injection const& target : Targets(steps)) {
    for (bool const forEver : {false, true}) {
      for (PavexStatus const status : {kNegative, kPositive}) {
        injections.push_back(With(target, forEver, status, TraceComm::INSTEAD));
        if (!target.isPool)
          injections.push_back(With(target, forEver, status, TraceComm::AFTERWARDS));
      }
    }
  }
  return injections;
}

std::vector<Injection> TwoInjectionsEach(std::vector<Step> const& steps) {
  std::vector<Injection> injections;
  for (Injection const& target : Targets(steps)) {
    auto const other = target.isPool ? TraceComm::INSTEAD : TraceComm::AFTERWARDS;
    injections.push_back(With(target, false, kNegative, TraceComm::INSTEAD));
    injections.push_back(With(target, true, kPositive, other));
  }
  return injections;
}

}  // namespace Pavex
