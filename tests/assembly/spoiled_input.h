// A contribution that tests of refusals spoil.

#pragma once

#include "tests/assembly/small_case.h"

#include <string>
#include <vector>

namespace Pavex {

// One valid row of a 4 x 4 matrix on each of 3 ranks, which a test spoils on rank 1.
struct Input {
  AssemblyRequest request;
  std::vector<int> rows = {0, 2};
  std::vector<int> offsets = {0, 1, 2};
  std::vector<int> cols = {1, 3};
  std::vector<int> map = {3, 2, 1, 0};
  std::vector<double> values = {1, 2};
  Own own;

  Input() {
    request.mRows = request.mCols = 4;
    own = Own::Rows(2, rows.data()).Csr(offsets.data(), cols.data(), values.data());
  }
};

// How often `text` occurs in `printed`.
inline int CountOf(std::string const& text, std::string const& printed) {
  int count = 0;
  for (auto at = printed.find(text); at != std::string::npos; at = printed.find(text, at + 1))
    ++count;
  return count;
}

}  // namespace Pavex
