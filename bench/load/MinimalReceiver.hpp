// The ignore path's yardstick: a receive loop that does nothing but recvfrom.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>

namespace load {

// The minimal receive loop: recvfrom alone, on a thread of its own on the CPU the daemon is
// pinned to, so that both receivers are woken the same way and find the datagrams in the
// same caches (the sender fills both queues from the other CPU).
class MinimalReceiver {
  public:
    struct Drain {
        std::size_t taken = 0;
        std::uint64_t ns = 0;  // the thread's CPU time for the loop
    };

    // Receives on `fd`; the thread runs on `cpu` when one is given.
    MinimalReceiver(int fd, std::optional<int> cpu);
    ~MinimalReceiver();
    MinimalReceiver(const MinimalReceiver&) = delete;
    MinimalReceiver& operator=(const MinimalReceiver&) = delete;

    // Takes `want` datagrams off the socket (fewer when one does not come within the socket's
    // receive timeout) and hands out how many, with the CPU time that took.
    Drain drain(std::size_t want);

  private:
    void work(std::optional<int> cpu);
    Drain receive(std::size_t want) const;

    int fd_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t want_ = 0;
    bool done_ = false;
    bool quit_ = false;
    Drain result_;
    std::thread worker_;  // last: it starts with everything above in place
};

}  // namespace load
