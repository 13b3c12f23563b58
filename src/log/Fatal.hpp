#pragma once

namespace lcfd {

// The daemon's only ways to end abnormally, so that every one of them is found here.

// A set-up failure the daemon cannot serve without (the service socket cannot be opened,
// configured or bound): writes `text` and the error number in decimal on standard error and
// ends the process with status 1.
[[noreturn]] void exitOnSetupFailure(const char* text, int errorNumber);

// An internal promise was broken (a value that earlier checks rule out): ends the process
// abnormally, at once, without a word.
[[noreturn]] void abortOnBrokenPromise();

}  // namespace lcfd
