#include "log/Log.hpp"

#include <syslog.h>

#include <cstdio>

namespace lcfd {
namespace {

constexpr const char* kSyslogIdent = "lcfd";
constexpr const char* kConsolePrefix = "lcfd:";

bool syslogOpened = false;

void writeLine(std::FILE* stream, int priority, const std::string& message) {
    openLog();
    // The console line stops at the first NUL, like the syslog record does.
    std::fputs(kConsolePrefix, stream);
    std::fputs(message.c_str(), stream);
    std::fputc('\n', stream);
    // "%s" keeps a '%' in a message (a command line, say) from being taken as a conversion.
    syslog(priority, "%s", message.c_str());
}

}  // namespace

void openLog() {
    if (!syslogOpened) {
        openlog(kSyslogIdent, 0, LOG_DAEMON);
        syslogOpened = true;
    }
}

void logError(const std::string& message) {
    writeLine(stderr, LOG_ERR, message);
}
void logWarning(const std::string& message) {
    writeLine(stderr, LOG_WARNING, message);
}
void logInfo(const std::string& message) {
    writeLine(stdout, LOG_INFO, message);
}
void logDebug(const std::string& message) {
    writeLine(stdout, LOG_DEBUG, message);
}

}  // namespace lcfd
