#include "tools/source/generate.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <exception>
#include <string_view>

namespace Pavex::Tool {

namespace {

// The largest N for which N^2 (N^3) rows stay below kMaxExtent.
constexpr long kLargestGrid2d = 46340;
constexpr long kLargestGrid3d = 1290;
constexpr char const* kKinds =
    "poisson2d:N, poisson3d:N, convection2d:N, convection3d:N, random:N, dense:ROWSxCOLS";

[[noreturn]] void Fail(std::string const& description, std::string const& fault) {
  throw InputError("cannot generate \"" + description + "\": " + fault);
}

long ParseSize(std::string const& description, std::string_view text, long most) {
  long size = 0;
  char const* const end = text.data() + text.size();
  auto const parsed = std::from_chars(text.data(), end, size);
  bool const isNumber = parsed.ptr == end && parsed.ec != std::errc::invalid_argument;
  if (!isNumber) Fail(description, "\"" + std::string(text) + "\" is not a whole number");
  if (parsed.ec != std::errc() || size < 1 || size > most)
    Fail(description,
         "the size " + std::string(text) + " is outside 1 to " + std::to_string(most));
  return size;
}

// Mixes two numbers into 64 evenly distributed bits (the finalizer of SplitMix64), so that any
// entry can be made without its predecessors.
std::uint64_t Hash(long a, long b) {
  std::uint64_t x = static_cast<std::uint64_t>(a) * 0x9e3779b97f4a7c15u +
                    static_cast<std::uint64_t>(b) * 0xd1b54a32d192ed03u + 0x8cb92ba72f3d8dd7u;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
  return x ^ (x >> 31);
}

// A number between -1 and 1.
double HashValue(long a, long b) {
  return static_cast<double>(Hash(a, b) >> 11) * 0x1p-52 - 1;
}

// The numbers b with which Hash draws the degree of a random row and its columns. Its values
// are drawn with the number of their column, which differs from both.
constexpr long kDegreeDraw = -1;
constexpr long kColumnDraws = 1L << 40;

void ReserveFor(long entries, Triplets& piece) {
  try {
    piece.Reserve(piece.Entries() + static_cast<std::size_t>(entries));
  } catch (std::exception const&) {  // too many for a vector, or for the memory
    throw InputError("not enough memory to generate " + std::to_string(entries) + " entries");
  }
}

bool IsHubRow(long row, long size) {
  constexpr long kHubs = 4;
  long const spacing = size / kHubs;
  return size >= 1000 && row % spacing == spacing / 2 && row / spacing < kHubs;
}

}  // namespace

Generator::Generator(std::string const& description) {
  std::size_t const colon = description.find(':');
  if (colon == std::string::npos) Fail(description, std::string("expected one of ") + kKinds);
  std::string const kind = description.substr(0, colon);
  std::string_view const size = std::string_view(description).substr(colon + 1);
  bool const poisson = kind == "poisson2d" || kind == "poisson3d";
  if (poisson || kind == "convection2d" || kind == "convection3d") {
    mKind = poisson ? Kind::POISSON : Kind::CONVECTION;
    mAxes = kind[kind.size() - 2] - '0';
    mSize = ParseSize(description, size, mAxes == 2 ? kLargestGrid2d : kLargestGrid3d);
    mRows = mCols = mSize * mSize * (mAxes == 3 ? mSize : 1);
  } else if (kind == "random") {
    mKind = Kind::RANDOM;
    mRows = mCols = mSize = ParseSize(description, size, kMaxExtent);
  } else if (kind == "dense") {
    mKind = Kind::DENSE;
    std::size_t const cross = size.find('x');
    if (cross == std::string_view::npos)
      Fail(description, "expected dense:ROWSxCOLS, as in dense:300x200");
    mRows = ParseSize(description, size.substr(0, cross), kMaxExtent);
    mCols = ParseSize(description, size.substr(cross + 1), kMaxExtent);
  } else {
    Fail(description, "unknown kind \"" + kind + "\", known: " + kKinds);
  }
}

long Generator::Entries(long begin, long end) const {
  if (mKind == Kind::DENSE) return (end - begin) * mCols;
  if (mAxes != 0) return GridEntriesAbove(end) - GridEntriesAbove(begin);
  long entries = 0;
  for (long row = begin; row < end; ++row)
    entries += RandomRowEntries(row);
  return entries;
}

long Generator::Entries() const {
  return Entries(0, mRows);
}

// Each point of a grid has an entry for itself and for two neighbours along each axis, except
// for neighbours outside the grid. Across an axis of stride s, the points of a face are s
// consecutive ones out of every s * mSize.
long Generator::GridEntriesAbove(long row) const {
  long entries = row;
  long stride = 1;
  for (int axis = 0; axis < mAxes; ++axis, stride *= mSize) {
    long const period = stride * mSize;
    long const rest = row % period;
    long const lower = row / period * stride + std::min(rest, stride);
    long const upper = row / period * stride + std::max(rest - (period - stride), 0L);
    entries += 2 * row - lower - upper;
  }
  return entries;
}

Triplets Generator::Empty() const {
  Triplets piece;
  piece.mRows = mRows;
  piece.mCols = mCols;
  piece.mSymmetry = mKind == Kind::POISSON ? Symmetry::SYMMETRIC : Symmetry::GENERAL;
  piece.mDense = mKind == Kind::DENSE;
  return piece;
}

void Generator::AppendRows(long begin, long end, Triplets& piece,
                           ProgressFunction const& progress) const {
  ReserveFor(Entries(begin, end), piece);
  AppendBlock(begin, end, 0, mCols, piece, progress);
}

void Generator::AppendCols(long begin, long end, Triplets& piece,
                           ProgressFunction const& progress) const {
  AppendBlock(0, mRows, begin, end, piece, progress);
}

void Generator::AppendBlock(long rowBegin, long rowEnd, long colBegin, long colEnd,
                            Triplets& piece, ProgressFunction const& progress) const {
  constexpr long kBetweenReports = 1 << 12;
  for (long row = rowBegin; row < rowEnd; ++row) {
    if (progress && row % kBetweenReports == 0)
      progress(static_cast<double>(row - rowBegin) / static_cast<double>(rowEnd - rowBegin));
    switch (mKind) {
      case Kind::POISSON:
      case Kind::CONVECTION:
        AppendGridRow(row, colBegin, colEnd, piece);
        break;
      case Kind::RANDOM:
        AppendRandomRow(row, colBegin, colEnd, piece);
        break;
      case Kind::DENSE:
        AppendDenseRow(row, colBegin, colEnd, piece);
        break;
    }
  }
}

long Generator::RandomRowEntries(long row) const {
  if (IsHubRow(row, mSize)) return mSize / 10;
  return std::min(mSize, 8 + static_cast<long>(Hash(row, kDegreeDraw) % 5));
}

// Neighbours in ascending order: the lower ones from the slowest axis to the fastest, the point
// itself, then the upper ones in the reverse order. Upwind differences strengthen the lower
// neighbours, where the flow comes from.
void Generator::AppendGridRow(long row, long begin, long end, Triplets& piece) const {
  constexpr double kFlow[3] = {0.5, 0.25, 0.125};
  bool const convection = mKind == Kind::CONVECTION;
  double diagonal = 0;
  for (int axis = 0; axis < mAxes; ++axis)
    diagonal += 2 + (convection ? kFlow[axis] : 0);  // NOLINT: there are at most 3 axes
  long const stride[3] = {1, mSize, mSize * mSize};
  auto const add = [&](long col, double value) {
    if (col >= begin && col < end) piece.Add(row, col, value);
  };

  for (int axis = mAxes - 1; axis >= 0; --axis) {
    if (row / stride[axis] % mSize > 0)  // NOLINT: as above
      add(row - stride[axis], convection ? -1 - kFlow[axis] : -1);
  }
  add(row, diagonal);
  for (int axis = 0; axis < mAxes; ++axis) {
    if (row / stride[axis] % mSize < mSize - 1) add(row + stride[axis], -1);
  }
}

// The columns are cut into as many bands as the row has entries; each band gives one column:
// the diagonal if it lies there, else a drawn one. So they ascend and never repeat.
void Generator::AppendRandomRow(long row, long begin, long end, Triplets& piece) const {
  long const entries = RandomRowEntries(row);
  auto const dominant = static_cast<double>(entries);  // others are below 1 each
  for (long k = 0; k < entries; ++k) {
    long const low = k * mSize / entries;
    long const high = (k + 1) * mSize / entries;
    bool const diagonal = row >= low && row < high;
    long const drawn = low + static_cast<long>(Hash(row, kColumnDraws + k) %
                                               static_cast<std::uint64_t>(high - low));
    long const col = diagonal ? row : drawn;
    if (col >= begin && col < end)
      piece.Add(row, col, diagonal ? dominant : HashValue(row, col));
  }
}

void Generator::AppendDenseRow(long row, long begin, long end, Triplets& piece) const {
  for (long col = begin; col < end; ++col)
    piece.Add(row, col, HashValue(row, col));
}

}  // namespace Pavex::Tool
