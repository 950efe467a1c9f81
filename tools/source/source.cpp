#include "tools/source/source.h"

#include "tools/source/generate.h"
#include "tools/source/matrix_market.h"
#include "tools/source/row_order.h"

#include <algorithm>
#include <filesystem>
#include <vector>

namespace Pavex::Tool {

namespace {

template <typename V>
void Trim(std::vector<V>& values, long begin, long end) {
  values.erase(values.begin() + end, values.end());
  values.erase(values.begin(), values.begin() + begin);
}

class FileSource final : public Source {
 public:
  explicit FileSource(std::string const& path) {
    std::string const name = std::filesystem::path(path).filename().string();
    Progress progress("reading " + name);
    mMatrix = ReadMatrixMarket(path, progress.Function());
    mName = path;
    mField = mMatrix.mField;
    mWhole = {mMatrix.mRows, mMatrix.mCols, static_cast<long>(mMatrix.Entries())};
    OrderRows();
  }

  Triplets Cut(Piece const& piece, ProgressFunction const&) const override {
    Triplets cut = Empty();
    bool const allInside = piece.Rows() == mWhole.mRows && piece.Cols() == mWhole.mCols;
    long const begin = mIsPiece ? 0 : piece.mEntryBegin;
    long const end = mIsPiece ? static_cast<long>(mMatrix.Entries()) : piece.mEntryEnd;
    if (allInside) cut.Reserve(static_cast<std::size_t>(end - begin));
    for (long k = begin; k < end; ++k) {
      auto const at = static_cast<std::size_t>(k);
      long const row = mMatrix.mRow[at];
      long const col = mMatrix.mCol[at];
      if (row >= piece.mRowBegin && row < piece.mRowEnd && col >= piece.mColBegin &&
          col < piece.mColEnd)
        Copy(at, cut);
    }
    return cut;
  }

  Triplets Rows(long begin, long end) const override {
    std::size_t const last = FirstOf(end);
    Triplets rows = Empty();
    for (std::size_t place = FirstOf(begin); place != last; ++place)
      Copy(mByRow[place], rows);
    return rows;
  }

  void Keep(Piece const& piece) override {
    mMatrix = Cut(piece, {});
    mIsPiece = true;
    OrderRows();
  }

 private:
  void OrderRows() {
    mByRow = OrderByRow(mMatrix.Entries(), mWhole.mRows,
                        [this](std::size_t k) { return mMatrix.mRow[k]; });
  }

  // The place in mByRow of the first entry in `row` or below it.
  std::size_t FirstOf(long row) const {
    std::size_t first = 0;
    for (std::size_t end = mByRow.Size(); first < end;) {
      std::size_t const middle = first + (end - first) / 2;
      if (mMatrix.mRow[mByRow[middle]] < row)
        first = middle + 1;
      else
        end = middle;
    }
    return first;
  }

  Triplets Empty() const {
    Triplets empty;
    empty.mRows = mMatrix.mRows;
    empty.mCols = mMatrix.mCols;
    empty.mField = mMatrix.mField;
    empty.mSymmetry = mMatrix.mSymmetry;
    empty.mDense = mMatrix.mDense;
    return empty;
  }

  void Copy(std::size_t k, Triplets& to) const {
    to.Add(mMatrix.mRow[k], mMatrix.mCol[k], mMatrix.mReal[k],
           mMatrix.IsComplex() ? mMatrix.mImag[k] : 0);
  }

  Triplets mMatrix;
  bool mIsPiece = false;  // mMatrix has lost what lies outside one piece
  EntryNumbers mByRow;    // of the entries
};

class GeneratorSource final : public Source {
 public:
  explicit GeneratorSource(std::string const& description) : mGenerator(description) {
    mName = description;
    mWhole = {mGenerator.Rows(), mGenerator.Cols(), mGenerator.Entries()};
  }

  Triplets Cut(Piece const& piece, ProgressFunction const& progress) const override {
    if (piece.Rows() == 0 || piece.Cols() == 0) return mGenerator.Empty();
    if (piece.Cols() != mWhole.mCols) {
      Triplets cut = mGenerator.Empty();
      mGenerator.AppendCols(piece.mColBegin, piece.mColEnd, cut, progress);
      return cut;
    }
    if (piece.mEntryBegin != 0 || piece.mEntryEnd != mWhole.mEntries)
      return CutEntries(piece.mEntryBegin, piece.mEntryEnd, progress);
    Triplets cut = mGenerator.Empty();
    mGenerator.AppendRows(piece.mRowBegin, piece.mRowEnd, cut, progress);
    return cut;
  }

  Triplets Rows(long begin, long end) const override {
    Triplets rows = mGenerator.Empty();
    mGenerator.AppendRows(begin, end, rows);
    return rows;
  }

  long CountRows(long begin, long end) const override { return mGenerator.Entries(begin, end); }

  // The pattern of a grid is symmetric, and a dense matrix has its columns full.
  std::vector<long> CountCols(std::vector<long> const& bounds) const override {
    if (mGenerator.Axes() == 0 && !mGenerator.IsDense()) return Source::CountCols(bounds);
    std::vector<long> counts;
    for (std::size_t band = 0; band + 1 < bounds.size(); ++band)
      counts.push_back(mGenerator.IsDense()
                           ? (bounds[band + 1] - bounds[band]) * mWhole.mRows
                           : mGenerator.Entries(bounds[band], bounds[band + 1]));
    return counts;
  }

  void Keep(Piece const&) override {}  // a generator holds nothing

 private:
  // Makes the rows that contain the entries [begin, end), and drops the other entries of the
  // first and the last row.
  Triplets CutEntries(long begin, long end, ProgressFunction const& progress) const {
    long row = 0;
    long before = 0;  // entries above `row`
    for (long next; (next = before + mGenerator.Entries(row, row + 1)) <= begin; ++row)
      before = next;
    long const firstRow = row;
    long const tooMany = begin - before;
    while (before < end) {
      before += mGenerator.Entries(row, row + 1);
      ++row;
    }
    Triplets cut = mGenerator.Empty();
    mGenerator.AppendRows(firstRow, row, cut, progress);
    Trim(cut.mRow, tooMany, tooMany + end - begin);
    Trim(cut.mCol, tooMany, tooMany + end - begin);
    Trim(cut.mReal, tooMany, tooMany + end - begin);
    return cut;
  }

  Generator mGenerator;
};

}  // namespace

long Source::CountRows(long begin, long end) const {
  return static_cast<long>(Rows(begin, end).Entries());
}

std::vector<long> Source::CountCols(std::vector<long> const& bounds) const {
  constexpr long kRowsAtOnce = 1 << 12;
  std::vector<long> counts(bounds.size() - 1);
  for (long row = 0; row < mWhole.mRows; row += kRowsAtOnce) {
    Triplets const rows = Rows(row, std::min(row + kRowsAtOnce, mWhole.mRows));
    for (long const col : rows.mCol) {
      auto const end = std::upper_bound(bounds.begin(), bounds.end(), col);
      ++counts[static_cast<std::size_t>(end - bounds.begin()) - 1];
    }
  }
  return counts;
}

std::unique_ptr<Source> OpenFile(std::string const& path) {
  return std::make_unique<FileSource>(path);
}

std::unique_ptr<Source> OpenGenerator(std::string const& description) {
  return std::make_unique<GeneratorSource>(description);
}

}  // namespace Pavex::Tool
