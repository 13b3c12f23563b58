#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "client/Controllers.hpp"

namespace lcf {

struct ProbeOptions {
    std::vector<std::string> interfaces;  // empty: every up IPv4 broadcast interface
    double timeoutSeconds = 2.0;
    int rounds = 1;
    // Discovery only: stop listening as soon as this many controllers answered (0: listen for
    // the whole window).
    std::size_t expected = 0;
    // Discovery only: when a new controller answered less than `quietSeconds` before the window
    // closes, listen on until `quietSeconds` pass without a new one, at most `extendSeconds`
    // past the window.
    double quietSeconds = 1.0;
    double extendSeconds = 120.0;
};

// A fresh sequence identifier for one exchange.
std::string newSeqid();

// Broadcasts QUERY on every probed interface and collects the STATUS replies for the whole
// window, sending the probe `rounds` times spread over its first half, and longer while new
// controllers are still answering at its end. With `expected` set it returns as soon as that
// many controllers answered.
std::vector<Controller> discover(const ProbeOptions& options);

// Asks one controller for its status; nothing when it did not answer in time.
std::optional<Controller> queryOne(const ProbeOptions& options, const std::string& mac);

enum class AckOutcome { Accepted, Refused, NoAnswer };

// Sends an ASSIGN or CLEAR text and waits for the addressed controller's ACK.
AckOutcome requestAndWaitForAck(const ProbeOptions& options, const std::string& mac,
                                const std::string& seqid, const std::string& request);

}  // namespace lcf
