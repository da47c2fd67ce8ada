// Other programs: started with words, never through a shell.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace helper
{

using Words = std::vector<std::string>;

// A program of ours beside this one, else any on the PATH; "" when there is
// none.
std::string findProgram(const std::string &name);
std::string ownProgram();

// Starts a program with its standard output and error in `output` and nothing
// on its standard input; signals as if started from a shell. -1 with errno.
pid_t startProgram(const Words &words, int output);

struct Ran {
    int status = -1; // exit status, 128 + signal, -1: not started or too slow
    std::string output;
};

// Runs a program to its end, `seconds` at most; one that takes longer is
// ended.
Ran runProgram(const Words &words, double seconds);

// Runs `act`, which may only make system calls, in a child, `seconds` at most:
// for calls on a volume, which may hang. The child's answer is `size` bytes
// written by `act` to the descriptor it is given. False when it gave none.
bool askInChild(void (*act)(const char *path, int answer), const char *path,
                void *answer, size_t size, double seconds);

} // namespace helper
