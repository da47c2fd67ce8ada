// What a watching program shows: on a terminal lines that stay, with a block
// below them that is drawn anew; elsewhere only the lines.
#pragma once

#include <string>
#include <vector>

namespace helper
{

class Screen
{
  public:
    // Looks whether standard output is a terminal.
    Screen();
    ~Screen();
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    bool live() const { return terminal; }
    // A line that stays.
    void say(const std::string &line);
    // The block, cut to the terminal's width; nothing where there is none.
    void show(const std::vector<std::string> &lines);

  private:
    void wipe();

    bool terminal;
    std::vector<std::string> block;
};

} // namespace helper
