// The matrix of the benchmarks: the 7-point operator on a cube of n x n x n points.

#pragma once

#include "pavex/matrix/csr.h"

#include <vector>

namespace Pavex::Bench {

// The row band of one of `ranks` processes, in compressed rows with global columns. All bands
// have about as many rows.
struct SevenPointBand {
  long points;  // rows and columns of the whole
  long begin;   // the first row of the band
  std::vector<int> ptr{0};
  std::vector<int> col;
  std::vector<double> values;
  MatrixCSR<double, int> csr;  // borrows the three arrays

  SevenPointBand(long n, int rank, int ranks)
      : points(n * n * n), begin(points * rank / ranks) {
    long const end = points * (rank + 1) / ranks;
    for (long i = begin; i < end; ++i)
      AppendRow(n, i);
    csr = MatrixCSR<double, int>::Borrow(end - begin, points, ptr.data(), col.data(),
                                         values.data());
    csr.PlaceIn(points, points, MatrixPartition::RowWise(begin));
  }

 private:
  void AppendRow(long n, long i) {
    long const x = i % n;
    long const y = i / n % n;
    long const z = i / (n * n);
    long const neighbours[] = {
        z > 0 ? i - n * n : -1, y > 0 ? i - n : -1,     x > 0 ? i - 1 : -1,        i,
        x + 1 < n ? i + 1 : -1, y + 1 < n ? i + n : -1, z + 1 < n ? i + n * n : -1};
    for (long const j : neighbours) {
      if (j < 0) continue;
      col.push_back(static_cast<int>(j));
      values.push_back(i == j ? 6.0 : -1.0);
    }
    ptr.push_back(static_cast<int>(col.size()));
  }
};

}  // namespace Pavex::Bench
