#include <sys/stat.h>

#include <csignal>
#include <cstdio>

#include "tarnifs/mount/arguments.h"
#include "tarnifs/mount/host.h"

namespace
{

// SIGUSR1 wakes the dialog thread. It is blocked before there is any other
// thread, so that one sent to the process can't end it. Writing to a connection
// that is gone must be an error, not the end.
void prepareSignals()
{
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

} // namespace

int main(int argc, char **argv)
{
    umask(0); // modes are used as the handlers give them
    prepareSignals();
    ARGUMENTS arguments = ParseArguments(argc, argv);
    fputs(arguments.message.c_str(), arguments.toError ? stderr : stdout);
    if (!arguments.goOn) {
        return arguments.status;
    }
    return hostMain(arguments.fuseCount, argv, &arguments.locationId);
}
