#include "tests/support/comm_call.h"

#include <ostream>
#include <sstream>

namespace Pavex {

namespace {

char const* Name(CommOp op) {
  char const* const names[] = {"Rank",      "Size",       "Barrier",   "Send",
                               "Recv",      "Gatherv",    "Scatterv",  "Alltoallv",
                               "Allgather", "Allgatherv", "Allreduce", "Bcast"};
  return names[static_cast<int>(op)];
}

char const* Name(Datatype type) {
  char const* const names[] = {"byte",   "int",           "long",          "float",
                               "double", "complex float", "complex double"};
  return names[type];
}

char const* Name(ReduceOp op) {
  char const* const names[] = {"sum", "min", "max"};
  return names[op];
}

std::string List(std::vector<int> const& entries) {
  std::ostringstream text;
  char const* separator = "{";
  for (int const entry : entries) {
    text << separator << entry;
    separator = ", ";
  }
  text << (entries.empty() ? "{}" : "}");
  return text.str();
}

std::string One(int count, Datatype type) {
  return std::to_string(count) + " " + Name(type);
}

// A null array reads as empty: the calling rank does not use it.
std::string Many(int const* counts, std::vector<int> const& countsRead,
                 std::vector<int> const& displsRead, Datatype type) {
  std::string const lists = counts == nullptr || countsRead.empty()
                                ? ""
                                : List(countsRead) + " at " + List(displsRead) + " ";
  return lists + Name(type);
}

std::string Sent(CommCall const& call) {
  return (call.InPlace() ? "in place " : "") + One(call.sendcount, call.sendtype);
}

std::string Arguments(CommCall const& call) {
  std::string const manySent =
      Many(call.sendcounts, call.sendcountsRead, call.senddisplsRead, call.sendtype);
  std::string const manyReceived =
      Many(call.recvcounts, call.recvcountsRead, call.recvdisplsRead, call.recvtype);
  std::string const received = One(call.recvcount, call.recvtype);
  std::string const peer = std::to_string(call.peer);
  switch (call.op) {
    case CommOp::RANK:
    case CommOp::SIZE:
    case CommOp::BARRIER:
      return "";
    case CommOp::SEND:
      return Sent(call) + " to " + peer + " tag " + std::to_string(call.tag);
    case CommOp::RECV:
      return received + " from " + peer + " tag " + std::to_string(call.tag);
    case CommOp::GATHERV:
      return Sent(call) + "; " + manyReceived + "; root " + peer;
    case CommOp::SCATTERV:
      return manySent + "; " + received + "; root " + peer;
    case CommOp::ALLTOALLV:
      return manySent + "; " + manyReceived;
    case CommOp::ALLGATHER:
      return Sent(call) + "; " + received;
    case CommOp::ALLGATHERV:
      return Sent(call) + "; " + manyReceived;
    case CommOp::ALLREDUCE:
      return received + " " + Name(call.reduce);
    case CommOp::BCAST:
      return received + "; root " + peer;
  }
  return "";
}

}  // namespace

std::string Text(CommCall const& call) {
  return std::string(Name(call.op)) + "(" + Arguments(call) + ")";
}

std::ostream& operator<<(std::ostream& stream, CommCall const& call) {
  return stream << Text(call) << " = " << call.result;
}

PavexStatus Forward(CommCall const& call, Comm const& comm) {
  switch (call.op) {
    case CommOp::RANK:
      return comm.Rank();
    case CommOp::SIZE:
      return comm.Size();
    case CommOp::BARRIER:
      return comm.Barrier();
    case CommOp::SEND:
      return comm.Send(call.sendbuf, call.sendcount, call.sendtype, call.peer, call.tag);
    case CommOp::RECV:
      return comm.Recv(call.recvbuf, call.recvcount, call.recvtype, call.peer, call.tag);
    case CommOp::GATHERV:
      return comm.Gatherv(call.sendbuf, call.sendcount, call.sendtype, call.recvbuf,
                          call.recvcounts, call.recvdispls, call.recvtype, call.peer);
    case CommOp::SCATTERV:
      return comm.Scatterv(call.sendbuf, call.sendcounts, call.senddispls, call.sendtype,
                           call.recvbuf, call.recvcount, call.recvtype, call.peer);
    case CommOp::ALLTOALLV:
      return comm.Alltoallv(call.sendbuf, call.sendcounts, call.senddispls, call.sendtype,
                            call.recvbuf, call.recvcounts, call.recvdispls, call.recvtype);
    case CommOp::ALLGATHER:
      return comm.Allgather(call.sendbuf, call.sendcount, call.sendtype, call.recvbuf,
                            call.recvcount, call.recvtype);
    case CommOp::ALLGATHERV:
      return comm.Allgatherv(call.sendbuf, call.sendcount, call.sendtype, call.recvbuf,
                             call.recvcounts, call.recvdispls, call.recvtype);
    case CommOp::ALLREDUCE:
      return comm.Allreduce(call.sendbuf, call.recvbuf, call.recvcount, call.recvtype,
                            call.reduce);
    case CommOp::BCAST:
      return comm.Bcast(call.recvbuf, call.recvcount, call.recvtype, call.peer);
  }
  return STATUS_INVALID_VALUE;
}

std::vector<int> CallComm::Copy(int const* entries) const {
  if (entries == nullptr || mSize < 1) return {};
  return {entries, entries + mSize};
}

void CallComm::CopyCounts(CommCall& call) const {
  bool const rooted = call.op == CommOp::GATHERV || call.op == CommOp::SCATTERV;
  if (rooted && call.peer != mRank) return;
  call.sendcountsRead = Copy(call.sendcounts);
  call.senddisplsRead = Copy(call.senddispls);
  call.recvcountsRead = Copy(call.recvcounts);
  call.recvdisplsRead = Copy(call.recvdispls);
}

int CallComm::Rank() const {
  CommCall call;
  call.op = CommOp::RANK;
  return Handle(call);
}

int CallComm::Size() const {
  CommCall call;
  call.op = CommOp::SIZE;
  return Handle(call);
}

PavexStatus CallComm::Barrier() const {
  CommCall call;
  call.op = CommOp::BARRIER;
  return Handle(call);
}

PavexStatus CallComm::Send(void const* buf, int count, Datatype type, int dest, int tag) const {
  CommCall call;
  call.op = CommOp::SEND;
  call.sendbuf = buf;
  call.sendcount = count;
  call.sendtype = type;
  call.peer = dest;
  call.tag = tag;
  return Handle(call);
}

PavexStatus CallComm::Recv(void* buf, int count, Datatype type, int source, int tag) const {
  CommCall call;
  call.op = CommOp::RECV;
  call.recvbuf = buf;
  call.recvcount = count;
  call.recvtype = type;
  call.peer = source;
  call.tag = tag;
  return Handle(call);
}

PavexStatus CallComm::Gatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                              void* recvbuf, int const* recvcounts, int const* displs,
                              Datatype recvtype, int root) const {
  CommCall call;
  call.op = CommOp::GATHERV;
  call.sendbuf = sendbuf;
  call.sendcount = sendcount;
  call.sendtype = sendtype;
  call.recvbuf = recvbuf;
  call.recvcounts = recvcounts;
  call.recvdispls = displs;
  call.recvtype = recvtype;
  call.peer = root;
  CopyCounts(call);
  return Handle(call);
}

PavexStatus CallComm::Scatterv(void const* sendbuf, int const* sendcounts, int const* displs,
                               Datatype sendtype, void* recvbuf, int recvcount,
                               Datatype recvtype, int root) const {
  CommCall call;
  call.op = CommOp::SCATTERV;
  call.sendbuf = sendbuf;
  call.sendcounts = sendcounts;
  call.senddispls = displs;
  call.sendtype = sendtype;
  call.recvbuf = recvbuf;
  call.recvcount = recvcount;
  call.recvtype = recvtype;
  call.peer = root;
  CopyCounts(call);
  return Handle(call);
}

PavexStatus CallComm::Alltoallv(void const* sendbuf, int const* sendcounts, int const* sdispls,
                                Datatype sendtype, void* recvbuf, int const* recvcounts,
                                int const* rdispls, Datatype recvtype) const {
  CommCall call;
  call.op = CommOp::ALLTOALLV;
  call.sendbuf = sendbuf;
  call.sendcounts = sendcounts;
  call.senddispls = sdispls;
  call.sendtype = sendtype;
  call.recvbuf = recvbuf;
  call.recvcounts = recvcounts;
  call.recvdispls = rdispls;
  call.recvtype = recvtype;
  CopyCounts(call);
  return Handle(call);
}

PavexStatus CallComm::Allgather(void const* sendbuf, int sendcount, Datatype sendtype,
                                void* recvbuf, int recvcount, Datatype recvtype) const {
  CommCall call;
  call.op = CommOp::ALLGATHER;
  call.sendbuf = sendbuf;
  call.sendcount = sendcount;
  call.sendtype = sendtype;
  call.recvbuf = recvbuf;
  call.recvcount = recvcount;
  call.recvtype = recvtype;
  return Handle(call);
}

PavexStatus CallComm::Allgatherv(void const* sendbuf, int sendcount, Datatype sendtype,
                                 void* recvbuf, int const* recvcounts, int const* displs,
                                 Datatype recvtype) const {
  CommCall call;
  call.op = CommOp::ALLGATHERV;
  call.sendbuf = sendbuf;
  call.sendcount = sendcount;
  call.sendtype = sendtype;
  call.recvbuf = recvbuf;
  call.recvcounts = recvcounts;
  call.recvdispls = displs;
  call.recvtype = recvtype;
  CopyCounts(call);
  return Handle(call);
}

PavexStatus CallComm::Allreduce(void const* sendbuf, void* recvbuf, int count, Datatype type,
                                ReduceOp op) const {
  CommCall call;
  call.op = CommOp::ALLREDUCE;
  call.sendbuf = sendbuf;
  call.recvbuf = recvbuf;
  call.recvcount = count;
  call.recvtype = type;
  call.reduce = op;
  return Handle(call);
}

PavexStatus CallComm::Bcast(void* buf, int count, Datatype type, int root) const {
  CommCall call;
  call.op = CommOp::BCAST;
  call.recvbuf = buf;
  call.recvcount = count;
  call.recvtype = type;
  call.peer = root;
  return Handle(call);
}

}  // namespace Pavex
