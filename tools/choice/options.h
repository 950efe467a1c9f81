// What the command lets the user choose, and the words for it.

#pragma once

#include "pavex/matrix/store.h"

#include <optional>
#include <string>
#include <vector>

namespace Pavex::Tool {

enum class Format { COO, CSR, CSC, DENSE_ROW, DENSE_COL };
enum class Partition { ROWS, COLUMNS, ENTRIES, ONE, ALL };
enum class ValueKind { FLOAT, DOUBLE, COMPLEX_FLOAT, COMPLEX_DOUBLE };
enum class IndexKind { INT, LONG };
enum class LogLevel { SILENT, FATAL, ERROR, DEBUG };
// What carries the ranks: processes under MPI, or threads of one process.
enum class CommKind { MPI, LOCAL };

constexpr int kDefaultRanks = 4;  // where MPI does not give their number

inline bool IsDense(Format format) {
  return format == Format::DENSE_ROW || format == Format::DENSE_COL;
}
inline bool IsCompressed(Format format) {
  return format == Format::CSR || format == Format::CSC;
}
inline bool IsComplex(ValueKind kind) {
  return kind == ValueKind::COMPLEX_FLOAT || kind == ValueKind::COMPLEX_DOUBLE;
}

// The store type of the matrices that the library sees; sparse ones have part code 0.
PavexMatrixStoreType StoreTypeOf(Format format);

// The word for a choice, as it is typed behind the option: "dense-row".
char const* NameOf(Format format);
char const* NameOf(Partition partition);
char const* NameOf(ValueKind kind);
char const* NameOf(IndexKind kind);
char const* NameOf(LogLevel level);
char const* NameOf(CommKind kind);

// The choice that `word` stands for. Throws InputError that names `option` and all its words.
template <typename Choice>
Choice ParseChoice(std::string const& option, std::string const& word);

// The options of `pavex gather`.
struct GatherOptions {
  std::string mFile;  // one of these two is set
  std::string mGenerate;
  std::optional<CommKind> mComm;  // unset: as this process was started
  int mRanks = kDefaultRanks;
  Format mFormat = Format::COO;
  Partition mPartition = Partition::ROWS;
  std::optional<ValueKind> mValue;  // unset: double, or complex double for complex input
  IndexKind mIndex = IndexKind::INT;
  std::vector<long> mCuts;  // where the bands begin but the first; empty: bands of equal size
  int mHolder = 0;          // the rank that holds the matrix with Partition::ONE
  bool mToAll = false;
  bool mWithValues = true;
  bool mScatter = false;
  int mUpdates = 0;
  long mPad = 0;  // dense: leading dimension minus run length
  int mBase = 0;  // compressed: the first offset
  LogLevel mLogLevel = LogLevel::ERROR;
  std::string mOutput;
  std::string mJson;
  std::string mPlot;
  bool mAllRanks = false;  // tables show every rank
};

// Throws InputError for options that exclude each other or do not fit the matrix format; the
// message says what to use instead.
void CheckCombination(GatherOptions const& options);

}  // namespace Pavex::Tool
