#pragma once

#include <string>

namespace lcfd {

// Every log line goes both to a console stream ("lcfd:" + message) and to syslog under the
// ident "lcfd". The syslog connection is opened on first use, so callers never set it up.
void openLog();
void logError(const std::string& message);    // standard error, LOG_ERR
void logWarning(const std::string& message);  // standard error, LOG_WARNING
void logInfo(const std::string& message);     // standard output, LOG_INFO
void logDebug(const std::string& message);    // standard output, LOG_DEBUG

}  // namespace lcfd
