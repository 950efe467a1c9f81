#include "tools/source/open_source.h"

#include "tools/cut/pieces.h"

namespace Pavex::Tool {

std::unique_ptr<Source> OpenSource(GatherOptions const& options, Ranks const& ranks,
                                   bool whole) {
  auto source =
      options.mFile.empty() ? OpenGenerator(options.mGenerate) : OpenFile(options.mFile);
  if (!whole && ranks.Kind() == CommKind::MPI)
    source->Keep(CutPiece(source->Whole(), options.mPartition, ranks.Count(), ranks.FirstHere(),
                          options.mHolder, options.mCuts));
  return source;
}

std::unique_ptr<Source> OpenToCount(GatherOptions const& options) {
  if (!options.mFile.empty()) return OpenFile(options.mFile);
  return OpenGenerator(options.mGenerate, EntryLimit::NONE);
}

}  // namespace Pavex::Tool
