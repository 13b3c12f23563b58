#pragma once

#include <string>

namespace lcfd {

// What the runner answers when the shell cannot be started.
constexpr const char* kPopenFailed = "ERROR::popen";
// One read of at most this many bytes is made from a command's output.
constexpr int kCommandOutputReadLimit = 511;  // fgets size; at most 510 bytes are read

// The first word of `text` as a formatted stream reads it: leading blanks, tabs, line feeds,
// carriage returns, vertical tabs and form feeds are skipped; the word ends before the next.
std::string firstWord(const std::string& text);

}  // namespace lcfd
