// Memory that runs out, for the tests of LocalComm.

#pragma once

namespace Pavex {

// Lets the `nth` operator new of this thread from now on throw std::bad_alloc, shortly after
// the call, so that threads that have started go on meanwhile; 0: none.
void FailNewAt(int nth);

}  // namespace Pavex
