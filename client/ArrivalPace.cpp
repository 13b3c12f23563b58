#include "client/ArrivalPace.hpp"

#include <algorithm>

#include "client/Timing.hpp"

namespace lcf {

void ArrivalPace::arrived(double at) {
    recent_.push_back(at);
    if (recent_.size() > kRecent) {
        recent_.pop_front();
    }
}

std::optional<double> ArrivalPace::last() const {
    if (recent_.empty()) {
        return std::nullopt;
    }
    return recent_.back();
}

double ArrivalPace::quietSeconds() const {
    double widest = 0.0;
    for (std::size_t i = 1; i < recent_.size(); ++i) {
        widest = std::max(widest, recent_[i] - recent_[i - 1]);
    }
    double mean = 0.0;
    if (recent_.size() > 1) {
        mean = (recent_.back() - recent_.front()) / static_cast<double>(recent_.size() - 1);
    }
    return std::clamp(std::max(4.0 * mean, 1.5 * widest), timing::kShortestQuietSeconds,
                      timing::kLongestQuietSeconds);
}

double ArrivalPace::quietFrom(double otherwise) const {
    const auto latest = last();
    return latest ? *latest + quietSeconds() : otherwise;
}

}  // namespace lcf
