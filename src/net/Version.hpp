#pragma once

#include <cstdint>

namespace lcfd {

// Printed by --version and in the listening banner.
constexpr const char* kVersion = "4.12";

// The service port: requests arrive on it and every reply is broadcast to it.
constexpr std::uint16_t kServicePort = 7217;

}  // namespace lcfd
