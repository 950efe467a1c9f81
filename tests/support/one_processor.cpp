// Keeps a test binary on the processor on which it starts. Its ranks are threads that wait
// for each other all the time, and to wake one on another processor, asleep by then, takes
// ten times as long, on virtual machines above all.

#include <sched.h>

namespace {

#ifndef __SANITIZE_THREAD__  // which is to see them side by side
[[maybe_unused]] bool const isKept = [] {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  return sched_setaffinity(0, sizeof one, &one) == 0;
}();
#endif

}  // namespace
