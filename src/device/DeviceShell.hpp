#pragma once

#include <string>

namespace lcfd {

// What the shell answers when it cannot be started.
constexpr const char* kPopenFailed = "ERROR::popen";
// One read of at most this many bytes is made from a command's output.
constexpr int kCommandOutputReadLimit = 511;  // fgets size; at most 510 bytes are read

// The first word of `text` as a formatted stream reads it: leading blanks, tabs, line feeds,
// carriage returns, vertical tabs and form feeds are skipped; the word ends before the next.
std::string firstWord(const std::string& text);

// The daemon knows the device only through the device's own tools, run as shell command
// lines. Every reading and every change goes through this one interface, so that a test can
// stand in for the board: answer queries, record the lines, or fail.
class DeviceShell {
  public:
    virtual ~DeviceShell() = default;
    // Runs a command line and answers its first output line (or the first word of it), the
    // empty text, or "ERROR::popen" when the shell cannot be started.
    virtual std::string query(const std::string& command, bool firstWordOnly) = 0;
    // Runs a command line for its effect; true when it ended with status 0.
    virtual bool run(const std::string& command) = 0;
};

// The board's real shell: popen for queries, system for changes.
class SystemShell final : public DeviceShell {
  public:
    std::string query(const std::string& command, bool firstWordOnly) override;
    bool run(const std::string& command) override;
};

// The one real shell of the process.
DeviceShell& systemShell();

}  // namespace lcfd
