#include "tools/files/line_parser.h"
#include "tools/files/line_reader.h"
#include "tools/source/boeing.h"
#include "tools/source/matrix_market.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace Pavex::Tool {

namespace {

// A word of the banner and its meaning.
template <class E>
struct Choice {
  char const* mWord;
  E mValue;
};

enum class FileFormat { COORDINATE, ARRAY };

constexpr Choice<FileFormat> kFormats[] = {{"coordinate", FileFormat::COORDINATE},
                                           {"array", FileFormat::ARRAY}};
constexpr Choice<Field> kFields[] = {{NameOf(Field::REAL), Field::REAL},
                                     {NameOf(Field::INTEGER), Field::INTEGER},
                                     {NameOf(Field::COMPLEX), Field::COMPLEX},
                                     {NameOf(Field::PATTERN), Field::PATTERN}};
constexpr Choice<Symmetry> kSymmetries[] = {{"general", Symmetry::GENERAL},
                                            {"symmetric", Symmetry::SYMMETRIC},
                                            {"skew-symmetric", Symmetry::SKEW_SYMMETRIC},
                                            {"hermitian", Symmetry::HERMITIAN}};

char const* SymmetryName(Symmetry symmetry) {
  for (Choice<Symmetry> const& choice : kSymmetries) {
    if (choice.mValue == symmetry) return choice.mWord;
  }
  return "";
}

std::string Position(long row, long col) {
  return "(" + std::to_string(row) + ", " + std::to_string(col) + ")";
}

// One reading of one file: banner, size line, entries.
class Reading {
 public:
  Reading(std::string const& path, ProgressFunction const& progress)
      : mReader(path), mProgress(progress) {}

  Triplets Run() {
    ReadBanner();
    ReadSize();
    mMatrix.Reserve(ExpectedEntries());
    if (mMatrix.mDense)
      ReadArray();
    else
      ReadCoordinates();
    CheckEnd();
    return std::move(mMatrix);
  }

  long Count() const { return mCount; }

 private:
  void ReadBanner();
  [[noreturn]] void RefuseOtherFormat();
  bool NextIfReadable(std::string_view& line);
  void CheckBanner();
  template <class E, std::size_t N>
  E ReadChoice(LineParser& parser, char const* what, Choice<E> const (&choices)[N]);

  void ReadSize();
  long StoredArrayValues() const;
  void CheckRoomInFile();
  std::size_t ExpectedEntries() const;

  void ReadCoordinates();
  void ReadArray();
  void CheckEnd();
  // The line of entry number `entry` (0-based).
  LineParser EntryLine(long entry);
  void ReadValue(LineParser& parser, double& real, double& imag);
  void CheckTriangle(long row, long col, double imag);
  void AddWithMirror(long row, long col, double real, double imag);

  LineReader mReader;
  ProgressFunction const& mProgress;
  Triplets mMatrix;
  long mCount = 0;  // entries that the file stores
};

template <class E, std::size_t N>
E Reading::ReadChoice(LineParser& parser, char const* what, Choice<E> const (&choices)[N]) {
  std::string const word = parser.Word(what);
  std::string known;
  for (Choice<E> const& choice : choices) {
    if (word == choice.mWord) return choice.mValue;
    known += (known.empty() ? "" : ", ") + std::string(choice.mWord);
  }
  mReader.Fail("unknown " + std::string(what) + " " + Quoted(word) + ", known: " + known);
}

void Reading::ReadBanner() {
  std::string_view line;
  if (!mReader.Next(line)) mReader.Fail("the file is empty");
  LineParser parser(mReader, line);
  if (line.empty() || line.front() != '%' || parser.Word("banner") != "%%matrixmarket")
    RefuseOtherFormat();
  if (std::string const object = parser.Word("object"); object != "matrix")
    mReader.Fail("unknown object " + Quoted(object) + ", known: matrix");
  mMatrix.mDense = ReadChoice(parser, "format", kFormats) == FileFormat::ARRAY;
  mMatrix.mField = ReadChoice(parser, "field", kFields);
  mMatrix.mSymmetry = ReadChoice(parser, "symmetry", kSymmetries);
  parser.End("the banner");
  CheckBanner();
}

// Refuses a file in another format, which its first lines show. Call it after the first line.
void Reading::RefuseOtherFormat() {
  std::string second;
  std::string_view third;
  bool const hasThree = NextIfReadable(third) && (second = third, NextIfReadable(third));
  char const* const boeing = hasThree ? BoeingFormat(second, third) : nullptr;
  if (boeing != nullptr)
    mReader.FailAt(1, std::string("this is a ") + boeing +
                          " file, and pavex reads Matrix Market files only: convert it first");
  mReader.FailAt(1, "a Matrix Market file begins with \"%%MatrixMarket\"");
}

// Like LineReader::Next, except that a line that cannot be read counts as the end of the file.
bool Reading::NextIfReadable(std::string_view& line) {
  try {
    return mReader.Next(line);
  } catch (InputError const&) {
    return false;
  }
}

void Reading::CheckBanner() {
  if (mMatrix.mDense && mMatrix.mField == Field::PATTERN)
    mReader.Fail("the array format has values, so the field cannot be pattern");
  if (mMatrix.mSymmetry == Symmetry::SKEW_SYMMETRIC && mMatrix.mField == Field::PATTERN)
    mReader.Fail("a pattern has no sign, so it cannot be skew-symmetric");
  if (mMatrix.mSymmetry == Symmetry::HERMITIAN && mMatrix.mField != Field::COMPLEX)
    mReader.Fail("a hermitian matrix has the field complex");
}

void Reading::ReadSize() {
  std::string_view line;
  do {
    if (!mReader.NextFilled(line)) mReader.Fail("the file ends before the size line");
  } while (line.front() == '%');

  LineParser parser(mReader, line);
  mMatrix.mRows = parser.Integer("number of rows", 0, kMaxExtent);
  mMatrix.mCols = parser.Integer("number of columns", 0, kMaxExtent);
  if (mMatrix.mSymmetry != Symmetry::GENERAL && mMatrix.mRows != mMatrix.mCols)
    mReader.Fail("a " + std::string(SymmetryName(mMatrix.mSymmetry)) +
                 " matrix is square, not " + std::to_string(mMatrix.mRows) + " x " +
                 std::to_string(mMatrix.mCols));
  mCount = mMatrix.mDense
               ? StoredArrayValues()
               : parser.Integer("number of entries", 0, std::numeric_limits<long>::max());
  parser.End("the size line");
  if (mCount > 0 && (mMatrix.mRows == 0 || mMatrix.mCols == 0))
    mReader.Fail("a matrix without rows or columns has no entries");
  CheckRoomInFile();
}

// The lower triangle of a matrix with symmetry, the diagonal excluded if it is zero.
long Reading::StoredArrayValues() const {
  long const rows = mMatrix.mRows;
  switch (mMatrix.mSymmetry) {
    case Symmetry::GENERAL:
      return rows * mMatrix.mCols;
    case Symmetry::SKEW_SYMMETRIC:
      return rows * (rows - 1) / 2;
    case Symmetry::SYMMETRIC:
    case Symmetry::HERMITIAN:
      break;
  }
  return rows * (rows + 1) / 2;
}

void Reading::CheckRoomInFile() {
  // So many entries fit into any memory; a shorter file fails at the line where something is
  // missing.
  constexpr long kHarmless = 1 << 20;
  if (!mReader.KnowsSize() || mCount <= kHarmless) return;
  long const indexBytes = mMatrix.mDense ? 0 : 4;  // "1 1" and a line end or a blank
  long const valueBytes = mMatrix.mField == Field::PATTERN   ? 0
                          : mMatrix.mField == Field::COMPLEX ? 4
                                                             : 2;
  // The last line may have no line end. An array is not a pattern, so the sum is not 0.
  if (mCount > (mReader.BytesLeft() + 1) / (indexBytes + valueBytes))  // NOLINT
    mReader.Fail("a file of " + std::to_string(mReader.FileBytes()) + " bytes cannot hold " +
                 std::to_string(mCount) + " entries");
}

// The number of entries to reserve memory for. A pipe may announce any number, so that is
// limited.
std::size_t Reading::ExpectedEntries() const {
  constexpr long kBelieved = 1 << 20;
  long const stored = mReader.KnowsSize() ? mCount : std::min(mCount, kBelieved);
  return static_cast<std::size_t>(stored) * (mMatrix.mSymmetry == Symmetry::GENERAL ? 1 : 2);
}

LineParser Reading::EntryLine(long entry) {
  constexpr long kBetweenReports = 1 << 16;
  if (mProgress && entry % kBetweenReports == 0)
    mProgress(static_cast<double>(entry) / static_cast<double>(mCount));
  std::string_view line;
  if (!mReader.NextFilled(line))
    mReader.Fail("the file ends after " + std::to_string(entry) + " of " +
                 std::to_string(mCount) + " entries");
  if (line.front() == '%') mReader.Fail("a comment after the size line");
  return {mReader, line};
}

void Reading::ReadValue(LineParser& parser, double& real, double& imag) {
  switch (mMatrix.mField) {
    case Field::PATTERN:
      break;
    case Field::INTEGER:
      real = parser.IntegerNumber("value");
      break;
    case Field::REAL:
      real = parser.Number("value");
      break;
    case Field::COMPLEX:
      real = parser.Number("real part");
      imag = parser.Number("imaginary part");
      break;
  }
}

void Reading::ReadCoordinates() {
  for (long entry = 0; entry < mCount; ++entry) {
    LineParser parser = EntryLine(entry);
    long const row = parser.Integer("row", 1, mMatrix.mRows);
    long const col = parser.Integer("column", 1, mMatrix.mCols);
    double real = 1;
    double imag = 0;
    ReadValue(parser, real, imag);
    parser.End("the entry");
    CheckTriangle(row, col, imag);
    AddWithMirror(row - 1, col - 1, real, imag);
  }
}

void Reading::ReadArray() {
  bool const general = mMatrix.mSymmetry == Symmetry::GENERAL;
  long const belowDiagonal = mMatrix.mSymmetry == Symmetry::SKEW_SYMMETRIC ? 1 : 0;
  long entry = 0;
  for (long col = 0; col < mMatrix.mCols; ++col) {
    for (long row = general ? 0 : col + belowDiagonal; row < mMatrix.mRows; ++row) {
      LineParser parser = EntryLine(entry++);
      double real = 0;
      double imag = 0;
      ReadValue(parser, real, imag);
      parser.End("the value");
      CheckTriangle(row + 1, col + 1, imag);
      AddWithMirror(row, col, real, imag);
    }
  }
}

// `row` and `col` as in the file, 1-based.
void Reading::CheckTriangle(long row, long col, double imag) {
  Symmetry const symmetry = mMatrix.mSymmetry;
  if (symmetry == Symmetry::GENERAL || row > col) return;
  if (row < col)
    mReader.Fail("entry " + Position(row, col) + " lies above the diagonal of a " +
                 SymmetryName(symmetry) + " matrix");
  if (symmetry == Symmetry::SKEW_SYMMETRIC)
    mReader.Fail("diagonal entry " + Position(row, col) + " in a skew-symmetric matrix");
  if (symmetry == Symmetry::HERMITIAN && imag != 0)
    mReader.Fail("diagonal entry " + Position(row, col) +
                 " of a hermitian matrix has an imaginary part");
}

void Reading::AddWithMirror(long row, long col, double real, double imag) {
  mMatrix.Add(row, col, real, imag);
  if (row == col) return;
  switch (mMatrix.mSymmetry) {
    case Symmetry::GENERAL:
      break;
    case Symmetry::SYMMETRIC:
      mMatrix.Add(col, row, real, imag);
      break;
    case Symmetry::SKEW_SYMMETRIC:
      mMatrix.Add(col, row, -real, -imag);
      break;
    case Symmetry::HERMITIAN:
      mMatrix.Add(col, row, real, -imag);
      break;
  }
}

void Reading::CheckEnd() {
  std::string_view line;
  if (mReader.NextFilled(line))
    mReader.Fail(line.front() == '%' ? "a comment after the size line"
                                     : "a surplus line after the " + std::to_string(mCount) +
                                           " entries that the size line announces");
}

}  // namespace

Triplets ReadMatrixMarket(std::string const& path, ProgressFunction const& progress) {
  Reading reading(path, progress);
  try {
    return reading.Run();
  } catch (std::bad_alloc const&) {
    throw InputError(path + ": not enough memory for " + std::to_string(reading.Count()) +
                     " entries");
  }
}

}  // namespace Pavex::Tool
