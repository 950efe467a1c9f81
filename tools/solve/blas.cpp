#include "tools/solve/blas.h"

#include "tools/choice/job_error.h"
#include "tools/solve/lu_faults.h"
#include "tools/solve/umfpack_variant.h"

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <sys/mman.h>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace Pavex::Tool {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{129} << 20;  // a buffer and its surroundings

bool HasRoom(std::size_t bytes) {
  void* const block =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return block != MAP_FAILED && munmap(block, bytes) == 0;
}

// Factors a full matrix, so that UMFPACK calls the BLAS.
void FactorSmallMatrix() {
  constexpr int kRows = 16;
  std::vector<int> offsets(kRows + 1);
  constexpr std::size_t kEntries = std::size_t{kRows} * kRows;
  std::vector<int> rows(kEntries);
  std::vector<double> values(kEntries, 1);
  for (int col = 0; col < kRows; ++col) {
    auto const first = col * kRows;
    offsets[static_cast<std::size_t>(col) + 1] = first + kRows;
    std::iota(rows.begin() + first, rows.begin() + first + kRows, 0);
    values[static_cast<std::size_t>(first) + static_cast<std::size_t>(col)] = 2 * kRows;
  }
  using Variant = Umfpack<double, int>;
  void* symbolic = nullptr;
  void* numeric = nullptr;
  bool const done = Variant::Symbolic(kRows, offsets.data(), rows.data(), values.data(),
                                      &symbolic, nullptr, nullptr) == UMFPACK_OK &&
                    Variant::Numeric(offsets.data(), rows.data(), values.data(), symbolic,
                                     &numeric, nullptr, nullptr) == UMFPACK_OK;
  Variant::FreeNumeric(&numeric);
  Variant::FreeSymbolic(&symbolic);
  if (!done) throw JobError(kNoMemory);
}

bool AddressSpaceIsLimited() {
  rlimit limit{};
  return getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

std::mutex oneAtATime;

}  // namespace

void UseOneBlasThread(char** argv) {
  constexpr char const* kVariable = "OPENBLAS_NUM_THREADS";
  if (std::getenv(kVariable) != nullptr || setenv(kVariable, "1", 0) != 0) return;
  std::error_code failed;
  auto const program = std::filesystem::read_symlink("/proc/self/exe", failed);
  if (!failed) execv(program.c_str(), argv);
}

void ReserveBlas() {
  BlasTurn const turn;
  if (!HasRoom(kBufferBytes)) throw JobError(kNoMemory);
  FactorSmallMatrix();
}

BlasTurn::BlasTurn() : mLock(oneAtATime, std::defer_lock) {
  if (AddressSpaceIsLimited()) mLock.lock();
}

}  // namespace Pavex::Tool
