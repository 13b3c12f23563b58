#include "MinimalReceiver.hpp"

#include <netinet/in.h>
#include <sys/socket.h>

#include <ctime>

#include "Support.hpp"

namespace load {

namespace {

// The daemon's receive buffer (Broadcaster's kReceiveBufferSize): the minimal loop reads into
// one of the same size.
constexpr std::size_t kDatagramBuffer = 512;

}  // namespace

MinimalReceiver::MinimalReceiver(int fd, std::optional<int> cpu)
    : fd_(fd), worker_([this, cpu] { work(cpu); }) {}

MinimalReceiver::~MinimalReceiver() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        quit_ = true;
    }
    changed_.notify_all();
    worker_.join();
}

MinimalReceiver::Drain MinimalReceiver::drain(std::size_t want) {
    std::unique_lock<std::mutex> lock(mutex_);
    want_ = want;
    done_ = false;
    changed_.notify_all();
    changed_.wait(lock, [this] { return done_; });
    return result_;
}

void MinimalReceiver::work(std::optional<int> cpu) {
    if (cpu) {
        pinTo(0, *cpu);
    }
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return quit_ || want_ > 0; });
        if (quit_) {
            return;
        }
        const std::size_t want = want_;
        want_ = 0;
        lock.unlock();
        const Drain got = receive(want);
        lock.lock();
        result_ = got;
        done_ = true;
        changed_.notify_all();
    }
}

// The loop itself, on the thread's own CPU clock.
MinimalReceiver::Drain MinimalReceiver::receive(std::size_t want) const {
    char buffer[kDatagramBuffer];
    sockaddr_in from{};
    timespec t0{};
    timespec t1{};
    std::size_t taken = 0;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t0);
    while (taken < want) {
        socklen_t fromLength = sizeof from;
        if (recvfrom(fd_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from),
                     &fromLength) < 1) {
            break;
        }
        ++taken;
    }
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t1);
    Drain got;
    got.taken = taken;
    got.ns = static_cast<std::uint64_t>((t1.tv_sec - t0.tv_sec) * 1000000000L +
                                        (t1.tv_nsec - t0.tv_nsec));
    return got;
}

}  // namespace load
