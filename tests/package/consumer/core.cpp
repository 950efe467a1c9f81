// One process alone: nothing but Pavex::pavex.

#include "gather.h"

#include <cstdio>

int main() {
  if (!VersionIsRight() || !GatherIsRight(std::make_shared<Pavex::SelfComm>())) return 1;
  std::printf("core: right, %s\n", PavexBuildInfo());
}
