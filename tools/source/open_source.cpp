#include "tools/source/open_source.h"

#include "tools/cut/pieces.h"

namespace Pavex::Tool {

std::unique_ptr<Source> OpenSource(InputOptions const& options) {
  return options.mFile.empty() ? OpenGenerator(options.mGenerate) : OpenFile(options.mFile);
}

void KeepOwnPiece(Source& source, CutOptions const& options, Ranks const& ranks,
                  bool isAssembled) {
  if (ranks.Kind() == CommKind::LOCAL) return;
  int const count = ranks.Count();
  int const rank = ranks.FirstHere();
  source.Keep(isAssembled ? CutRowsOrNone(source.Whole(), options.mCuts, count, rank)
                          : CutPiece(source.Whole(), options, count, rank));
}

}  // namespace Pavex::Tool
