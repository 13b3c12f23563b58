#pragma once

#include <string>
#include <vector>

#include "settings/Settings.hpp"
#include "wire/Replies.hpp"

namespace lcfd {

// Where each STATUS value comes from: the field of the reply and the Settings getter that
// gives it. In reply order, the order statusFields() writes them, which is also the order
// the values are read in (the clock is read live when its turn comes).
struct StatusSource {
    std::string StatusValues::*value;
    std::string (Settings::*getter)() const;
};

const std::vector<StatusSource>& statusSources();

// Every status value, each read through its getter in reply order.
StatusValues readStatusValues(const Settings& settings);

}  // namespace lcfd
