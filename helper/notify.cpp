#include "helper/notify.h"

#include <fcntl.h>

#include <cstdlib>
#include <system_error>
#include <thread>

#include "helper/process.h"
#include "helper/text.h"

namespace helper
{

namespace
{

constexpr double SECONDS = 10;

bool desktop()
{
    for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes it
        const char *value = getenv(name);
        if (value != nullptr && *value != '\0') {
            return true;
        }
    }
    return false;
}

// A notification's text may hold markup.
std::string escaped(const std::string &text)
{
    std::string plain;
    for (const char c : printable(text)) {
        plain += c == '&'   ? "&amp;"
                 : c == '<' ? "&lt;"
                 : c == '>' ? "&gt;"
                            : std::string(1, c);
    }
    return plain;
}

} // namespace

void notifyDesktop(const std::string &title, const std::string &text)
{
    const std::string program = desktop() ? findProgram("notify-send") : "";
    if (program.empty()) {
        return;
    }
    const Words words = {program, "--app-name=Quorvel", "--icon=phone",
                         "--",    printable(title),     escaped(text)};
    // A desktop that does not answer must not hold anything up.
    try {
        std::thread([words] { runProgram(words, SECONDS); }).detach();
    } catch (const std::system_error &) {
        return;
    }
}

} // namespace helper
