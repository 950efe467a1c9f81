#include "tools/files/output_file.h"

#include "tests/tools/temporary_folder.h"
#include "tools/files/whole_file.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

mode_t ModeOf(std::string const& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

void WriteFile(std::string const& path, std::string const& text) {
  OutputFile file(path);
  file.Write(text);
  file.Commit();
}

TEST(OutputFile, KeepsThePermissionsOfTheFileThatItReplaces) {
  TemporaryFolder folder;
  std::string const path = folder.Write("x", "older");
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);

  WriteFile(path, "newer");

  EXPECT_EQ(ModeOf(path), 0640U);
  EXPECT_EQ(folder.Read("x"), "newer");
}

TEST(OutputFile, ReplacesWhatASymbolicLinkPointsAt) {
  TemporaryFolder folder;
  folder.Write("target", "older");
  std::filesystem::create_symlink("target", folder.Path("link"));

  WriteFile(folder.Path("link"), "newer");

  EXPECT_EQ(folder.Read("target"), "newer");
  EXPECT_TRUE(std::filesystem::is_symlink(folder.Path("link")));
  EXPECT_THAT(folder.Names(), testing::UnorderedElementsAre("target", "link"));
}

TEST(OutputFile, LeavesNothingWithoutCommit) {
  TemporaryFolder folder;

  { OutputFile(folder.Path("x")).Write("half"); }

  EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(OutputFileDeathTest, LeavesNothingWhenASignalEndsTheProcess) {
  for (int const signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) {
    TemporaryFolder folder;
    folder.Write("x", "older");

    EXPECT_EXIT(
        {
          OutputFile file(folder.Path("x"));
          file.Write("half");
          raise(signal);
        },
        testing::KilledBySignal(signal), "");

    EXPECT_THAT(folder.Names(), ElementsAre("x"));
    EXPECT_EQ(folder.Read("x"), "older");
  }
}

// A process under nohup ignores SIGHUP in this way.
TEST(OutputFileDeathTest, LeavesAnIgnoredSignalIgnored) {
  TemporaryFolder folder;

  EXPECT_EXIT(
      {
        std::signal(SIGHUP, SIG_IGN);
        OutputFile file(folder.Path("x"));
        raise(SIGHUP);
        file.Commit();
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), "");

  EXPECT_THAT(folder.Names(), ElementsAre("x"));
}

TEST(RefuseUnwritable, NamesTheFaultAndChangesNothing) {
  TemporaryFolder folder;
  std::string const good = folder.Write("x", "older");
  std::string const bad = folder.Path("missing/x");

  EXPECT_THAT([&] { RefuseUnwritable(bad); },
              testing::ThrowsMessage<InputError>(
                  bad + ": cannot be written: No such file or directory"));
  EXPECT_THAT([&] { RefuseUnwritable(folder.Path("")); },
              testing::ThrowsMessage<InputError>(
                  testing::EndsWith("cannot be written: Is a directory")));
  RefuseUnwritable("/dev/null");
  RefuseUnwritable(good);
  RefuseUnwritable(folder.Path("y"));

  EXPECT_EQ(folder.Read("x"), "older");
  EXPECT_THAT(folder.Names(), ElementsAre("x"));
}

}  // namespace
}  // namespace Pavex::Tool
