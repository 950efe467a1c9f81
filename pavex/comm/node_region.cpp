#include "pavex/comm/node_region.h"

#include "pavex/comm/mpi_call.h"
#include "pavex/runtime/copy_runs.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace Pavex {

namespace {

// What a sender copies into one receiver's memory before it turns to the next: the part is
// still in the cache then.
constexpr std::uint64_t kChunk = std::uint64_t{64} << 10;

// A region of one run, cut into runs like those of `other`.
NodeRegion CutAs(NodeRegion const& other, NodeRegion region) {
  if (region.count != 1 || other.length == 0) return region;
  region.length = region.stride = other.length;
  region.count = other.count;
  return region;
}

}  // namespace

NodeRegion NodeRegion::Of(void const* data, std::uint64_t bytes) {
  // Only receivers write to a region, and their pointers were not const.
  return {static_cast<unsigned char*>(const_cast<void*>(data)), bytes, 1, bytes};
}

NodeRegion NodeRegion::Of(void const* array, Runs const& runs, Datatype type) {
  if (runs.count == 0 || runs.length == 0) return Of(array, 0);
  auto const bytes = [type](long elements) {
    return static_cast<std::uint64_t>(elements) * DatatypeSize(type);
  };
  NodeRegion region = Of(static_cast<char const*>(array) + bytes(runs.begin), 0);
  region.length = bytes(runs.length);
  region.count = static_cast<std::uint64_t>(runs.count);
  region.stride = bytes(runs.stride);
  if (region.count == 1 || region.stride == region.length)
    return Of(region.data, region.Bytes());
  return region;
}

std::uint64_t NodeRegion::Span() const {
  if (Bytes() == 0) return 0;
  std::uint64_t span = 0;
  bool const overflows = __builtin_mul_overflow(count - 1, stride, &span) ||
                         __builtin_add_overflow(span, length, &span);
  return overflows ? ~std::uint64_t{0} : span;
}

NodeCopy::NodeCopy(NodeRegion const& to, NodeRegion const& from)
    : mTo(CutAs(from, to)), mFrom(CutAs(to, from)) {
  mFits = mTo.Bytes() == mFrom.Bytes() && mTo.length == mFrom.length;
  if (!mFits || mTo.Bytes() == 0 || mTo == mFrom) return;
  mPerRun = (mTo.length + kChunk - 1) / kChunk;
  mPerStep = std::max<std::uint64_t>(kChunk / mTo.length, 1);
  mChunks = mPerRun > 1 ? mTo.count * mPerRun : (mTo.count + mPerStep - 1) / mPerStep;
}

void NodeCopy::BeginAt(int part, int parts) {
  if (mPerRun > 1 || mTo.count <= 1) return;
  mFirst = mChunks * static_cast<std::uint64_t>(part) / static_cast<std::uint64_t>(parts);
}

void NodeCopy::CopyChunk(std::uint64_t index) const {
  index = (index + mFirst) % mChunks;
  if (mPerRun > 1) {
    std::uint64_t const run = index / mPerRun;
    std::uint64_t const begin = index % mPerRun * kChunk;
    std::memcpy(mTo.data + run * mTo.stride + begin, mFrom.data + run * mFrom.stride + begin,
                std::min(kChunk, mTo.length - begin));
    return;
  }
  std::uint64_t const run = index * mPerStep;
  CopyRuns({reinterpret_cast<char*>(mTo.data + run * mTo.stride), mTo.stride},
           {reinterpret_cast<char const*>(mFrom.data + run * mFrom.stride), mFrom.stride},
           mTo.length, std::min(mPerStep, mTo.count - run));
}

void NodeCopy::CopyAll() const {
  if (mChunks > 0 && mTo.count == 1) {
    std::memmove(mTo.data, mFrom.data, mTo.length);
    return;
  }
  for (std::uint64_t i = 0; i < mChunks; ++i)
    CopyChunk(i);
}

int MakeMpiType(NodeRegion const& region, Datatype type, MPI_Datatype* made) {
  // MPI counts in int, so a longer run is so many blocks and a rest.
  constexpr std::uint64_t kBlock = std::uint64_t{1} << 30;
  std::uint64_t const elements = region.length / DatatypeSize(type);
  if (elements / kBlock > INT_MAX || region.count > INT_MAX) return MPI_ERR_COUNT;
  int const lengths[] = {static_cast<int>(elements / kBlock),
                         static_cast<int>(elements % kBlock)};
  MPI_Aint const places[] = {
      0, static_cast<MPI_Aint>(elements / kBlock * kBlock * DatatypeSize(type))};
  MPI_Datatype block = MPI_DATATYPE_NULL;
  MPI_Datatype run = MPI_DATATYPE_NULL;
  int code = MPI_Type_contiguous(static_cast<int>(kBlock), MpiType(type), &block);
  if (code != MPI_SUCCESS) return code;
  MPI_Datatype const parts[] = {block, MpiType(type)};
  code = MPI_Type_create_struct(2, lengths, places, parts, &run);
  MPI_Type_free(&block);
  if (code != MPI_SUCCESS) return code;
  code = MPI_Type_create_hvector(static_cast<int>(region.count), 1,
                                 static_cast<MPI_Aint>(region.stride), run, made);
  MPI_Type_free(&run);
  return code == MPI_SUCCESS ? MPI_Type_commit(made) : code;
}

}  // namespace Pavex
