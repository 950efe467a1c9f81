// The source of the matrix's entries: a file or a generator.

#pragma once

#include "tools/cut/pieces.h"
#include "tools/files/progress.h"
#include "tools/source/triplets.h"

#include <memory>
#include <string>
#include <vector>

namespace Pavex::Tool {

// Immutable except for Keep, so threads share it.
class Source {
 public:
  virtual ~Source() = default;

  // The file's name or the generator's description.
  std::string const& Name() const { return mName; }
  Extent const& Whole() const { return mWhole; }
  Field Kind() const { return mField; }

  // The entries of `piece` in the order of the source, with global indices.
  virtual Triplets Cut(Piece const& piece, ProgressFunction const& progress) const = 0;

  // The entries of the rows [begin, end), row by row, entries of one row in the order of the
  // source. Does not go through Cut, so that what was cut can be checked against it.
  virtual Triplets Rows(long begin, long end) const = 0;

  // The number of entries in the rows [begin, end), and in each band of columns between two
  // neighbours of `bounds`; a generator counts most of them without making them.
  virtual long CountRows(long begin, long end) const;
  virtual std::vector<long> CountCols(std::vector<long> const& bounds) const;

  // Forgets the entries outside `piece`, for a process that holds no other piece and receives
  // nothing. From then on, only `piece` can be cut, and Rows returns what lies inside it.
  virtual void Keep(Piece const& piece) = 0;

 protected:
  std::string mName;
  Extent mWhole;
  Field mField = Field::REAL;
};

// Reads the file whole. Throws InputError.
std::unique_ptr<Source> OpenFile(std::string const& path);

// `description` is KIND:SIZE as the generators know it; nothing is generated yet. Throws
// InputError.
std::unique_ptr<Source> OpenGenerator(std::string const& description);

}  // namespace Pavex::Tool
