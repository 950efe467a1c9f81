#include "pavex/runtime/version.h"

char const* PavexVersion() noexcept {
  return PAVEX_VERSION;
}

char const* PavexBuildInfo() noexcept {
  return PAVEX_VERSION ", " PAVEX_LIBRARY_KIND ", " PAVEX_BUILD_TYPE ", " PAVEX_COMPILER;
}
