#include "settings/UtcClock.hpp"

#include "device/DeviceCommands.hpp"
#include "log/Log.hpp"
#include "settings/Settings.hpp"
#include "wire/Validators.hpp"

namespace lcfd {

bool Settings::setUtcClock(const std::string& value) {
    switch (checkClockValue(value)) {
        case ClockValueCheck::WrongLength:
            logWarning(kWrongClockLength);
            return false;
        case ClockValueCheck::NotNumbers:
            logWarning(kClockNotNumbers);
            return false;
        case ClockValueCheck::Valid:
            break;
    }
    const std::optional<std::string> line = setClockCommand(controllerType_, value);
    if (!line) {
        return false;
    }
    runShellCommand(*line, true);  // the outcome of date is not examined
    pendingutcclock_ = value;
    return true;
}

std::string Settings::getUtcClock() const {
    return runShellCommand(command::kReadUtcClock, true);
}

}  // namespace lcfd
