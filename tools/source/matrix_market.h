// Reads and writes Matrix Market files (.mtx) strictly. It refuses what the format does not
// allow, and names the line and the fault. It writes a file whole or not at all.

#pragma once

#include "tools/choice/input_error.h"
#include "tools/files/output_file.h"
#include "tools/files/progress.h"
#include "tools/source/triplets.h"

#include <complex>
#include <string>

namespace Pavex::Tool {

// Reads `path`: coordinate or array; real, integer, complex or pattern; general, symmetric,
// skew-symmetric or Hermitian. Comments are allowed only before the size line, blank lines
// anywhere after the banner. Lines may end in CR LF. Words of the banner may be in upper case.
// Numbers may have a leading plus and a D exponent, as Fortran programs write them. Entries
// appear in the order of the file, each mirrored entry right after its original. Values too
// small for a double become 0.
//
// Throws InputError with "path:line: fault" (or "path: fault" where no line is to blame) for
// anything else, before it reserves memory that a file of this size could not fill.
Triplets ReadMatrixMarket(std::string const& path, ProgressFunction const& progress = {});

// Writes one general matrix, entry by entry, into an OutputFile, which Commit completes. Values
// keep their full precision: reading gives the same bits. Throws InputError with "path: fault",
// a full disk included. Not shared between threads.
class MatrixMarketWriter {
 public:
  // Coordinate format: exactly `entries` calls of Entry follow. Integer values are given as
  // double.
  static MatrixMarketWriter Coordinate(std::string const& path, Field field, long rows,
                                       long cols, long entries);
  // Array format: exactly rows * cols calls of Value follow, column by column.
  static MatrixMarketWriter Array(std::string const& path, Field field, long rows, long cols);

  MatrixMarketWriter(MatrixMarketWriter const&) = delete;
  MatrixMarketWriter& operator=(MatrixMarketWriter const&) = delete;

  // Appends the entry at the 0-based position; without a value for Field::PATTERN.
  void Entry(long row, long col);
  void Entry(long row, long col, float value);
  void Entry(long row, long col, double value);
  void Entry(long row, long col, std::complex<float> value);
  void Entry(long row, long col, std::complex<double> value);

  void Value(float value);
  void Value(double value);
  void Value(std::complex<float> value);
  void Value(std::complex<double> value);

  // Ends the file and gives it its name.
  void Commit();

 private:
  MatrixMarketWriter(std::string const& path, Field field, long entries, std::string header);

  void BeginEntry(long row, long col);
  template <class V>
  void Write(long row, long col, V value);
  template <class R>
  void WriteLine(R value);
  template <class R>
  void WriteLine(std::complex<R> value);
  void AppendInteger(long value);
  template <class R>
  void AppendNumber(R value);
  void EndLine();
  void Flush();

  OutputFile mFile;
  Field mField;
  long mEntriesLeft;  // of those that the header announces
  std::string mText;  // not yet written to the file
};

// Writes the entries in coordinate general format with the field of `matrix`.
void WriteMatrixMarket(std::string const& path, Triplets const& matrix);

}  // namespace Pavex::Tool
