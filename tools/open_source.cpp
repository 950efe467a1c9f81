#include "tools/open_source.h"

#include "tools/pieces.h"

namespace Pavex::Tool {

std::unique_ptr<Source> OpenSource(GatherOptions const& options, Ranks const& ranks) {
  auto source =
      options.mFile.empty() ? OpenGenerator(options.mGenerate) : OpenFile(options.mFile);
  int const rank = ranks.FirstHere();
  if (ranks.Kind() == CommKind::MPI && rank != 0 && !options.mToAll)
    source->Keep(CutPiece(source->Whole(), options.mPartition, ranks.Count(), rank,
                          options.mHolder, options.mCuts));
  return source;
}

}  // namespace Pavex::Tool
