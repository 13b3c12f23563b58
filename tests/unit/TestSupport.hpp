#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "device/DeviceShell.hpp"

namespace lcfd::test {

// What a piece of code wrote to the process's standard output and standard error.
struct CapturedOutput {
    std::string out;
    std::string err;
};

// Runs `action` with file descriptors 1 and 2 redirected to files (both C streams flushed
// before and after), and returns what was written to each.
CapturedOutput captureOutput(const std::function<void()>& action);

// A fresh directory under /tmp, removed with everything in it at the end of the scope.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    // Writes `content` to path()/name (mode 0644, or 0755 when executable) and returns its path.
    std::string writeFile(const std::string& name, const std::string& content,
                          bool executable = false) const;

  private:
    std::string path_;
};

// Puts a directory first on PATH for the scope, so that stand-in tools shadow the system's.
class ScopedPathPrefix {
  public:
    explicit ScopedPathPrefix(const std::string& directory);
    ~ScopedPathPrefix();
    ScopedPathPrefix(const ScopedPathPrefix&) = delete;
    ScopedPathPrefix& operator=(const ScopedPathPrefix&) = delete;

  private:
    std::string previous_;
};

// Runs `action` with file descriptors 1 and 2 both redirected to one file and returns what
// was written, in the order it reached the file (as early as each stream's buffering allows).
std::string captureInterleavedOutput(const std::function<void()>& action);

// Sets an environment variable for the scope (restoring or removing it afterwards) and calls
// tzset both times, so a change of TZ reaches the time conversions at once.
class ScopedEnvironmentVariable {
  public:
    ScopedEnvironmentVariable(const std::string& name, const std::string& value);
    ~ScopedEnvironmentVariable();
    ScopedEnvironmentVariable(const ScopedEnvironmentVariable&) = delete;
    ScopedEnvironmentVariable& operator=(const ScopedEnvironmentVariable&) = delete;

  private:
    std::string name_;
    bool hadValue_ = false;
    std::string previous_;
};

// What a stand-in tool does for one argument text: print `output` on standard output and exit
// with `status`.
struct ToolAnswer {
    std::string output;
    int status = 0;
};

// Executable /bin/sh stand-ins for device tools, in a temporary directory put first on PATH
// for the scope. Every run appends one line to a shared call log: the tool's name and its
// arguments, each after one blank, an argument holding a blank (or empty) in single quotes, so
// "date -u -s '2024-02-29 23:59:59'" reads as it was typed. The answer is chosen by that
// argument text ("-u -s '2024-02-29 23:59:59'"; "" for no arguments); any other argument text
// gets the tool's fallback answer (by default: print nothing, exit 0). TempDir removes its
// directory with the shell's rm: while a stand-in rm is on PATH, capture output by other means.
class StandInTools {
  public:
    StandInTools();
    StandInTools(const StandInTools&) = delete;
    StandInTools& operator=(const StandInTools&) = delete;

    // Writes (or rewrites) the stand-in `name`.
    void addTool(const std::string& name, const std::map<std::string, ToolAnswer>& answers = {},
                 const ToolAnswer& fallback = ToolAnswer{});
    // The call log, one element per run, in the order the runs started.
    std::vector<std::string> calls() const;
    void clearCalls() const;
    // True when the shell finds `name` in this directory (checked through `command -v`).
    bool shadows(const std::string& name) const;
    const std::string& directory() const { return dir_.path(); }

  private:
    TempDir dir_;
    ScopedPathPrefix path_;  // declared after dir_: PATH is restored before the files go
};

std::string readFile(const std::string& path);

// A device reached without a shell: answers queries from a table, records every command line
// (queries and runs alike, in order), and can fail the way a broken device library would.
// Lines it has no answer for get the empty answer, and runs succeed, unless told otherwise.
class ScriptedShell : public DeviceShell {
  public:
    // The answer to a query of exactly `command`, as the shell would give it (first line, or
    // its first word when asked for one: the answer is returned as given here either way).
    void answer(const std::string& command, const std::string& text);
    // The outcome of running exactly `command`.
    void runOutcome(const std::string& command, bool succeeds);
    // From the `count`-th command line on (counting from 1), every query and run throws a
    // std::runtime_error with `text`.
    void throwFrom(std::size_t count, const std::string& text);

    std::string query(const std::string& command, bool firstWordOnly) override;
    bool run(const std::string& command) override;

    // Every command line so far; queries asked for one word are marked with " [word]".
    const std::vector<std::string>& lines() const { return lines_; }
    void clearLines() { lines_.clear(); }

  private:
    void record(const std::string& line);

    std::map<std::string, std::string> answers_;
    std::map<std::string, bool> outcomes_;
    std::size_t throwFrom_ = 0;
    std::string throwText_;
    std::vector<std::string> lines_;
};

// The death-test style for a child that must start as a fresh process (no earlier test has
// logged, say). "threadsafe" re-runs the test binary, which a board's emulator cannot do from
// inside: there the child is a fork, which CTest makes just as fresh by running each test in a
// process of its own.
#ifdef LCFD_UNDER_EMULATION
inline constexpr const char* kFreshProcessDeathTestStyle = "fast";
#else
inline constexpr const char* kFreshProcessDeathTestStyle = "threadsafe";
#endif

// Whether this process may make a network namespace of its own (root, or a kernel that lets
// it): the tests that need one skip themselves otherwise.
bool privateNamespacesAvailable();

// In a private network namespace: renames the loopback device to `deviceName` and brings it
// up when `up`. True when every step worked.
bool setUpLoopbackAs(const std::string& deviceName, bool up);

// Whether a socket without SO_REUSEADDR could bind the port on the loopback address now.
bool portIsFree(std::uint16_t port);

// Splits at '\n'; a trailing line feed gives no empty last element.
std::vector<std::string> splitLines(const std::string& text);

}  // namespace lcfd::test
