#include "pavex/comm/node_key.h"

#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Pavex {

namespace {

std::uint64_t InodeOf(char const* path) {
  struct stat status {};
  return stat(path, &status) == 0 ? status.st_ino : 0;
}

}  // namespace

NodeKey NodeKey::OfProcess() {
  NodeKey key;
  int const file = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
  if (file < 0) return key;
  if (read(file, key.boot, sizeof key.boot - 1) <= 0) key.boot[0] = '\0';
  close(file);
  key.processes = InodeOf("/proc/self/ns/pid");
  key.network = InodeOf("/proc/self/ns/net");
  return key;
}

int NodeKey::Compare(NodeKey const& other) const {
  if (processes != other.processes) return processes < other.processes ? -1 : 1;
  if (network != other.network) return network < other.network ? -1 : 1;
  return std::memcmp(boot, other.boot, sizeof boot);
}

}  // namespace Pavex
