// The scripts that the Finder is sent. Needs nothing of a Mac.
#pragma once

#include <string>

// `text` as an AppleScript text, in double quotes that it can't leave.
std::string QuoteAppleScript(const std::string &text);

// Shows a dialog with one button.
std::string DialogScript(const std::string &title, const std::string &text,
                         const std::string &button);

// Brings all Finder windows up to date.
std::string RefreshScript();
