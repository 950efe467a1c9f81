#include "tests/support/trace_comm.h"

#include <utility>

namespace Pavex {

namespace {

bool MovesData(CommCall const& call) {
  return call.op != CommOp::RANK && call.op != CommOp::SIZE;
}

}  // namespace

TraceComm::TraceComm(std::shared_ptr<Comm> inner)
    : CallComm(inner->Rank(), inner->Size()), mInner(std::move(inner)) {}

void TraceComm::Fail(Fault const& fault, FaultMode mode) {
  mFault = fault;
  mFaultMode = mode;
}

std::vector<std::string> TraceComm::Texts() const {
  std::vector<std::string> texts;
  for (CommCall const& call : mCalls)
    texts.push_back(Text(call));
  return texts;
}

std::vector<std::string> TraceComm::DataTexts() const {
  std::vector<std::string> texts;
  for (CommCall const& call : mCalls) {
    if (MovesData(call)) texts.push_back(Text(call));
  }
  return texts;
}

PavexStatus TraceComm::Handle(CommCall& call) const {
  PavexStatus const result = call.result = Run(call);
  mCalls.push_back(std::move(call));
  return result;
}

PavexStatus TraceComm::Run(CommCall const& call) const {
  auto const forward = [&] { return Forward(call, *mInner); };
  return MovesData(call) ? RunOrFail(forward) : forward();
}

}  // namespace Pavex
