// Keeps a test binary on the processor on which it starts. Its ranks are threads that often
// wait for each other. To wake a thread on another processor, which sleeps by then, takes ten
// times as long, mostly on virtual machines.

#include <sched.h>

namespace {

#ifndef __SANITIZE_THREAD__  // ThreadSanitizer needs threads that run at the same time
[[maybe_unused]] bool const isKept = [] {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  return sched_setaffinity(0, sizeof one, &one) == 0;
}();
#endif

}  // namespace
