#pragma once

#include <functional>
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

std::string readFile(const std::string& path);

// Splits at '\n'; a trailing line feed gives no empty last element.
std::vector<std::string> splitLines(const std::string& text);

}  // namespace lcfd::test
