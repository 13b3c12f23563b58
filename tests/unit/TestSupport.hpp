#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

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

// Splits at '\n'; a trailing line feed gives no empty last element.
std::vector<std::string> splitLines(const std::string& text);

}  // namespace lcfd::test
