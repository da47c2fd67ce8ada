#include "helper/transfers.h"

#include <algorithm>
#include <cmath>

#include "helper/text.h"

namespace helper
{

namespace
{

constexpr double RATE_SECONDS = 5; // over which a rate is taken

std::string part(const char *what, uint64_t files, uint64_t bytes)
{
    if (files == 0) {
        return "";
    }
    return what + countText(files, "file", "files") + " (" + bytesText(bytes) +
           ")";
}

} // namespace

void Sum::add(const Transfer &transfer)
{
    const bool read = transfer.kind == Transfer::Read;
    (read ? read_files : written_files) += 1;
    (read ? read_bytes : written_bytes) += transfer.size;
}

std::string Sum::text() const
{
    const std::string read = part("read ", read_files, read_bytes);
    const std::string written = part("written ", written_files, written_bytes);
    return read + (read.empty() || written.empty() ? "" : ", ") + written;
}

void Transfers::take(const News &news, double time)
{
    switch (news.kind) {
    case News::BusyOn:
        if (busy++ == 0) {
            busy_since = time;
            busy_clock = clockText();
        }
        break;
    case News::BusyOff:
        busy = std::max(busy - 1, 0);
        break;
    case News::Transfers:
        for (const Transfer &transfer : news.transfers) {
            all.add(transfer);
            latest.add(transfer);
            recent.emplace_back(time, transfer.size);
        }
        break;
    case News::Nonsense:
        break;
    }
}

double Transfers::rate(double time)
{
    while (!recent.empty() && recent.front().first < time - RATE_SECONDS) {
        recent.pop_front();
    }
    double sum = 0;
    for (const auto &[when, bytes] : recent) {
        sum += static_cast<double>(bytes);
    }
    // A file is told of when it is done: dividing by less would show a whole
    // film as if it had come within a second.
    return sum / RATE_SECONDS;
}

std::string Transfers::line(double time)
{
    const double per_second = rate(time);
    const bool moving = per_second >= 1;
    std::string text = moving ? "copying" : "idle";
    if (isBusy()) {
        text = "busy since " + busy_clock + " (" +
               secondsText(std::floor(time - busy_since)) + ")";
    }
    if (!all.empty()) {
        text += " · " + all.text();
    }
    if (moving) {
        text += " · " + bytesText(static_cast<uint64_t>(per_second)) + "/s";
    }
    return text;
}

Sum Transfers::takeLatest()
{
    return std::exchange(latest, Sum());
}

} // namespace helper
