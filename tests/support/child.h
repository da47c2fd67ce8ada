// Child processes with a time limit. A volume that hangs must fail a test, not
// hang it, so every access to one is made in a child that can be given up.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/temp_folder.h"

using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

// How much slower than others this build is: limits on time grow with it.
constexpr double SLOWNESS = TEST_SLOWNESS;

constexpr double PATIENCE =
    40 * SLOWNESS; // seconds for what should take a moment

// Seconds on a clock that only goes forward.
double Now();

// Tries `test` every few milliseconds until it holds; false when `seconds` have
// gone by.
bool Eventually(const std::function<bool()> &test, double seconds = PATIENCE);

// How a call on the volume ended.
struct Outcome {
    int error = 0;      // errno, 0: success, -1: it did not end in time
    std::string data;   // what the call produced
    double seconds = 0; // how long it took
};

// Runs `act` in a child; it returns an errno and may fill a text.
Outcome Access(const std::function<int(std::string *)> &act,
               double limit = PATIENCE);

// A call that gives a negative number and sets errno when it fails.
Outcome Try(const std::function<int()> &call);

// The usual calls, each in a child of its own.
Outcome Stat(const std::string &path);
Outcome ReadFile(const std::string &path); // data: the contents
Outcome List(const std::string &path);     // data: sorted, one name per line
// open(2) with `flags` and write(2) of all of `data`, then close.
Outcome WriteFile(const std::string &path, int flags, const std::string &data);

// A program that ran to its end.
struct Finished {
    int status = -1; // exit status, 128 + signal, -1: it did not end in time
    std::string out; // standard output and standard error
    double seconds = 0;
};
Finished RunProgram(const Words &words, const Environment &environment = {},
                    double limit = PATIENCE);

// A program in the background, its standard output and error in a file. Ended
// with SIGTERM, then SIGKILL, when the record goes.
class Process
{
  public:
    Process(const Words &words, const Environment &environment,
            std::string log_file);
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    pid_t Pid() const { return pid; }
    std::string Output() const;
    bool Running();
    // Waits for the end: exit status, 128 + signal, or -1 after `limit`.
    int Wait(double limit);
    void Signal(int number) const;

  private:
    pid_t pid;
    int status = -1;
    std::string log;
};

// Contents of a plain file on this machine; "" when there is none.
std::string Slurp(const std::string &path);
void Spill(const std::string &path, const std::string &data);
