// The volume's own settings as `-o key=value`: each is another way to say what
// an environment variable says, for fstab and the like, where nobody sets one.
#pragma once

#include <string>
#include <string_view>

struct SETTING {
    const char *key;      // as in "-o key=value"
    const char *variable; // the environment variable it sets
    long least, most;     // of a number; text when both are 0
};

// Ends with a record of null pointers.
extern const SETTING SETTINGS[];

// What became of one option.
enum class SettingResult { Foreign, Taken, Bad };

// Takes "key=value" into the environment; call before there is a second thread.
// Foreign: the option is none of ours. Bad: *why is the sentence to tell.
SettingResult TakeSetting(std::string_view option, std::string *why);
