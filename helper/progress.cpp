#include "helper/progress.h"

#include <algorithm>

#include "helper/text.h"

namespace helper
{

namespace
{

constexpr double RATE_SECONDS = 5;
constexpr unsigned WIDTH = 24; // of the bar

} // namespace

double Progress::rate(uint64_t moved, double time)
{
    recent.emplace_back(time, moved);
    while (recent.size() > 2 && recent.front().first < time - RATE_SECONDS) {
        recent.pop_front();
    }
    const double seconds = time - recent.front().first;
    return seconds <= 0
               ? 0
               : static_cast<double>(moved - recent.front().second) / seconds;
}

std::string Progress::line(uint64_t done, uint64_t resumed, double time,
                           const std::string &what)
{
    const double share = total == 0
                             ? 1
                             : std::min(1.0, static_cast<double>(done) /
                                                 static_cast<double>(total));
    const auto full = static_cast<unsigned>(share * WIDTH);
    const double speed = rate(done - std::min(resumed, done), time);
    std::string text = "[" + std::string(full, '#') +
                       std::string(WIDTH - full, '.') + "] " +
                       std::to_string(static_cast<int>(share * 100)) + " %  " +
                       bytesText(done) + " of " + bytesText(total);
    if (speed >= 1) {
        text += "  " + bytesText(static_cast<uint64_t>(speed)) + "/s  " +
                secondsText(static_cast<double>(total - std::min(done, total)) /
                            speed) +
                " left";
    }
    return text + "  " + printable(what);
}

} // namespace helper
