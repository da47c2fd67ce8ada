// The command line of quorvel.
#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>

#include <CLI/CLI.hpp>

#include "helper/commands.h"
#include "helper/copy.h"
#include "helper/watch.h"

namespace
{

using helper::Result;

constexpr const char *DEVICE_HELP =
    "Name, location id, or UDID or a beginning of it; not needed for the only "
    "one";

constexpr double LONGEST_WAIT = 86400 * 365; // seconds

constexpr const char *FOOTER =
    "A DEVICE is meant by its name, its location id, or its UDID or a beginning "
    "of it.\n"
    "quorvel COMMAND --help tells more of each command.\n"
    "\n"
    "Exit status: 0 done, 2 wrong usage, 3 no such device, 4 several may be "
    "meant,\n"
    "5 device locked, 6 not trusted in time, 7 trust denied, 8 no usbmuxd, 9 no "
    "FUSE,\n"
    "10 not allowed, 11 already mounted, 12 mount point in use, 13 bad mount "
    "point,\n"
    "14 quorvelfs missing, 15 start failed, 16 no answer, 17 not mounted, 18 "
    "busy,\n"
    "19 device error, 20 copy incomplete, 21 pipe taken, 130 interrupted, 1 "
    "other.";

void addList(CLI::App &app, Result *result)
{
    CLI::App *list = app.add_subcommand("list", "Lists the attached devices");
    const auto json = std::make_shared<bool>(false);
    const auto names = std::make_shared<bool>(false);
    CLI::Option *option = list->add_flag("--json", *json, "For programs");
    list->add_flag("--names", *names, "The names alone, one a line")
        ->excludes(option);
    list->callback([=] {
        *result =
            *names ? helper::listNamesCommand() : helper::listCommand(*json);
    });
    list->footer("Devices on a cable are listed; nobody is asked for trust.");
}

void addStatus(CLI::App &app, Result *result)
{
    CLI::App *status =
        app.add_subcommand("status", "Tells what is mounted and how it does");
    const auto json = std::make_shared<bool>(false);
    status->add_flag("--json", *json, "For programs");
    status->callback([=] { *result = helper::statusCommand(*json); });
}

void addApps(CLI::App &app, Result *result)
{
    struct Given {
        std::string device;
        double wait = 0;
        bool json = false;
    };
    CLI::App *apps =
        app.add_subcommand("apps", "Lists the apps that share documents");
    const auto given = std::make_shared<Given>();
    apps->add_option("DEVICE", given->device, DEVICE_HELP);
    apps->add_option("--wait", given->wait,
                     "Seconds to wait for the device to be unlocked and to "
                     "trust this computer")
        ->check(CLI::Range(0.0, LONGEST_WAIT))
        ->capture_default_str();
    apps->add_flag("--json", given->json, "For programs");
    apps->callback([=] {
        *result = helper::appsCommand(given->device, given->wait, given->json);
    });
}

void addMount(CLI::App &app, Result *result)
{
    CLI::App *mount = app.add_subcommand("mount", "Mounts a device");
    const auto given = std::make_shared<helper::MountOptions>();
    mount->add_option("DEVICE", given->device, DEVICE_HELP);
    mount->add_option("MOUNTPOINT", given->point,
                      "An empty folder; made if it is not there");
    mount
        ->add_option("--in", given->home,
                     "The folder in which a folder named after the device is "
                     "made when no MOUNTPOINT is given; by default the media "
                     "folder of your session, or your home")
        ->envname("QUORVEL_MOUNTS");
    mount
        ->add_option("--wait", given->wait,
                     "Seconds to wait for the device to be unlocked and to "
                     "trust this computer")
        ->check(CLI::Range(0.0, LONGEST_WAIT))
        ->capture_default_str();
    mount
        ->add_option("-o,--options", given->options,
                     "Options of the FUSE library, such as allow_other")
        ->join(',');
    mount->add_flag("-q,--quiet", given->quiet,
                    "Say only what somebody has to do");
    mount->callback([=] { *result = helper::mountCommand(*given); });
    mount->footer("If the device does not know this computer, unlock it and "
                  "tap Trust; the command\nwaits, and ends when the volume "
                  "answers.\n\nExamples:\n  quorvel mount\n  quorvel mount "
                  "\"Anna's iPhone\" ~/phone");
}

void addUnmount(CLI::App &app, Result *result)
{
    struct Given {
        std::string what;
        bool force = false;
        bool quiet = false;
    };
    CLI::App *unmount = app.add_subcommand("unmount", "Unmounts a volume");
    const auto given = std::make_shared<Given>();
    unmount->add_option("WHAT", given->what,
                        "A device or a mount point; not needed for the only "
                        "volume");
    unmount->add_flag("--force", given->force,
                      "Also while programs use it; their open files fail");
    unmount->add_flag("-q,--quiet", given->quiet, "Say only what went wrong");
    unmount->callback([=] {
        *result =
            helper::unmountCommand(given->what, given->force, given->quiet);
    });
    unmount->footer("A folder that was made for the volume is removed.");
}

void addWatch(CLI::App &app, Result *result)
{
    CLI::App *watch = app.add_subcommand(
        "watch",
        "Mounts what is plugged in, unmounts what goes away, and shows "
        "transfers");
    const auto given = std::make_shared<helper::WatchOptions>();
    watch->add_flag("!--no-mount", given->mount, "Only watch");
    watch->add_flag("--keep", given->keep,
                    "Leave everything mounted at the end");
    watch->add_flag("!--no-notify", given->notify,
                    "No notifications on the desktop");
    watch
        ->add_option("--in", given->home,
                     "The folder in which folders for devices are made")
        ->envname("QUORVEL_MOUNTS");
    watch
        ->add_option("-o,--options", given->options,
                     "Options of the FUSE library, such as allow_other")
        ->join(',');
    watch->callback([=] { *result = helper::watch(*given); });
    watch->footer("Runs until Ctrl-C or SIGTERM. On a terminal the last lines "
                  "are live: one for each\ndevice, and one with what the "
                  "volumes tell: busy, files read and written, bytes,\nrate. "
                  "One watch on a machine hears that; a second one goes on "
                  "without.");
}

void addCopy(CLI::App &app, Result *result)
{
    struct Given {
        std::vector<std::string> paths;
        helper::CopyOptions options;
    };
    CLI::App *copy = app.add_subcommand(
        "copy", "Copies files and folders out of or into a mounted device");
    const auto given = std::make_shared<Given>();
    copy->add_option("SOURCE... DEST", given->paths,
                     "Paths of this machine, or DEVICE:/path")
        ->required()
        ->expected(2, -1);
    copy->add_flag("-q,--quiet", given->options.quiet,
                   "Say only what went wrong");
    copy->callback([=] {
        const std::string target = given->paths.back();
        given->paths.pop_back();
        *result = helper::copy(given->paths, target, given->options);
    });
    copy->footer(
        "Folders go into DEST under their own name; so do files if DEST is a "
        "folder or ends\nwith \"/\". A single file may get a new name. Run the "
        "same command again to go on\nwith a copy that was interrupted: what "
        "is complete is not copied again. Times are\nkept on the way out of a "
        "device; a device sets its own. Links are left out.\n\nExamples:\n  "
        "quorvel copy \"Anna's iPhone:/Media/Photo/Camera Roll\" ~/Pictures\n"
        "  quorvel copy film.mp4 \"Anna's iPhone:/Storage/\"");
}

// The library says of a word that is no command only that a command is missing.
bool isUnknownCommand(const CLI::App &app, const char *word)
{
    if (word == nullptr || *word == '-') {
        return false;
    }
    const auto commands = app.get_subcommands(
        [word](const CLI::App *command) { return command->check_name(word); });
    return commands.empty();
}

int finish(const Result &result)
{
    if (!result.ok()) {
        fprintf(stderr, "quorvel: %s\n", result.sentence.c_str());
    }
    return static_cast<int>(result.status);
}

int run(int argc, char **argv)
{
    CLI::App app("Uses iPhones, iPads and iPods on a USB cable as volumes.",
                 "quorvel");
    Result result;
    app.set_version_flag("--version", "quorvel " QUORVEL_VERSION);
    app.require_subcommand(1);
    app.footer(FOOTER);
    addList(app, &result);
    addMount(app, &result);
    addUnmount(app, &result);
    addStatus(app, &result);
    addWatch(app, &result);
    addCopy(app, &result);
    addApps(app, &result);
    if (isUnknownCommand(app, argc > 1 ? argv[1] : nullptr)) {
        return finish(
            helper::refuse(helper::message::UNKNOWN_COMMAND, {argv[1]}));
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0
                                    : static_cast<int>(helper::Status::Usage);
    }
    return finish(result);
}

} // namespace

int main(int argc, char **argv)
{
    signal(SIGPIPE, SIG_IGN);
    setlocale(LC_CTYPE, "");
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        fprintf(stderr, "quorvel: %s\n", error.what());
        return static_cast<int>(helper::Status::Failed);
    }
}
