#include "tools/source/open_source.h"

#include "tools/cut/pieces.h"

namespace Pavex::Tool {

std::unique_ptr<Source> OpenSource(InputOptions const& options) {
  return options.mFile.empty() ? OpenGenerator(options.mGenerate) : OpenFile(options.mFile);
}

void KeepOwnPiece(Source& source, CutOptions const& options, Ranks const& ranks) {
  if (ranks.Kind() != CommKind::LOCAL)
    source.Keep(CutPiece(source.Whole(), options, ranks.Count(), ranks.FirstHere()));
}

}  // namespace Pavex::Tool
