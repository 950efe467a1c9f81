#include "tools/matrix/write_gathered.h"

#include "pavex/matrix/instances.h"

#include <complex>
#include <type_traits>

namespace Pavex::Tool {

namespace {

template <typename T>
constexpr Field kField = std::is_floating_point_v<T> ? Field::REAL : Field::COMPLEX;

template <typename T>
void WriteEntry(MatrixMarketWriter& writer, long row, long col, T const* value) {
  if (value == nullptr)
    writer.Entry(row, col);
  else
    writer.Entry(row, col, *value);
}

template <typename T, typename I>
void WriteCoo(MatrixMarketWriter& writer, PavexMatrixStore const& store, long entries) {
  auto const* const row = static_cast<I const*>(store.coo.row);
  auto const* const col = static_cast<I const*>(store.coo.col);
  auto const* const values = static_cast<T const*>(store.coo.values);
  for (long k = 0; k < entries; ++k)
    WriteEntry<T>(writer, row[k], col[k], values != nullptr ? values + k : nullptr);
}

template <typename T, typename I>
void WriteCompressed(MatrixMarketWriter& writer, PavexMatrixStore const& store, bool byRows) {
  auto const* const offsets = static_cast<I const*>(store.csr.ptr);
  auto const* const other = static_cast<I const*>(store.csr.idx);
  auto const* const values = static_cast<T const*>(store.csr.values);
  long const count = byRows ? store.rows : store.cols;
  for (long i = 0; i < count; ++i) {
    for (long k = offsets[i] - offsets[0]; k < offsets[i + 1] - offsets[0]; ++k)
      WriteEntry<T>(writer, byRows ? i : other[k], byRows ? other[k] : i,
                    values != nullptr ? values + k : nullptr);
  }
}

template <typename T>
void WriteDense(MatrixMarketWriter& writer, PavexMatrixStore const& store) {
  bool const rowMajor = store.type == STORE_DENSE_ROW_MAJOR;
  auto const* const values = static_cast<T const*>(store.dense.values);
  long const ld = store.dense.ld;
  for (long col = 0; col < store.cols; ++col)
    for (long row = 0; row < store.rows; ++row)
      writer.Value(values[rowMajor ? row * ld + col : col * ld + row]);
}

}  // namespace

template <typename T, typename I>
std::unique_ptr<MatrixMarketWriter> WriteGathered(std::string const& path,
                                                  MatrixBase const& gathered) {
  PavexMatrixStore store;
  gathered.Query(store);
  if (store.type == STORE_DENSE_ROW_MAJOR || store.type == STORE_DENSE_COL_MAJOR) {
    std::unique_ptr<MatrixMarketWriter> writer(new MatrixMarketWriter(
        MatrixMarketWriter::Array(path, kField<T>, store.rows, store.cols)));
    WriteDense<T>(*writer, store);
    return writer;
  }
  long const entries = gathered.NNZ();
  Field const field = gathered.HasValues() ? kField<T> : Field::PATTERN;
  std::unique_ptr<MatrixMarketWriter> writer(new MatrixMarketWriter(
      MatrixMarketWriter::Coordinate(path, field, store.rows, store.cols, entries)));
  if (entries == 0) return writer;
  if (store.type == STORE_COO_0)
    WriteCoo<T, I>(*writer, store, entries);
  else
    WriteCompressed<T, I>(*writer, store, store.type == STORE_CSR_0);
  return writer;
}

#define PAVEX_WRITE(T, I)                                                              \
  template std::unique_ptr<MatrixMarketWriter> WriteGathered<T, I>(std::string const&, \
                                                                   MatrixBase const&);
PAVEX_FOR_EACH_INSTANCE(PAVEX_WRITE)
#undef PAVEX_WRITE

}  // namespace Pavex::Tool
