#include "tools/source/matrix_market.h"

#include <charconv>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace Pavex::Tool {

namespace {

constexpr std::size_t kFlushBytes = 1 << 20;

std::string Banner(char const* format, Field field) {
  return std::string("%%MatrixMarket matrix ") + format + " " + NameOf(field) + " general\n";
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

MatrixMarketWriter::MatrixMarketWriter(std::string const& path, Field field, long entries,
                                       std::string header)
    : mFile(path), mField(field), mEntriesLeft(entries), mText(std::move(header)) {}

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
  if (!std::isfinite(value)) mFile.Fail("the format has no infinite values and no NaN");
  char digits[400];  // the largest double has 309 digits
  auto const end = mField == Field::INTEGER ? std::to_chars(digits, std::end(digits), value,
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
  mFile.Write(mText);
  mText.clear();
}

void MatrixMarketWriter::Commit() {
  if (mEntriesLeft != 0)
    throw std::logic_error("the header announces another number of entries than were written");
  Flush();
  mFile.Commit();
}

void WriteMatrixMarket(std::string const& path, Triplets const& matrix) {
  auto writer = MatrixMarketWriter::Coordinate(path, matrix.mField, matrix.mRows, matrix.mCols,
                                               static_cast<long>(matrix.Entries()));
  for (std::size_t i = 0; i < matrix.Entries(); ++i) {
    if (matrix.mField == Field::PATTERN)
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
