// Memory that runs out, for the tests of LocalComm.

#pragma once

namespace Pavex {

// Makes the `nth` call of operator new on this thread, counted from now on, throw
// std::bad_alloc. It throws after a short wait, in which other threads go on. 0: no call
// throws.
void FailNewAt(int nth);

}  // namespace Pavex
