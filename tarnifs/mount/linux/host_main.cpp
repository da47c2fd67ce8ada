// From the command line to the running volume and to its end. What a person must
// hear is said before the process goes to the background.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tarnifs/mount/common/options.h"
#include "tarnifs/mount/host.h"
#include "tarnifs/mount/linux/adapters.h"
#include "tarnifs/mount/linux/background.h"
#include "tarnifs/mount/linux/refusals.h"

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

// What a foreign library writes to standard error while the record lives.
class Captured
{
  public:
    Captured()
        : file(memfd_create("stderr", MFD_CLOEXEC)),
          before(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        if (file >= 0 && before >= 0) {
            dup2(file, STDERR_FILENO);
        }
    }
    Captured(const Captured &) = delete;
    Captured &operator=(const Captured &) = delete;
    ~Captured() { End(); }

    std::string End()
    {
        std::string text;
        char piece[512];
        ssize_t n = 0;
        while (file >= 0 && (n = pread(file, piece, sizeof(piece),
                                       static_cast<off_t>(text.size()))) > 0) {
            text.append(piece, static_cast<size_t>(n));
        }
        if (before >= 0) {
            dup2(before, STDERR_FILENO);
            close(before);
            before = -1;
        }
        if (file >= 0) {
            close(file);
            file = -1;
        }
        return text;
    }

  private:
    int file;
    int before;
};

ExitStatus Refuse(const Refusal &refusal)
{
    if (refusal.status != ExitStatus::Ok) {
        fprintf(stderr, "quorvelfs: %s\n", refusal.sentence.c_str());
    }
    return refusal.status;
}

// Reads the command line.
ExitStatus Parse(Session *session, int32_t *location_id, OwnOptions *own)
{
    // The file system's name, whatever the program is called: first, so that one
    // of the user's own goes before it. The library can insert only into what
    // its parser has copied.
    if (!TakeOwnOptions(&session->args, own) ||
        fuse_opt_insert_arg(&session->args, 1, "-osubtype=quorvelfs") != 0) {
        return Refuse({ExitStatus::Usage, own->problem});
    }
    if (*location_id == 0) {
        *location_id = static_cast<int32_t>(own->location);
    }
    ExitStatus status = Refuse(CheckMountPoint(own->mount_point));
    if (status == ExitStatus::Ok &&
        fuse_parse_cmdline(&session->args, &session->options) != 0) {
        status = ExitStatus::Usage; // it said why
    }
    return status;
}

ExitStatus Mount(Session *session)
{
    HoldEndingSignals();
    Captured captured;
    const bool done =
        fuse_mount(session->volume, session->options.mountpoint) == 0;
    const std::string said = captured.End();
    session->mounted = done;
    if (done) {
        fputs(said.c_str(), stderr); // a warning, perhaps
        return ExitStatus::Ok;
    }
    return Refuse(
        ExplainMount(session->options.mountpoint, said, FusermountConfined()));
}

ExitStatus Begin(Session *session, int32_t *location_id)
{
    OwnOptions own;
    ExitStatus status = Parse(session, location_id, &own);
    if (status == ExitStatus::Ok) {
        status = Refuse(CheckFuse());
    }
    if (status != ExitStatus::Ok) {
        return status;
    }
    session->volume = fuse_new(&session->args, &HostTable(),
                               sizeof(fuse_operations), location_id);
    // It says why: an option that it does not know.
    return session->volume == nullptr ? ExitStatus::Usage : Mount(session);
}

// Serves until the volume is unmounted or a signal ends it; both are good ends.
bool Serve(Session *session)
{
    if (session->options.foreground == 0 && !EnterBackground()) {
        return false;
    }
    session->handling_signals =
        fuse_set_signal_handlers(fuse_get_session(session->volume)) == 0;
    ReleaseEndingSignals();
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
    ExitStatus status = Begin(&session, locationId);
    if (status == ExitStatus::Ok && !Serve(&session)) {
        status = ExitStatus::Failed;
    }
    return static_cast<int>(status);
}
