#include "device/DeviceShell.hpp"

#include <cstdio>
#include <cstdlib>

#include "log/Log.hpp"

namespace lcfd {
namespace {

bool isFormattedInputSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

}  // namespace

std::string firstWord(const std::string& text) {
    std::size_t begin = 0;
    while (begin < text.size() && isFormattedInputSpace(text[begin])) {
        ++begin;
    }
    std::size_t end = begin;
    while (end < text.size() && !isFormattedInputSpace(text[end])) {
        ++end;
    }
    return text.substr(begin, end - begin);
}

std::string SystemShell::query(const std::string& command, bool firstWordOnly) {
    std::string result;
    // Every reading and clearing is a device tool's shell command line, by design.
    std::FILE* pipe = popen(command.c_str(), "r");  // NOLINT(cert-env33-c)
    if (pipe == nullptr) {
        result = kPopenFailed;
        logError(result + ":" + command);
        return result;
    }
    char buffer[512];
    // Only the first line (or its first 510 bytes) is ever read; the rest of the output is left.
    if (std::fgets(buffer, kCommandOutputReadLimit, pipe) != nullptr) {
        result = buffer;
        if (firstWordOnly) {
            result = firstWord(result);
        }
    }
    pclose(pipe);  // waits for the command; its exit status is not looked at
    return result;
}

bool SystemShell::run(const std::string& command) {
    // The device's own tools are shell command lines; their values passed the setters' checks.
    return std::system(command.c_str()) == 0;  // NOLINT(cert-env33-c)
}

DeviceShell& systemShell() {
    static SystemShell shell;
    return shell;
}

}  // namespace lcfd
