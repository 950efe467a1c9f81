// Reads any bytes as a Matrix Market file. The reader accepts them or throws InputError, the
// same for a pipe as for a file. A matrix that was read is the same after it is written and
// read again, and a source of entries gives each entry once.

#include "tests/fuzz/require.h"
#include "tools/source/matrix_market.h"
#include "tools/source/source.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace Pavex::Tool {
namespace {

// The largest input. The file that is written for it must fit into a pipe, which no process
// reads until everything is written.
constexpr std::size_t kMostBytes = 4096;

std::string PathOf(int file) {
  return "/proc/self/fd/" + std::to_string(file);
}

void WriteAll(int file, void const* data, std::size_t size) {
  Require(write(file, data, size) == static_cast<ssize_t>(size),
          "the system accepts the input");
}

// A file in memory that holds `data`.
class MemoryFile {
 public:
  MemoryFile(void const* data, std::size_t size) : mFile(memfd_create("input", MFD_CLOEXEC)) {
    WriteAll(mFile, data, size);
  }
  ~MemoryFile() { close(mFile); }
  MemoryFile(MemoryFile const&) = delete;
  MemoryFile& operator=(MemoryFile const&) = delete;

  std::string Path() const { return PathOf(mFile); }

 private:
  int mFile;
};

// A pipe. Write the input, close that end, then read.
class Pipe {
 public:
  Pipe() { Require(pipe(mEnds) == 0, "the system gives a pipe"); }
  ~Pipe() {
    close(mEnds[0]);
    EndInput();
  }
  Pipe(Pipe const&) = delete;
  Pipe& operator=(Pipe const&) = delete;

  int Input() const { return mEnds[1]; }
  void EndInput() {
    if (mEnds[1] >= 0) close(mEnds[1]);
    mEnds[1] = -1;
  }
  std::string Path() const { return PathOf(mEnds[0]); }

 private:
  int mEnds[2];
};

std::optional<Triplets> Read(std::string const& path) {
  try {
    return ReadMatrixMarket(path);
  } catch (InputError const& error) {
    Require(std::strchr(error.what(), '\n') == nullptr, "a refusal is one line");
    return {};
  }
}

template <typename V>
bool SameBits(std::vector<V> const& a, std::vector<V> const& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(V)) == 0);
}

bool SameMatrix(Triplets const& a, Triplets const& b) {
  return a.mRows == b.mRows && a.mCols == b.mCols && a.mField == b.mField &&
         SameBits(a.mRow, b.mRow) && SameBits(a.mCol, b.mCol) && SameBits(a.mReal, b.mReal) &&
         SameBits(a.mImag, b.mImag);
}

std::optional<Triplets> ReadFromPipe(void const* data, std::size_t size) {
  Pipe input;
  WriteAll(input.Input(), data, size);
  input.EndInput();
  return Read(input.Path());
}

std::optional<Triplets> WriteAndRead(Triplets const& matrix) {
  Pipe output;
  WriteMatrixMarket(PathOf(output.Input()), matrix);
  output.EndInput();
  return Read(output.Path());
}

void CheckSource(std::string const& path, Triplets const& matrix) {
  auto const source = OpenFile(path);
  long const middle = matrix.mRows / 3;
  std::size_t const above = source->Rows(0, middle).Entries();
  std::size_t const below = source->Rows(middle, matrix.mRows).Entries();
  Require(above + below == matrix.Entries(), "two bands of rows have all entries");

  Piece band;
  band.mRowEnd = middle;
  band.mColEnd = matrix.mCols;
  band.mEntryEnd = source->Whole().mEntries;
  Require(source->Cut(band, {}).Entries() == above, "a cut has the entries of its rows");
}

void Run(void const* data, std::size_t size) {
  MemoryFile const file(data, size);
  auto const matrix = Read(file.Path());
  auto const piped = ReadFromPipe(data, size);
  Require(matrix.has_value() == piped.has_value(), "a pipe is refused where a file is");
  if (!matrix) return;
  Require(SameMatrix(*matrix, *piped), "a pipe is read like a file");
  auto const again = WriteAndRead(*matrix);
  Require(again && SameMatrix(*matrix, *again), "what is written reads back the same");
  CheckSource(file.Path(), *matrix);
}

}  // namespace
}  // namespace Pavex::Tool

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size <= Pavex::Tool::kMostBytes) Pavex::Tool::Run(data, size);
  return 0;
}
