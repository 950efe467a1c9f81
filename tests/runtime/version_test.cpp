#include "pavex/pavex.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::string Dotted(int major, int minor, int patch) {
  return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

// The compiler of this test, which also compiled the library.
std::string ThisCompiler() {
#if defined(__clang__)
  return "Clang " + Dotted(__clang_major__, __clang_minor__, __clang_patchlevel__);
#else
  return "GNU " + Dotted(__GNUC__, __GNUC_MINOR__, __GNUC_PATCHLEVEL__);
#endif
}

TEST(Version, StringIsMadeOfTheThreeNumbers) {
  EXPECT_EQ(PAVEX_VERSION,
            Dotted(PAVEX_VERSION_MAJOR, PAVEX_VERSION_MINOR, PAVEX_VERSION_PATCH));
}

TEST(Version, OfTheBuildIsThatOfTheHeaders) {
  EXPECT_STREQ(PROJECT_VERSION, PAVEX_VERSION);
}

TEST(Version, OfTheLibraryIsThatOfItsHeaders) {
  EXPECT_STREQ(PavexVersion(), PAVEX_VERSION);
}

TEST(Version, BuildInfoStatesVersionKindBuildTypeAndCompiler) {
  std::string const expected =
      PAVEX_VERSION ", " LIBRARY_KIND ", " BUILD_TYPE ", " + ThisCompiler();

  EXPECT_EQ(PavexBuildInfo(), expected);
}

TEST(Version, IsVisibleInTheNamespaceToo) {
  EXPECT_EQ(Pavex::PavexVersion(), PavexVersion());
  EXPECT_EQ(Pavex::PavexBuildInfo(), PavexBuildInfo());
}

}  // namespace
