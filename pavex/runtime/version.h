// Which Pavex this is: of the headers at compile time, of the library at run time.

#pragma once

#include "pavex/runtime/export.h"

// Of these headers. The build reads them from here, so this is the one place that holds them.
#define PAVEX_VERSION_MAJOR 0
#define PAVEX_VERSION_MINOR 1
#define PAVEX_VERSION_PATCH 0
#define PAVEX_VERSION "0.1.0"

// The version of the library that the program runs with, as PAVEX_VERSION is written. With a
// shared library it may be another than that of the headers. Local; lives as long as the
// program.
PAVEX_API char const* PavexVersion() noexcept;

// How the library was built, in one line without a date: version, "static" or "shared", build
// type and compiler, as in "0.1.0, shared, Release, GNU 12.2.0". Local; lives as long as the
// program.
PAVEX_API char const* PavexBuildInfo() noexcept;

namespace Pavex {

using ::PavexBuildInfo;
using ::PavexVersion;

}  // namespace Pavex
