#pragma once

#include <cstddef>
#include <deque>
#include <optional>

namespace lcf {

// The rhythm of the answers arriving on the segment. A crowded segment answers one controller
// after the other; how long the tool may wait in silence before it concludes that no further
// answer is on its way follows from the spacing of the recent ones.
class ArrivalPace {
  public:
    void arrived(double at);

    // When the latest answer arrived; nothing before the first.
    std::optional<double> last() const;

    // Four times the mean recent gap or one and a half times the widest recent gap, whichever is
    // longer, kept between the shortest and the longest quiet period of the tool's timing.
    double quietSeconds() const;

    // When the segment counts as quiet if nothing more arrives: the latest answer plus the
    // quiet period; `otherwise` when nothing has arrived yet.
    double quietFrom(double otherwise) const;

  private:
    // Enough arrivals to smooth the scheduling noise of a busy machine, few enough to follow a
    // segment that slows down.
    static constexpr std::size_t kRecent = 16;
    std::deque<double> recent_;
};

}  // namespace lcf
