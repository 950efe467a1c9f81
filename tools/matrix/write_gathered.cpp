#include "tools/matrix/write_gathered.h"

#include "pavex/matrix/instances.h"
#include "tools/matrix/elements.h"

#include <complex>
#include <type_traits>

namespace Pavex::Tool {

namespace {

template <typename T>
constexpr Field kField = std::is_floating_point_v<T> ? Field::REAL : Field::COMPLEX;

// Writes the array format, which stores a matrix column by column.
template <typename T, typename I>
void WriteColumns(MatrixMarketWriter& writer, Elements<T, I> const& elements) {
  for (long col = 0; col < elements.mCols; ++col)
    for (long row = 0; row < elements.mRows; ++row)
      writer.Value(elements.mValues[elements.mLayout.At(row, col)]);
}

template <typename T, typename I>
void WriteEntries(MatrixMarketWriter& writer, Elements<T, I> const& elements) {
  ForEachElement(elements, [&](long row, long col, std::size_t k) {
    if (elements.mValues == nullptr)
      writer.Entry(row, col);
    else
      writer.Entry(row, col, elements.mValues[k]);
  });
}

}  // namespace

template <typename T, typename I>
std::unique_ptr<MatrixMarketWriter> WriteGathered(std::string const& path,
                                                  MatrixBase const& gathered) {
  Elements<T, I> const elements(gathered);
  long const rows = elements.mRows;
  long const cols = elements.mCols;
  if (elements.mDense) {
    std::unique_ptr<MatrixMarketWriter> writer(
        new MatrixMarketWriter(MatrixMarketWriter::Array(path, kField<T>, rows, cols)));
    WriteColumns(*writer, elements);
    return writer;
  }
  Field const field = gathered.HasValues() ? kField<T> : Field::PATTERN;
  std::unique_ptr<MatrixMarketWriter> writer(new MatrixMarketWriter(
      MatrixMarketWriter::Coordinate(path, field, rows, cols, gathered.NNZ())));
  WriteEntries(*writer, elements);
  return writer;
}

#define PAVEX_WRITE(T, I)                                                              \
  template std::unique_ptr<MatrixMarketWriter> WriteGathered<T, I>(std::string const&, \
                                                                   MatrixBase const&);
PAVEX_FOR_EACH_INSTANCE(PAVEX_WRITE)
#undef PAVEX_WRITE

}  // namespace Pavex::Tool
