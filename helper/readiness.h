// What a service manager is told, when one started this program.
#pragma once

namespace helper
{

// From now on devices are noticed.
void tellReady();

// It goes down, which may take as long as unmounting does.
void tellStopping();

} // namespace helper
