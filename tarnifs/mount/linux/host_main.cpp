// From the command line to the running volume and to its end. What a person must
// hear is said before the process goes to the background.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tarnifs/mount/host.h"
#include "tarnifs/mount/linux/adapters.h"

namespace
{

// Handlers run one at a time: more threads would only wait. libfuse has "no
// limit" as its default in some versions, and complains about it.
constexpr unsigned IDLE_THREADS = 10;
constexpr unsigned MOST_THREADS = 1000;

// What is parsed and made on the way; undone on every way out.
struct Session {
    fuse_args args;
    fuse_cmdline_opts options{};
    fuse *volume = nullptr;
    bool mounted = false;
    bool handling_signals = false;

    Session(int argc, char **argv) : args(FUSE_ARGS_INIT(argc, argv)) {}
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
    ~Session()
    {
        if (handling_signals) {
            fuse_remove_signal_handlers(fuse_get_session(volume));
        }
        if (mounted) {
            fuse_unmount(volume);
        }
        if (volume != nullptr) {
            fuse_destroy(volume);
        }
        free(options.mountpoint);
        fuse_opt_free_args(&args);
    }
};

// libfuse mounts over a plain file as well, and everything below it then fails
// strangely.
bool IsFolder(const char *path)
{
    struct stat st {
    };
    if (path == nullptr) {
        fprintf(stderr, "quorvelfs: a mount point is needed\n");
        return false;
    }
    if (stat(path, &st) != 0) {
        fprintf(stderr, "quorvelfs: %s: %s\n", path, strerrordesc_np(errno));
        return false;
    }
    if (!S_ISDIR(st.st_mode)) {
        fprintf(stderr, "quorvelfs: %s: not a folder\n", path);
        return false;
    }
    return true;
}

// Mounts. What fails says why itself.
bool Begin(Session *session, int32_t *location_id)
{
    if (fuse_parse_cmdline(&session->args, &session->options) != 0 ||
        !IsFolder(session->options.mountpoint)) {
        return false;
    }
    session->volume = fuse_new(&session->args, &HostTable(),
                               sizeof(fuse_operations), location_id);
    if (session->volume == nullptr) {
        return false;
    }
    session->mounted =
        fuse_mount(session->volume, session->options.mountpoint) == 0;
    return session->mounted;
}

// Serves until the volume is unmounted or a signal ends it; both are good ends.
bool Serve(Session *session)
{
    if (fuse_daemonize(session->options.foreground) != 0) {
        return false;
    }
    session->handling_signals =
        fuse_set_signal_handlers(fuse_get_session(session->volume)) == 0;
    if (!session->handling_signals) {
        return false;
    }
    if (session->options.singlethread != 0) {
        return fuse_loop(session->volume) >= 0;
    }
    fuse_loop_config config{};
    config.clone_fd = session->options.clone_fd;
    config.max_idle_threads = session->options.max_idle_threads > MOST_THREADS
                                  ? IDLE_THREADS
                                  : session->options.max_idle_threads;
    return fuse_loop_mt(session->volume, &config) >= 0;
}

} // namespace

int hostMain(int argc, char **argv, int32_t *locationId)
{
    Session session(argc, argv);
    return Begin(&session, locationId) && Serve(&session) ? EXIT_SUCCESS
                                                          : EXIT_FAILURE;
}
