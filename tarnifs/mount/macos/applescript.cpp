#include "tarnifs/mount/macos/applescript.h"

std::string QuoteAppleScript(const std::string &text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted + '"';
}

std::string DialogScript(const std::string &title, const std::string &text,
                         const std::string &button)
{
    return "tell app \"Finder\" to display dialog " + QuoteAppleScript(text) +
           " with title " + QuoteAppleScript(title) + " buttons {" +
           QuoteAppleScript(button) + "} default button 1 with icon caution";
}

std::string RefreshScript()
{
    return "tell application \"Finder\" \n"
           " repeat with i from 1 to count of Finder windows \n"
           " tell window i \n"
           " try \n"
           " update every item with necessity \n"
           " end try \n"
           " end tell \n"
           " end repeat \n"
           " end tell";
}
