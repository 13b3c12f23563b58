#pragma once

// lcf watch without the sockets: what one datagram seen on the segment says (taken apart with
// the wire library, as a daemon takes it apart), which request a reply answers, and the line
// and JSON line printed for it.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace lcf {

using WallClock = std::chrono::system_clock;

// One datagram as it arrived on the service port.
struct WatchDatagram {
    std::string text;
    std::string interfaceName;
    std::string sender;  // dotted IPv4 address
    std::uint16_t senderPort = 0;
    WallClock::time_point time{};  // when the host received it
};

// What the controller a request names does with one ASSIGN field.
enum class FieldMark {
    None,     // a value it stores (or, in a STATUS, just a value)
    Dropped,  // an address it silently drops: the request is still accepted
    Ignored,  // a key it does not change, skipped
    Refused,  // a field that makes it answer accept=no; the fields after it are not read
};

struct WatchField {
    std::string key;
    std::string value;
    FieldMark mark = FieldMark::None;
    bool separated = true;  // false for a field sent without "=": it has no value at all
};

enum class WatchKind { Request, Reply, Other };

// The facts of one datagram.
struct WatchRecord {
    WatchDatagram datagram;
    WatchKind kind = WatchKind::Other;
    std::string command;  // the command word as written; empty when there is no header
    std::optional<std::string> seqid;
    std::optional<std::string> mac;  // upper-cased, as a controller compares it
    bool everyController = false;    // a QUERY without MAC: the discovery broadcast
    // An ASSIGN's fields as its controller reads them, or a STATUS's fields after seqid and mac.
    std::vector<WatchField> fields;
    std::optional<std::string> serverKey;  // a CLEAR's
    std::optional<std::string> accept;     // an ACK's
    // The verdict the daemon the datagram is for writes in its trace line.
    bool understood = false;
    // Why a daemon does not understand it, refuses it or ignores it; empty when it simply acts.
    std::string note;
    // For a reply: the request it answers, when one was seen, and the time since it.
    std::optional<std::string> pairedCommand;
    std::optional<double> delayMs;
};

// Takes one datagram apart as the daemon would: the bytes it reads, the verdict of the daemon
// the request is addressed to, and what that daemon does with each field.
WatchRecord takeApart(const WatchDatagram& datagram);

// Pairs each reply with the request seen that it answers: the same seqid, and the same MAC or a
// QUERY to every controller. Of several copies (a tool's resends), the earliest that this
// controller has not answered yet; when it has answered all, the latest. Requests are kept for a
// while, then forgotten.
class RequestPairing {
  public:
    // How long a request is remembered: far longer than any controller takes to answer.
    static constexpr std::chrono::seconds kMemory{120};
    static constexpr std::size_t kMostRequests = 10000;

    // Remembers a request; fills in pairedCommand and delayMs of a reply that answers one.
    void see(WatchRecord& record);

  private:
    struct Seen {
        std::string command;
        std::string seqid;
        std::string mac;
        bool everyController = false;
        WallClock::time_point time{};
        std::vector<std::string> answeredBy;  // the MACs of the replies paired with it
    };
    std::deque<Seen> requests_;
};

// "HH:MM:SS.mmm", local time.
std::string localTimeOfDay(WallClock::time_point time);
// ISO 8601 local time with milliseconds and the offset: "2026-11-24T07:01:39.123+01:00".
std::string isoLocalTime(WallClock::time_point time);

// The mark a line shows after a MAC-less QUERY's "mac=": it goes to every controller.
extern const char* const kEveryControllerMark;

// The short summary of a record: the changed keys of an ASSIGN, a CLEAR's key, accept, a
// STATUS's ip and hostname, and the note.
std::string watchSummary(const WatchRecord& record);

// One line, with its line break:
// "07:01:39.123 lan0 198.18.0.1 STATUS seqid=7 mac=02:4C:43:00:00:01 ip=198.18.0.1
//  hostname=arm9-001 (+12.5 ms after QUERY)". Bytes that would upset a terminal are escaped.
std::string renderWatchLine(const WatchRecord& record);

// The same facts as one JSON object on one line, with its line break.
std::string renderWatchJson(const WatchRecord& record);

}  // namespace lcf
