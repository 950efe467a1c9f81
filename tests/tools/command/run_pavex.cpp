#include "run_pavex.h"

#include "tests/tools/temporary_folder.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace Pavex::Tool {

namespace {

CommandResult Run(std::vector<std::string> words, std::vector<std::string> const& arguments) {
  TemporaryFolder folder;
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);

  int const flags = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, folder.Path("out").c_str(), flags,
                                   0600);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, folder.Path("err").c_str(), flags,
                                   0600);
  pid_t child = 0;
  int const error = posix_spawn(&child, argv[0], &files, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  int ending = 0;
  if (error != 0 || waitpid(child, &ending, 0) != child)
    throw std::runtime_error("cannot run " + words[0]);

  CommandResult result;
  if (WIFEXITED(ending)) result.exitCode = WEXITSTATUS(ending);
  result.output = folder.Read("out");
  result.errors = folder.Read("err");
  return result;
}

}  // namespace

CommandResult RunPavex(std::vector<std::string> const& arguments) {
  return Run({PAVEX_COMMAND}, arguments);
}

CommandResult RunPavexWithin(long megabytes, std::vector<std::string> const& arguments) {
  std::string const limit = std::to_string(megabytes * 1000);  // ulimit counts kilobytes
  return Run({"/bin/sh", "-c", "ulimit -v " + limit + " && exec timeout 60 \"$@\"", "sh",
              PAVEX_COMMAND},
             arguments);
}

}  // namespace Pavex::Tool
