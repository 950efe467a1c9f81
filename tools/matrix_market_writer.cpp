#include "tools/matrix_market.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>

namespace Pavex::Tool {

namespace {

constexpr std::size_t kFlushBytes = 1 << 20;

char const* FieldName(Field field) {
  switch (field) {
    case Field::Real:
      return "real";
    case Field::Integer:
      return "integer";
    case Field::Complex:
      return "complex";
    case Field::Pattern:
      break;
  }
  return "pattern";
}

std::string Banner(char const* format, Field field) {
  return std::string("%%MatrixMarket matrix ") + format + " " + FieldName(field) + " general\n";
}

}  // namespace

MatrixMarketWriter MatrixMarketWriter::Coordinate(std::string const& path, Field field,
                                                  long rows, long cols, long entries) {
  return {path, field, entries,
          Banner("coordinate", field) + std::to_string(rows) + " " + std::to_string(cols) +
              " " + std::to_string(entries) + "\n"};
}

MatrixMarketWriter MatrixMarketWriter::Array(std::string const& path, Field field, long rows,
                                             long cols) {
  return {path, field, rows * cols,
          Banner("array", field) + std::to_string(rows) + " " + std::to_string(cols) + "\n"};
}

MatrixMarketWriter::MatrixMarketWriter(std::string path, Field field, long entries,
                                       std::string header)
    : mPath(std::move(path)), mField(field), mEntriesLeft(entries), mText(std::move(header)) {
  Open();
}

// A symbolic link keeps pointing at the file. A device or a pipe cannot be replaced by another
// file: it is written directly.
void MatrixMarketWriter::Open() {
  std::error_code ignored;
  auto const status = std::filesystem::status(mPath, ignored);
  bool const exists = std::filesystem::exists(status);
  int flags = O_WRONLY | O_CLOEXEC;
  if (!exists || std::filesystem::is_regular_file(status)) {
    mTarget = exists ? std::filesystem::canonical(mPath, ignored).string() : mPath;
    mTemporary = mTarget + "." + std::to_string(getpid()) + ".part";
    flags |= O_CREAT | O_EXCL;
  }
  mFile = open(mTemporary.empty() ? mPath.c_str() : mTemporary.c_str(), flags, 0666);
  if (mFile < 0) {
    mTemporary.clear();  // not ours to remove
    FailSystem();
  }
}

MatrixMarketWriter::~MatrixMarketWriter() {
  if (mFile >= 0) close(mFile);
  if (!mTemporary.empty()) unlink(mTemporary.c_str());
}

void MatrixMarketWriter::Entry(long row, long col) {
  BeginEntry(row, col);
  EndLine();
}

void MatrixMarketWriter::Entry(long row, long col, float value) {
  Write(row, col, value);
}
void MatrixMarketWriter::Entry(long row, long col, double value) {
  Write(row, col, value);
}

void MatrixMarketWriter::Entry(long row, long col, std::complex<float> value) {
  Write(row, col, value);
}

void MatrixMarketWriter::Entry(long row, long col, std::complex<double> value) {
  Write(row, col, value);
}

void MatrixMarketWriter::Value(float value) {
  WriteLine(value);
}
void MatrixMarketWriter::Value(double value) {
  WriteLine(value);
}
void MatrixMarketWriter::Value(std::complex<float> value) {
  WriteLine(value);
}
void MatrixMarketWriter::Value(std::complex<double> value) {
  WriteLine(value);
}

void MatrixMarketWriter::BeginEntry(long row, long col) {
  AppendInteger(row + 1);
  mText += ' ';
  AppendInteger(col + 1);
}

template <class V>
void MatrixMarketWriter::Write(long row, long col, V value) {
  BeginEntry(row, col);
  mText += ' ';
  WriteLine(value);
}

template <class R>
void MatrixMarketWriter::WriteLine(R value) {
  AppendNumber(value);
  EndLine();
}

template <class R>
void MatrixMarketWriter::WriteLine(std::complex<R> value) {
  AppendNumber(value.real());
  mText += ' ';
  AppendNumber(value.imag());
  EndLine();
}

void MatrixMarketWriter::AppendInteger(long value) {
  char digits[24];
  mText.append(digits, std::to_chars(digits, std::end(digits), value).ptr);
}

// The shortest text that reads back to the same bits; an integer goes without exponent.
template <class R>
void MatrixMarketWriter::AppendNumber(R value) {
  if (!std::isfinite(value)) Fail("the format has no infinite values and no NaN");
  char digits[400];  // the largest double has 309 digits
  auto const end = mField == Field::Integer ? std::to_chars(digits, std::end(digits), value,
                                                            std::chars_format::fixed)
                                            : std::to_chars(digits, std::end(digits), value);
  mText.append(digits, end.ptr);
}

void MatrixMarketWriter::EndLine() {
  mText += '\n';
  --mEntriesLeft;
  if (mText.size() >= kFlushBytes) Flush();
}

void MatrixMarketWriter::Flush() {
  char const* next = mText.data();
  std::size_t left = mText.size();
  while (left > 0) {
    ssize_t const written = write(mFile, next, left);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) FailSystem();
    next += written;
    left -= static_cast<std::size_t>(written);
  }
  mText.clear();
}

void MatrixMarketWriter::Commit() {
  if (mEntriesLeft != 0)
    throw std::logic_error("the header announces another number of entries than were written");
  Flush();
  bool const synced = mTemporary.empty() || fsync(mFile) == 0;
  int const syncError = errno;
  bool const closed = close(mFile) == 0;
  mFile = -1;
  if (!synced) errno = syncError;
  if (!synced || !closed) FailSystem();
  if (mTemporary.empty()) return;
  if (rename(mTemporary.c_str(), mTarget.c_str()) != 0) FailSystem();
  mTemporary.clear();
}

void MatrixMarketWriter::Fail(std::string const& fault) const {
  throw InputError(mPath + ": cannot be written: " + fault);
}

void MatrixMarketWriter::FailSystem() const {
  Fail(std::strerror(errno));
}

void WriteMatrixMarket(std::string const& path, Triplets const& matrix) {
  auto writer = MatrixMarketWriter::Coordinate(path, matrix.mField, matrix.mRows, matrix.mCols,
                                               static_cast<long>(matrix.Entries()));
  for (std::size_t i = 0; i < matrix.Entries(); ++i) {
    if (matrix.mField == Field::Pattern)
      writer.Entry(matrix.mRow[i], matrix.mCol[i]);
    else if (matrix.IsComplex())
      writer.Entry(matrix.mRow[i], matrix.mCol[i],
                   std::complex<double>(matrix.mReal[i], matrix.mImag[i]));
    else
      writer.Entry(matrix.mRow[i], matrix.mCol[i], matrix.mReal[i]);
  }
  writer.Commit();
}

}  // namespace Pavex::Tool
