// A mounted volume, and what it told people and the log.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/child.h"

// One call of the dialog program.
struct Dialog {
    std::string title;
    std::string text;
    std::string button;
    std::string mask; // the file-creation mask that the program ran with
};

class Volume
{
  public:
    struct Options {
        Words words = {}; // more arguments
        Environment environment = {};
        bool background = false; // without -f
    };

    // Mounts and waits until the volume answers, well or with an error.
    Volume(const std::string &work, const std::string &socket,
           uint32_t location);
    Volume(const std::string &work, const std::string &socket,
           uint32_t location, const Options &options);
    // Unmounts unless that was done.
    ~Volume();
    Volume(const Volume &) = delete;
    Volume &operator=(const Volume &) = delete;

    // A path on the volume: Path("Storage/a").
    std::string Path(const std::string &path = "") const;
    std::string Folder() const { return mount_point; }
    std::string PrivateFolder() const;

    // Unmounts, and checks that nothing is left: the process ended with 0, the
    // private folder is gone.
    void Unmount();

    std::vector<Dialog> Dialogs() const;
    // Waits for a dialog with this text.
    bool WaitForDialog(const std::string &text, double seconds = 5) const;
    // The lines that this process logged.
    std::vector<std::string> Log() const;
    size_t CountInLog(const std::string &text) const;
    std::string Output() const { return process->Output(); }
    Process &Server() { return *process; }

    // From now on lines that tell of failures are part of the test.
    void ExpectTrouble() { trouble_expected = true; }
    // Whether a line of the log tells of a failure that nobody expects.
    std::string UnexpectedLine() const;

  private:
    bool IsMounted() const;

    std::string mount_point;
    std::string dialog_file;
    std::string state;
    uint32_t location;
    bool trouble_expected = false;
    bool mounted = false;
    std::string log_file;
    size_t log_begin = 0;
    std::unique_ptr<Process> process;
    pid_t server = 0;
};
