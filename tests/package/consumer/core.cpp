// A program of one process. It links Pavex::pavex only.

#include "gather.h"

#include <cstdio>

int main() {
  if (!VersionIsRight() || !GatherIsRight(std::make_shared<Pavex::SelfComm>())) return 1;
  std::printf("core: right, %s\n", PavexBuildInfo());
}
