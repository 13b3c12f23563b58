#pragma once

#include <string>

namespace lcfd {

// The fields of one request, as they came in (only `mac` is upper-cased). Reset to all-empty
// for every datagram.
struct Message {
    std::string mac;
    std::string ipscheme;
    std::string gateway;
    std::string unusedField1;  // read and written by nothing; kept in the record's layout
    std::string unusedField2;
    std::string syslogip;
    std::string nameserver;
    std::string ntpip;
    std::string ip;
    std::string netmask;
    std::string seqid;
    std::string utcclock;

    // Empties every field. Their storage is kept, so that the next datagram's values are
    // stored without allocating.
    void reset();
};

}  // namespace lcfd
