#include "tarnifs/notify/messages.h"

#include <cstdio>
#include <string>

const char *getMsgTypeString(int kind)
{
    switch (kind) {
    case MESSAGE_NOTIFICATION:
        return "Quorvel Notification";
    case MESSAGE_WARNING:
        return "Quorvel Warnning!";
    case MESSAGE_ERROR:
        return "Quorvel Error!!";
    default:
        return "Quorvel Unknown";
    }
}

// The code goes in first: a name may well hold "%d".
void ComposeMessage(char *out, size_t size, const char *text, const char *name,
                    int code)
{
    std::string message = text;
    const size_t number = message.find("%d");
    if (number != std::string::npos) {
        message.replace(number, 2, std::to_string(code));
    }
    const size_t place = message.find("%s");
    if (place != std::string::npos) {
        message.replace(place, 2, name == nullptr ? "" : name);
    }
    snprintf(out, size, "%s", message.c_str());
}
