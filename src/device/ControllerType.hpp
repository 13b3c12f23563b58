#pragma once

#include <cstdint>

namespace lcfd {

// The platform detected from "tarnsetup getsdk". The numbers are logged, so they are fixed.
enum class ControllerType : std::int32_t {
    Unknown = 0,
    Generic = 1,
    Arm9 = 2,
    Imx = 3,
    Qmt = 4,
};

}  // namespace lcfd
