// The process log: each message opens the file, appends one line, closes it.
#pragma once

// Fixes the threshold and the file's path and writes the start-up lines. Call
// once, before the first message that matters.
//
// The threshold is the number "LogLevel" of the application bundle (on Linux the
// environment variable QUORVEL_LOGLEVEL); the default, and the most that can be
// set, is 3. Negative: silent. The file is /var/log/Quorvelfs<month>M<day>D.log,
// or of that name in the user's own folder for logs where /var/log can't be
// written.
void QNLogInit();

// printf-style; written when `level` (syslog numbering) is not above the
// threshold. By convention the level is 3 and the format begins with "%s ",
// whose argument is the calling function's own name. No trailing newline. Cut
// at 2047 bytes. Any thread may call it.
void QNLog(int level, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

// From the next QNLogInit on the file lies in this folder instead of the usual
// places; null: the usual places again. For programs that keep several logs
// apart, and tests.
void QNLogUseFolder(const char *folder);
