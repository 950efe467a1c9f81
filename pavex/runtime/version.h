// The version of Pavex: of the headers at compile time, of the library at run time.

#pragma once

#include "pavex/runtime/export.h"

// The version of these headers. The build reads it from here, the only place that contains it.
#define PAVEX_VERSION_MAJOR 0
#define PAVEX_VERSION_MINOR 2
#define PAVEX_VERSION_PATCH 0
#define PAVEX_VERSION "0.2.0"

// The version of the library that the program runs with, in the form of PAVEX_VERSION. With a
// shared library it may differ from that of the headers. Local; lives as long as the program.
PAVEX_API char const* PavexVersion() noexcept;

// How the library was built, in one line without a date: version, "static" or "shared", build
// type and compiler, as in "0.2.0, shared, Release, GNU 12.2.0". Local; lives as long as the
// program.
PAVEX_API char const* PavexBuildInfo() noexcept;

namespace Pavex {

using ::PavexBuildInfo;
using ::PavexVersion;

}  // namespace Pavex
