#include "daemon/Trace.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace lcfd {

std::string composeTrace(std::uint32_t senderAddress, bool understood) {
    std::string trace;
    appendTrace(trace, senderAddress, understood);
    return trace;
}

void appendTrace(std::string& output, std::uint32_t senderAddress, bool understood) {
    in_addr address{};
    address.s_addr = senderAddress;
    output += '[';
    output += inet_ntoa(address);
    output += understood ? "] Message understood... \n\n" : "] Message not understood... \n\n";
}

}  // namespace lcfd
