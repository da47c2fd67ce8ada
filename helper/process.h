// Other programs: started with words, never through a shell.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace helper
{

using Words = std::vector<std::string>;

// A program of ours beside this one, else any on the PATH; "" when there is
// none.
std::string findProgram(const std::string &name);
std::string ownProgram();

// Starts a program with its standard output and error in `output`, nothing on
// its standard input and no other descriptor; signals as if started from a
// shell. The first word is its path. -1 with errno.
pid_t startProgram(const Words &words, int output);

struct Ran {
    int status = -1; // exit status, 128 + signal, -1: not started or too slow
    std::string output;
};

// Runs a program to its end, `seconds` at most and until `stopped` says so; one
// that takes longer is ended.
Ran runProgram(
    const Words &words, double seconds,
    const std::function<bool()> &stopped = [] { return false; });

// Runs `act`, which may only make system calls where this process has threads,
// in a child, `seconds` at most: for calls on a volume, which may hang. What it
// writes to the descriptor it is given is the answer. False when it did not end
// in time.
bool askInChild(const std::function<void(int answer)> &act, double seconds,
                std::string &answer);

// Pieces of the above. `until` is a time of `now`.

// Appends what can be read until the other end is closed; false when `until`
// comes first, or `stopped` says so.
bool readUntil(
    int fd, double until, std::string &data,
    const std::function<bool()> &stopped = [] { return false; });
// The exit status of a child that ends before `until`, or 128 + the signal that
// ended it; -1 of one that does not.
int reap(pid_t pid, double until);

} // namespace helper
