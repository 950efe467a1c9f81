// A program with three threads as ranks. It links Pavex::local.

#include "gather.h"

#include <atomic>
#include <cstdio>

#include <pavex/comm/local_comm.h>

int main() {
  std::atomic<int> right{0};
  Pavex::LocalComm::Run(3, [&right](std::shared_ptr<Pavex::Comm> const& comm) {
    if (GatherIsRight(comm)) ++right;
  });
  if (!VersionIsRight() || right != 3) return 1;
  std::printf("local: right on %d ranks\n", right.load());
}
