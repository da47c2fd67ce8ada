// quorvel-simdevice: makes sample devices, serves them, and controls what
// serves them.

#include <CLI/CLI.hpp>

#include "simdevice/control.h"
#include "simdevice/sample_maker.h"
#include "simdevice/server.h"

namespace
{

struct MakeArguments {
    std::string folder;
    std::string ios;
    std::string trust = "trusted";
    sim::SampleOptions sample;
};

void addMake(CLI::App &program, MakeArguments &arguments)
{
    CLI::App *make =
        program.add_subcommand("make", "Make a sample device in a new folder");
    sim::Identity &identity = arguments.sample.identity;
    make->add_option("DIR", arguments.folder, "The folder")->required();
    make->add_option("--ios", arguments.ios,
                     "iOS version; chooses the databases too")
        ->default_str(identity.iosVersion);
    make->add_option("--name", identity.name, "Device name")
        ->capture_default_str();
    make->add_option("--udid", identity.udid, "Unique device identifier")
        ->capture_default_str();
    make->add_option("--location-id", identity.locationId,
                     "Where it is plugged in")
        ->capture_default_str();
    make->add_option("--apps", arguments.sample.apps,
                     "Number of apps; the third does not share its documents")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str();
    make->add_option("--photos", arguments.sample.photos,
                     "Number of plain pictures, beside the featured ones")
        ->check(CLI::Range(0, 99999))
        ->capture_default_str();
    make->add_option("--songs", arguments.sample.songs,
                     "Number of plain songs, beside the featured ones")
        ->check(CLI::Range(0, 99999))
        ->capture_default_str();
    make->add_flag("--cloud", arguments.sample.cloud,
                   "Originals are in the cloud, some of them only there");
    make->add_option("--capacity", identity.capacity, "Bytes in all")
        ->capture_default_str();
    make->add_option("--free", identity.freeSpace, "Free bytes")
        ->capture_default_str();
    make->add_option("--trust", arguments.trust,
                     "trusted, pending:N, locked, denied or stale")
        ->capture_default_str();
}

void addRun(CLI::App &program, sim::RunOptions &options)
{
    CLI::App *run = program.add_subcommand(
        "run", "Serve device folders; prints \"ready\" when it does");
    const std::map<std::string, sim::TlsUse> tls = {
        {"off", sim::TlsUse::off},
        {"session", sim::TlsUse::session},
        {"all", sim::TlsUse::all}};
    run->add_option("--socket", options.socketPath,
                    "The usbmux socket; clients get it as "
                    "USBMUXD_SOCKET_ADDRESS=UNIX:PATH")
        ->required();
    run->add_option("--device", options.folders, "A device folder; repeat it")
        ->required();
    run->add_option("--control", options.controlPath,
                    "A socket for commands (see ctl)");
    run->add_option("--rtt-us", options.roundTripUs,
                    "Round trip time of the cable in microseconds")
        ->check(CLI::Range(0, 10'000'000));
    run->add_option("--mb-per-s", options.megabytesPerSecond,
                    "Bandwidth of the cable, each way, in 1,000,000 bytes "
                    "per second")
        ->check(CLI::NonNegativeNumber);
    run->add_option("--tls", options.tls,
                    "off, session (the default) or all (services too)")
        ->transform(CLI::CheckedTransformer(tls));
    run->add_option("--max-files", options.maxFiles,
                    "Open files of one AFC connection")
        ->capture_default_str();
    run->add_option("--max-house-arrest", options.maxHouseArrest,
                    "House arrest connections of one device")
        ->capture_default_str();
    run->add_flag("--wifi", options.wifi,
                  "List each device over the network too");
    run->add_flag("--unplugged", options.unplugged,
                  "Devices come with the command \"plug\"");
    run->add_flag("--verbose", options.verbose,
                  "Tell each request on standard error");
}

int runMake(MakeArguments &arguments)
{
    sim::Identity &identity = arguments.sample.identity;
    if (!arguments.ios.empty() &&
        !sim::setIosVersion(identity, arguments.ios)) {
        std::fprintf(stderr, "quorvel-simdevice: --ios: \"%s\" is no version\n",
                     arguments.ios.c_str());
        return 1;
    }
    if (!sim::parseTrust(arguments.trust, identity.trust)) {
        std::fprintf(stderr, "quorvel-simdevice: --trust: unknown \"%s\"\n",
                     arguments.trust.c_str());
        return 1;
    }
    if (identity.freeSpace > identity.capacity) {
        std::fputs("quorvel-simdevice: --free is more than --capacity\n",
                   stderr);
        return 1;
    }
    const std::string problem =
        sim::makeSample(arguments.folder, arguments.sample);
    if (!problem.empty()) {
        std::fprintf(stderr, "quorvel-simdevice: %s\n", problem.c_str());
        return 1;
    }
    return 0;
}

int runProgram(int argc, char **argv)
{
    CLI::App program("Simulated iOS devices for tests, benchmarks and trying "
                     "things out",
                     "quorvel-simdevice");
    program.require_subcommand(1);
    program.set_version_flag("--version", QUORVEL_VERSION);
    MakeArguments make;
    sim::RunOptions run;
    std::string controlPath;
    std::vector<std::string> words;
    addMake(program, make);
    addRun(program, run);
    CLI::App *ctl = program.add_subcommand(
        "ctl", "Send one command to a simulator's control socket");
    ctl->add_option("PATH", controlPath, "The control socket")->required();
    ctl->add_option("COMMAND", words, "The command")->required();
    ctl->footer(sim::kControlHelp);
    ctl->allow_extras(false);
    ctl->prefix_command();
    CLI11_PARSE(program, argc, argv);

    if (program.got_subcommand("make")) {
        return runMake(make);
    }
    if (program.got_subcommand("run")) {
        return sim::runSimulator(run);
    }
    std::string line;
    for (const std::string &word : words) {
        line += (line.empty() ? "" : " ") + word;
    }
    return sim::sendControlCommand(controlPath, line);
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return runProgram(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "quorvel-simdevice: %s\n", error.what());
        return 1;
    }
}
