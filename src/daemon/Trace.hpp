#pragma once

#include <cstdint>
#include <string>

namespace lcfd {

// "[" + sender + "] Message understood... \n\n" or "] Message not understood... \n\n".
std::string composeTrace(std::uint32_t senderAddress, bool understood);
// The same trace appended to `output`.
void appendTrace(std::string& output, std::uint32_t senderAddress, bool understood);

}  // namespace lcfd
