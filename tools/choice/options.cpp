#include "tools/choice/options.h"

#include "tools/choice/input_error.h"

#include <filesystem>
#include <system_error>

namespace Pavex::Tool {

namespace {

template <typename Choice>
struct Word {
  Choice mChoice;
  char const* mWord;
};

constexpr Word<Format> kFormats[] = {{Format::COO, "coo"},
                                     {Format::CSR, "csr"},
                                     {Format::CSC, "csc"},
                                     {Format::DENSE_ROW, "dense-row"},
                                     {Format::DENSE_COL, "dense-col"}};
constexpr Word<Partition> kPartitions[] = {
    {Partition::ROWS, "rows"},       {Partition::COLUMNS, "columns"},
    {Partition::ENTRIES, "entries"}, {Partition::ONE, "one"},
    {Partition::ALL, "all"},         {Partition::RANDOM, "random"},
    {Partition::OVERLAP, "overlap"}};
constexpr Word<ValueKind> kValues[] = {{ValueKind::FLOAT, "float"},
                                       {ValueKind::DOUBLE, "double"},
                                       {ValueKind::COMPLEX_FLOAT, "complex-float"},
                                       {ValueKind::COMPLEX_DOUBLE, "complex-double"}};
constexpr Word<IndexKind> kIndices[] = {{IndexKind::INT, "int"}, {IndexKind::LONG, "long"}};
constexpr Word<LogLevel> kLevels[] = {{LogLevel::SILENT, "silent"},
                                      {LogLevel::FATAL, "fatal"},
                                      {LogLevel::ERROR, "error"},
                                      {LogLevel::DEBUG, "debug"}};
constexpr Word<CommKind> kComms[] = {
    {CommKind::NODE, "node"}, {CommKind::MPI, "mpi"}, {CommKind::LOCAL, "local"}};

template <typename Choice, std::size_t N>
char const* Find(Word<Choice> const (&words)[N], Choice choice) {
  for (auto const& word : words)
    if (word.mChoice == choice) return word.mWord;
  return "unknown";
}

template <typename Choice, std::size_t N>
Choice Parse(Word<Choice> const (&words)[N], std::string const& option,
             std::string const& given) {
  std::string known;
  for (auto const& word : words) {
    if (given == word.mWord) return word.mChoice;
    known += (known.empty() ? "" : ", ") + std::string(word.mWord);
  }
  throw InputError(option + ": unknown \"" + given + "\", choose one of " + known);
}

// The partition by which the pieces of a format cannot be cut, and what to use instead.
void CheckPartition(Format format, Partition partition) {
  bool const whole = partition == Partition::ONE || partition == Partition::ALL;
  bool const assembled = partition == Partition::RANDOM || partition == Partition::OVERLAP;
  if (whole || assembled || format == Format::COO) return;
  std::string const subject =
      std::string("--format ") + NameOf(format) + " with --partition " + NameOf(partition);
  if (partition == Partition::ENTRIES)
    throw InputError(subject + ": only coo can be cut by entries; use --partition " +
                     (format == Format::CSC ? "columns" : "rows") + " or --format coo");
  if (format == Format::CSR && partition == Partition::COLUMNS)
    throw InputError(subject + ": csr is cut by rows; use --partition rows or --format csc");
  if (format == Format::CSC && partition == Partition::ROWS)
    throw InputError(subject +
                     ": csc is cut by columns; use --partition columns or --format csr");
}

// What a gather by an Assembler cannot do here, and what to use instead.
void CheckAssembled(GatherOptions const& options) {
  std::string const word = NameOf(options.mPartition);
  if (options.mReceiver >= options.mRanks)
    throw InputError("--receiver " + std::to_string(options.mReceiver) +
                     " is not one of the ranks 0 to " + std::to_string(options.mRanks - 1));
  if (options.mReceiver != 0 && options.mToAll)
    throw InputError("--receiver and --to all exclude each other");
  bool const rows = options.mPartition == Partition::ROWS;
  bool const dealt = options.mPartition == Partition::RANDOM;
  if (!rows && !dealt && options.mPartition != Partition::OVERLAP)
    throw InputError("--receiver goes with --partition rows, random or overlap only, not " +
                     word);
  std::string const subject = rows ? "--receiver" : "--partition " + word;
  if (options.mFormat != Format::CSR && options.mFormat != Format::COO)
    throw InputError(subject + " goes with --format coo or csr only");
  if (dealt && !options.mCuts.empty())
    throw InputError("--cuts goes with bands only, not with --partition random");
  if (!options.mPlot.empty()) throw InputError(subject + " and --plot exclude each other");
  if (!options.mOutput.empty() && options.mReceiver != 0)
    throw InputError("--receiver and --output exclude each other: rank 0 writes files");
}

void RefuseSameFile(std::string const& option, std::string const& path,
                    std::string const& other, std::string const& otherPath) {
  std::error_code ignored;
  auto const canonical = [&ignored](std::string const& name) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(name, ignored), ignored);
  };
  if (path.empty() || otherPath.empty()) return;
  if (path == otherPath || canonical(path) == canonical(otherPath))
    throw InputError(option + " and " + other + " name the same file");
}

}  // namespace

PavexMatrixStoreType StoreTypeOf(Format format) {
  switch (format) {
    case Format::COO:
      return STORE_COO_0;
    case Format::CSR:
      return STORE_CSR_0;
    case Format::CSC:
      return STORE_CSC_0;
    case Format::DENSE_ROW:
      return STORE_DENSE_ROW_MAJOR;
    case Format::DENSE_COL:
      break;
  }
  return STORE_DENSE_COL_MAJOR;
}

char const* NameOf(Format format) {
  return Find(kFormats, format);
}
char const* NameOf(Partition partition) {
  return Find(kPartitions, partition);
}
char const* NameOf(ValueKind kind) {
  return Find(kValues, kind);
}
char const* NameOf(IndexKind kind) {
  return Find(kIndices, kind);
}
char const* NameOf(LogLevel level) {
  return Find(kLevels, level);
}
char const* NameOf(CommKind kind) {
  return Find(kComms, kind);
}

template <>
Format ParseChoice<Format>(std::string const& option, std::string const& word) {
  return Parse(kFormats, option, word);
}
template <>
Partition ParseChoice<Partition>(std::string const& option, std::string const& word) {
  return Parse(kPartitions, option, word);
}
template <>
ValueKind ParseChoice<ValueKind>(std::string const& option, std::string const& word) {
  return Parse(kValues, option, word);
}
template <>
IndexKind ParseChoice<IndexKind>(std::string const& option, std::string const& word) {
  return Parse(kIndices, option, word);
}
template <>
LogLevel ParseChoice<LogLevel>(std::string const& option, std::string const& word) {
  return Parse(kLevels, option, word);
}
template <>
CommKind ParseChoice<CommKind>(std::string const& option, std::string const& word) {
  return Parse(kComms, option, word);
}

void CheckCombination(GatherOptions const& options) {
  if (options.mFile.empty() && options.mGenerate.empty())
    throw InputError("name a Matrix Market file or --generate KIND:SIZE");
  if (!options.mFile.empty() && !options.mGenerate.empty())
    throw InputError("\"" + options.mFile + "\" and --generate " + options.mGenerate +
                     " name two inputs: leave one out");
  RefuseSameFile("--output", options.mOutput, "--json", options.mJson);
  RefuseSameFile("--output", options.mOutput, "--plot", options.mPlot);
  RefuseSameFile("--json", options.mJson, "--plot", options.mPlot);
  CheckPartition(options.mFormat, options.mPartition);
  if (IsAssembled(options)) CheckAssembled(options);
  bool const dense = IsDense(options.mFormat);
  if (options.mHolder != 0 && options.mPartition != Partition::ONE)
    throw InputError("--holder goes with --partition one only");
  if (options.mHolder >= options.mRanks)
    throw InputError("--holder " + std::to_string(options.mHolder) +
                     " is not one of the ranks 0 to " + std::to_string(options.mRanks - 1));
  bool const bands =
      options.mPartition != Partition::ONE && options.mPartition != Partition::ALL;
  if (!options.mCuts.empty() && !bands)
    throw InputError("--cuts goes with --partition rows, columns or entries only");
  if (options.mPad != 0 && !dense)
    throw InputError("--ld goes with --format dense-row or dense-col only");
  if (options.mBase != 0 && !IsCompressed(options.mFormat))
    throw InputError("--base goes with --format csr or csc only");
  if (options.mScatter && !dense)
    throw InputError("--scatter goes with --format dense-row or dense-col only");
  if (options.mWithValues) return;
  if (dense) throw InputError("--no-values: a dense matrix consists of its values");
  if (options.mUpdates != 0)
    throw InputError("--no-values and --updates exclude each other: an update sends values");
}

void RefuseAssembled(GatherOptions const& options, std::string const& command) {
  if (IsAssembled(options))
    throw InputError("--partition " + std::string(NameOf(options.mPartition)) + ": " + command +
                     " takes rows, columns, entries, one or all; use pavex gather");
}

}  // namespace Pavex::Tool
