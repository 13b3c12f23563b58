#pragma once

// The kernel refusing one socket option. The test executable that links SocketFaults.cpp
// puts its own setsockopt in front of the C library's: calls pass straight through, except
// the next one that sets the option armed here, which fails with the error number given.

namespace lcfd::test {

// The next setsockopt(…, level, option, …) fails with `errorNumber`; later ones pass again.
void failNextSocketOption(int level, int option, int errorNumber);

// Whether an armed failure has not happened yet.
bool socketOptionFailurePending();

}  // namespace lcfd::test
