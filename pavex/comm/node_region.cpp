#include "pavex/comm/node_region.h"

#include "pavex/comm/mpi_call.h"
#include "pavex/runtime/copy_runs.h"
#include "pavex/runtime/stream.h"

#include <algorithm>
#include <cstring>

namespace Pavex {

namespace {

// What a sender copies into one receiver's memory before it turns to the next: the part is
// still in the cache then.
constexpr std::uint64_t kChunk = std::uint64_t{64} << 10;

// What is larger leaves no room in the caches for what else is used: it is written past them.
constexpr std::uint64_t kStreamFrom = std::uint64_t{4} << 20;

// The part of a run for which huge pages are asked at a time: whole ones that the cache of a
// core holds.
constexpr std::uint64_t kStep = 2 * NodeHugePages::kBytes;

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
  if (mTo.Bytes() <= kChunk) {  // most messages: not worth the divisions below
    mPerStep = mTo.count;
    mChunks = 1;
    return;
  }
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
  if (mChunks > 0 && mTo.count == 1) return CopyPart(0, mTo.length, false);
  for (std::uint64_t i = 0; i < mChunks; ++i)
    CopyChunk(i);
}

// The system clears new pages, which are still in the cache if data follows soon: so they are
// asked for step by step.
void NodeCopy::Store(NodeHugePages const& pages, std::uint64_t offset) const {
  if (mChunks == 0) return;
  if (mTo.count > 1) {
    pages.Back(NodeHugePages::ForBlock(offset, mTo.Span()));
    return CopyAll();
  }
  constexpr std::uint64_t kHuge = NodeHugePages::kBytes;
  NodeHugePages::Run const run = NodeHugePages::ForBlock(offset, mTo.length);
  for (std::uint64_t begin = 0; begin < mTo.length;) {
    std::uint64_t const step = kStep - (offset + begin) % kStep;
    std::uint64_t const end = std::min(begin + step, mTo.length);
    bool const fresh = pages.Back({std::max(run.first, (offset + begin) / kHuge),
                                   std::min(run.end, (offset + end + kHuge - 1) / kHuge)});
    CopyPart(begin, end, fresh);
    begin = end;
  }
}

// Bytes `begin` to `end` of one run. `fresh`: of pages that have just been made.
void NodeCopy::CopyPart(std::uint64_t begin, std::uint64_t end, bool fresh) const {
  unsigned char* const to = mTo.data + begin;
  unsigned char const* const from = mFrom.data + begin;
  if (mTo.length < kStreamFrom || fresh || Overlaps()) {
    std::memmove(to, from, end - begin);
    return;
  }
  Stream(reinterpret_cast<char*>(to), reinterpret_cast<char const*>(from), end - begin);
  EndStream();
}

// Of one run on each side.
bool NodeCopy::Overlaps() const {
  auto const to = reinterpret_cast<std::uintptr_t>(mTo.data);
  auto const from = reinterpret_cast<std::uintptr_t>(mFrom.data);
  return to < from + mTo.length && from < to + mTo.length;
}

int MakeMpiType(NodeRegion const& region, std::uint64_t first, std::uint64_t bytes,
                Datatype type, MPI_Datatype* made) {
  // The rest of a run, whole runs, and the beginning of a run.
  std::uint64_t const begun = first % region.length;
  std::uint64_t const head = begun == 0 ? 0 : std::min(bytes, region.length - begun);
  std::uint64_t const whole = (bytes - head) / region.length;
  std::uint64_t const tail = (bytes - head) % region.length;
  std::uint64_t const run = first / region.length;
  std::uint64_t const next = begun == 0 ? run : run + 1;
  auto const elements = [type](std::uint64_t length) {
    return static_cast<int>(length / DatatypeSize(type));
  };
  auto const place = [](std::uint64_t offset) { return static_cast<MPI_Aint>(offset); };

  MPI_Datatype element = MpiType(type);
  MPI_Datatype runs = MPI_DATATYPE_NULL;
  int const runElements = whole == 0 ? 0 : elements(region.length);
  int code = MPI_Type_create_hvector(static_cast<int>(whole), runElements, place(region.stride),
                                     element, &runs);
  if (code != MPI_SUCCESS) return code;
  int const lengths[] = {elements(head), 1, elements(tail)};
  MPI_Aint const places[] = {place(run * region.stride + begun), place(next * region.stride),
                             place((next + whole) * region.stride)};
  MPI_Datatype const parts[] = {element, runs, element};
  code = MPI_Type_create_struct(3, lengths, places, parts, made);
  MPI_Type_free(&runs);
  return code == MPI_SUCCESS ? MPI_Type_commit(made) : code;
}

}  // namespace Pavex
