// Opens the input that the options name.

#pragma once

#include "tools/choice/options.h"
#include "tools/ranks/ranks.h"
#include "tools/source/source.h"

#include <memory>

namespace Pavex::Tool {

// Opens the whole input. Throws InputError.
std::unique_ptr<Source> OpenSource(InputOptions const& options);

// Forgets everything except the piece of the rank in this process, if it is the only rank here.
// `isAssembled`: the pieces go to an Assembler, which takes bands of no rows. Throws InputError
// for pieces that cannot be cut.
void KeepOwnPiece(Source& source, CutOptions const& options, Ranks const& ranks,
                  bool isAssembled = false);

}  // namespace Pavex::Tool
