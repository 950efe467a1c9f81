#include "tests/support/strided_comm.h"

#include <cstddef>
#include <cstring>
#include <sstream>

namespace Pavex {

namespace {

using Bytes = std::vector<unsigned char>;

std::string Text(Runs const& runs) {
  std::ostringstream text;
  text << '{' << runs.begin << ", " << runs.length << ", " << runs.count << ", " << runs.stride
       << '}';
  return text.str();
}

std::string Text(Runs const* runs, int ranks) {
  std::string text;
  for (int r = 0; r < ranks; ++r)
    text += (r == 0 ? "" : " ") + Text(runs[r]);
  return text;
}

// Calls `visit(byte of the array, byte of the packed elements, bytes)` for each run.
template <typename Visit>
void ForEachRun(Runs const& runs, Datatype type, Visit visit) {
  std::size_t const size = DatatypeSize(type);
  std::size_t packed = 0;
  for (long k = 0; k < runs.count; ++k) {
    std::size_t const bytes = static_cast<std::size_t>(runs.length) * size;
    if (bytes == 0) return;
    visit(static_cast<std::size_t>(runs.begin + k * runs.stride) * size, packed, bytes);
    packed += bytes;
  }
}

void Pack(void const* array, Runs const& runs, Datatype type, Bytes& packed) {
  std::size_t const start = packed.size();
  ForEachRun(runs, type, [&](std::size_t from, std::size_t to, std::size_t bytes) {
    packed.resize(start + to + bytes);
    std::memcpy(packed.data() + start + to, static_cast<char const*>(array) + from, bytes);
  });
}

void Unpack(unsigned char const* packed, Runs const& runs, Datatype type, void* array) {
  ForEachRun(runs, type, [&](std::size_t to, std::size_t from, std::size_t bytes) {
    std::memcpy(static_cast<char*>(array) + to, packed + from, bytes);
  });
}

// The packed pieces of all ranks one behind the other.
struct Pieces {
  Pieces(Runs const* runs, int ranks) {
    for (int r = 0; r < ranks; ++r) {
      counts.push_back(static_cast<int>(runs[r].length * runs[r].count));
      displs.push_back(total);
      total += counts.back();
    }
  }
  std::vector<int> counts;
  std::vector<int> displs;
  int total = 0;
};

}  // namespace

StridedComm::StridedComm(std::shared_ptr<Comm> const& inner) : TraceComm(inner) {}

bool StridedComm::Strided() const {
  return true;
}

PavexStatus StridedComm::GatherRuns(void const* sendbuf, Runs const& sent, void* recvbuf,
                                    Runs const* received, Datatype type, int root) const {
  bool const receives = root < 0 || root == mRank;
  mRunCalls.push_back("GatherRuns(" + Text(sent) + "; " +
                      (receives ? Text(received, mSize) + "; " : "") + "root " +
                      std::to_string(root) + ")");
  Bytes mine;
  Pack(sendbuf, sent, type, mine);
  int const count = static_cast<int>(sent.length * sent.count);
  if (!receives)
    return Gatherv(mine.data(), count, type, nullptr, nullptr, nullptr, type, root);
  Pieces const pieces(received, mSize);
  Bytes all(static_cast<std::size_t>(pieces.total) * DatatypeSize(type));
  PavexStatus const status =
      root < 0 ? Allgatherv(mine.data(), count, type, all.data(), pieces.counts.data(),
                            pieces.displs.data(), type)
               : Gatherv(mine.data(), count, type, all.data(), pieces.counts.data(),
                         pieces.displs.data(), type, root);
  for (int r = 0; status == STATUS_OK && r < mSize; ++r)
    Unpack(all.data() + static_cast<std::size_t>(pieces.displs[static_cast<std::size_t>(r)]) *
                            DatatypeSize(type),
           received[r], type, recvbuf);
  return status;
}

PavexStatus StridedComm::ScatterRuns(void const* sendbuf, Runs const* sent, void* recvbuf,
                                     Runs const& received, Datatype type, int root) const {
  bool const sends = root == mRank;
  mRunCalls.push_back("ScatterRuns(" + (sends ? Text(sent, mSize) + "; " : "") +
                      Text(received) + "; root " + std::to_string(root) + ")");
  int const count = static_cast<int>(received.length * received.count);
  Bytes mine(static_cast<std::size_t>(count) * DatatypeSize(type));
  PavexStatus status = STATUS_OK;
  if (sends) {
    Pieces const pieces(sent, mSize);
    Bytes all;
    for (int r = 0; r < mSize; ++r)
      Pack(sendbuf, sent[r], type, all);
    status = Scatterv(all.data(), pieces.counts.data(), pieces.displs.data(), type, mine.data(),
                      count, type, root);
  } else {
    status = Scatterv(nullptr, nullptr, nullptr, type, mine.data(), count, type, root);
  }
  if (status == STATUS_OK) Unpack(mine.data(), received, type, recvbuf);
  return status;
}

}  // namespace Pavex
