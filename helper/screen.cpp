#include "helper/screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "helper/text.h"

namespace helper
{

namespace
{

constexpr size_t USUAL_WIDTH = 80;

size_t width()
{
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1
               ? size.ws_col - 1U
               : USUAL_WIDTH;
}

} // namespace

Screen::Screen() : terminal(isatty(STDOUT_FILENO) == 1) {}

Screen::~Screen()
{
    wipe();
}

void Screen::wipe()
{
    if (!block.empty()) {
        // Up to the block's first line, and clear from there on.
        printf("\r\033[%zuA\033[J", block.size());
        fflush(stdout);
    }
    block.clear();
}

void Screen::say(const std::string &line)
{
    const std::vector<std::string> shown = block;
    wipe();
    printf("%s\n", line.c_str());
    fflush(stdout);
    show(shown);
}

void Screen::show(const std::vector<std::string> &lines)
{
    if (!terminal || lines == block) {
        return;
    }
    wipe();
    const size_t wide = width();
    for (const std::string &line : lines) {
        printf("%s\n", cutTo(line, wide).c_str());
    }
    fflush(stdout);
    block = lines;
}

} // namespace helper
