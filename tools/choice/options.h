// The choices of the user, and the words for them.

#pragma once

#include "pavex/matrix/store.h"

#include <optional>
#include <string>
#include <vector>

namespace Pavex::Tool {

enum class Format { COO, CSR, CSC, DENSE_ROW, DENSE_COL };
enum class Partition { ROWS, COLUMNS, ENTRIES, ONE, ALL, RANDOM, OVERLAP };
enum class ValueKind { FLOAT, DOUBLE, COMPLEX_FLOAT, COMPLEX_DOUBLE };
enum class IndexKind { INT, LONG };
enum class LogLevel { SILENT, FATAL, ERROR, DEBUG };
// How the ranks run: as processes under MPI that share memory on each node, as processes that
// do not, or as threads of one process.
enum class CommKind { NODE, MPI, LOCAL };

constexpr int kDefaultRanks = 4;  // used unless MPI gives the number

inline bool IsDense(Format format) {
  return format == Format::DENSE_ROW || format == Format::DENSE_COL;
}
inline bool IsCompressed(Format format) {
  return format == Format::CSR || format == Format::CSC;
}
inline bool IsComplex(ValueKind kind) {
  return kind == ValueKind::COMPLEX_FLOAT || kind == ValueKind::COMPLEX_DOUBLE;
}

// The store type of the matrices that are passed to the library. Sparse ones have part code 0.
PavexMatrixStoreType StoreTypeOf(Format format);

// The word for a choice, as the user types it after the option: "dense-row".
char const* NameOf(Format format);
char const* NameOf(Partition partition);
char const* NameOf(ValueKind kind);
char const* NameOf(IndexKind kind);
char const* NameOf(LogLevel level);
char const* NameOf(CommKind kind);

// The choice that `word` names. Throws an InputError that names `option` and all its words.
template <typename Choice>
Choice ParseChoice(std::string const& option, std::string const& word);

// Where the entries come from; one of the two is set.
struct InputOptions {
  std::string mFile;
  std::string mGenerate;
};

// How the matrix is cut, and how each rank holds its piece.
struct CutOptions {
  Format mFormat = Format::COO;
  Partition mPartition = Partition::ROWS;
  std::vector<long>
      mCuts;        // where the bands except the first begin; empty: bands of equal size
  int mHolder = 0;  // the rank that holds the matrix with Partition::ONE
  bool mWithValues = true;
  long mPad = 0;  // dense: leading dimension minus run length
  int mBase = 0;  // compressed: the first offset
};

// What runs on which ranks.
struct RunOptions {
  std::optional<CommKind> mComm;  // unset: chosen by the way in which this process was started
  int mRanks = kDefaultRanks;
  std::optional<ValueKind> mValue;  // unset: double, or complex double for complex input
  IndexKind mIndex = IndexKind::INT;
  bool mToAll = false;
  int mReceiver = 0;  // the rank that receives, unless all do
  bool mScatter = false;
  int mUpdates = 0;
  LogLevel mLogLevel = LogLevel::ERROR;
};

// The files to write; an empty name writes none.
struct OutputOptions {
  std::string mOutput;
  std::string mJson;
  std::string mPlot;
  bool mAllRanks = false;  // tables show every rank
};

// The options of `pavex gather` and `pavex plan`. Functions take the part that they need.
struct GatherOptions : InputOptions, CutOptions, RunOptions, OutputOptions {};

// Whether the gather needs an Assembler: the pieces are not bands in rank order, or another
// rank than 0 receives.
inline bool IsAssembled(GatherOptions const& options) {
  return options.mPartition == Partition::RANDOM || options.mPartition == Partition::OVERLAP ||
         options.mReceiver != 0;
}

// Throws InputError for options that exclude each other or do not fit the matrix format. The
// message says what to use instead.
void CheckCombination(GatherOptions const& options);

// Throws InputError for a partition that only `pavex gather` knows; `command` is the other one.
void RefuseAssembled(GatherOptions const& options, std::string const& command);

}  // namespace Pavex::Tool
