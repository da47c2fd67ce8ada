// Going to the background: the starting command stays until the volume answers,
// so that what comes after it in a script finds the device's files.
#pragma once

// Splits the process. The starting one waits for TellStarted and ends with its
// status; the call returns true in the one that serves, which has left the
// terminal, and false when the split failed.
bool EnterBackground();

// Start-up is over: `works` or not. To be called once, by the volume's init.
// False: nobody waits any more (the starting command was interrupted), and the
// volume is to go.
bool TellStarted(bool works);

// Whether a starting command waited and was interrupted.
bool StarterGone();

// Signals that end a process are kept back from before the volume is mounted
// until somebody unmounts it at such a signal: in between, one would leave the
// mount of a dead file system.
void HoldEndingSignals();
void ReleaseEndingSignals();
