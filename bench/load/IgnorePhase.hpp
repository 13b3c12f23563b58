// The ignore path: CPU time per datagram that is not for the controller (other controllers'
// replies, requests for other MACs), against a minimal recvfrom loop in the same namespace.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "MinimalReceiver.hpp"
#include "Run.hpp"
#include "Support.hpp"

namespace load {

// Each round stops the daemon (SIGSTOP), fills its receive queue with a batch of the mix,
// lets it run (SIGCONT) until every datagram of the batch is traced in its standard output,
// and takes the CPU time it used from the scheduler's count; then the same batch goes to the
// minimal loop's socket, which is drained by recvfrom alone on the CLOCK_THREAD_CPUTIME_ID of
// its thread.  Both receivers start with a full queue and never wait, both are charged only
// their own CPU time, and the rounds alternate so that both see the same machine.
class IgnorePhase {
  public:
    explicit IgnorePhase(const Run& run) : run_(run) {}

    // Runs the rounds (up to options.datagrams, within the deadline) and reports the figures;
    // false when a round failed or there is no rate to report.
    bool measure();

    // The daemon's memory after the first round.
    const Memory& afterFirstBatch() const { return afterFirstBatch_; }

  private:
    // Datagrams taken and the CPU time they cost each receiver.
    struct Tally {
        std::size_t traced = 0;  // by the daemon
        std::uint64_t daemonNs = 0;
        std::size_t taken = 0;  // by the minimal loop
        std::uint64_t minimalNs = 0;
    };

    bool openSockets();
    void closeSockets();
    std::optional<std::uint64_t> stopContinueCost() const;
    std::string runRounds(const std::vector<std::string>& pool, MinimalReceiver& receiver);
    std::string daemonTurn(const std::vector<std::string>& pool, std::size_t n);
    std::string minimalTurn(const std::vector<std::string>& pool, std::size_t from, std::size_t n,
                            MinimalReceiver& receiver);
    void closeBlockWhenFull();
    void reportFigures(double seconds) const;

    bool waitQueueSettled(std::uint16_t port) const;
    bool sendAll(const std::vector<std::string>& pool, std::size_t from, std::size_t n,
                 std::uint16_t port) const;

    const Run& run_;
    int sender_ = -1;
    int minimal_ = -1;
    std::uint64_t perRound_ = 0;  // one stop and continue, taken off every round
    std::size_t outOffset_ = 0;   // what of the daemon's standard output has been counted
    std::size_t batch_ = 192;
    std::size_t rounds_ = 0;
    std::size_t sent_ = 0;  // to the daemon
    std::size_t dropped_ = 0;
    std::uint64_t daemonRawNs_ = 0;  // stops and continues included
    Tally total_;
    Tally block_;                      // the current tenth of the run
    std::vector<double> blockRatios_;  // daemon/minimal per tenth of the run
    Memory afterFirstBatch_;
};

}  // namespace load
