// How NodeExchange moves a message that no shared memory holds.

#include "pavex/comm/mpi_split.h"
#include "pavex/comm/node_exchange.h"

#include <algorithm>
#include <cstdio>

namespace Pavex {

namespace {

// MPI has at least this many tags. Far fewer messages of a ring are under way at once.
constexpr std::uint64_t kMpiTags = 32768;

}  // namespace

// A large message moves in parts, one after the other.
bool NodeExchange::StartMpi(Message& message) {
  // Between nodes messages match in their order. On a node the answers, and so the messages,
  // may pass each other on the way: there the number tells them apart.
  bool const near = mLinks.To(message.peer).peer != nullptr;
  std::uint64_t const number = near ? message.number : message.terms.sequence;
  int const tag = static_cast<int>(number % kMpiTags);
  MPI_Datatype type = MPI_DATATYPE_NULL;
  int code = MakeMpiType(message.region, message.moved, MpiPart(message), message.type, &type);
  if (code != MPI_SUCCESS) return FailMpi(message, code);
  code = message.out ? MPI_Isend(message.region.data, 1, type, message.peer, tag,
                                 mLinks.Messages(), &message.request)
                     : MPI_Irecv(message.region.data, 1, type, message.peer, tag,
                                 mLinks.Messages(), &message.request);
  MPI_Type_free(&type);  // MPI keeps it until the part has arrived
  if (code != MPI_SUCCESS) return FailMpi(message, code);
  message.phase = Phase::OVER_MPI;
  return true;
}

bool NodeExchange::StepMpi(Message& message) {
  int done = 0;
  MPI_Status status;
  int const code = MPI_Test(&message.request, &done, &status);
  if (code != MPI_SUCCESS) return FailMpi(message, code);
  if (done == 0) return false;
  auto const part = static_cast<MPI_Count>(MpiPart(message));
  MPI_Count bytes = part;
  if (!message.out) MPI_Get_elements_x(&status, MPI_BYTE, &bytes);
  if (bytes != part) return Fail(message, "the message of rank %d is shorter");
  message.moved += MpiPart(message);
  return message.moved < message.terms.bytes ? StartMpi(message) : Finish(message);
}

// The bytes of the part that is under way, or comes next.
std::uint64_t NodeExchange::MpiPart(Message const& message) {
  return std::min<std::uint64_t>(message.terms.bytes - message.moved, MpiSplit::kMostBytes);
}

bool NodeExchange::FailMpi(Message& message, int code) {
  char text[MPI_MAX_ERROR_STRING + 1] = "";
  int length = 0;
  MPI_Error_string(code, text, &length);
  std::replace(text, text + length, '\n', ' ');
  Finish(message);
  if (!mFailed) std::snprintf(mReason, sizeof mReason, "%s", text);
  mFailed = true;
  return true;
}

}  // namespace Pavex
