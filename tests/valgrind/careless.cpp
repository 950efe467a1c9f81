// A program with two errors in a frame of ours, which frames.sh must see.

#include <cstdio>
#include <cstdlib>
#include <mpi.h>

namespace Pavex {

// Decides by a value that was never set, and loses the memory.
__attribute__((noinline)) int BeCareless() {
  int* volatile values = static_cast<int*>(std::malloc(4 * sizeof(int)));
  if (values == nullptr) return 2;
  return values[1] == 7 ? 1 : 0;
}

}  // namespace Pavex

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  std::printf("%d\n", Pavex::BeCareless());
  MPI_Finalize();
  return 0;
}
