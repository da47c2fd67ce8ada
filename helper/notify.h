// Notifications on the desktop, where there is one.
#pragma once

#include <string>

namespace helper
{

// Shows a notification and does not wait. Without a desktop, or without the
// program notify-send, nothing happens.
void notifyDesktop(const std::string &title, const std::string &text);

} // namespace helper
