#include "tarnifs/mount/settings.h"

#include <charconv>
#include <cstdlib>

namespace
{

bool IsText(const SETTING &setting)
{
    return setting.least == 0 && setting.most == 0;
}

bool IsNumberWithin(const SETTING &setting, std::string_view text)
{
    long value = 0;
    const char *end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && at == end && value >= setting.least &&
           value <= setting.most;
}

std::string Range(const SETTING &setting)
{
    if (IsText(setting)) {
        return "a text";
    }
    return "a number from " + std::to_string(setting.least) + " to " +
           std::to_string(setting.most);
}

const SETTING *FindSetting(std::string_view key)
{
    const SETTING *setting = SETTINGS;
    while (setting->key != nullptr && key != setting->key) {
        ++setting;
    }
    return setting->key != nullptr ? setting : nullptr;
}

} // namespace

// The bounds of the device layer's numbers are those of device/libiusb.h.
const SETTING SETTINGS[] = {
    {"usbmux", "USBMUXD_SOCKET_ADDRESS", 0, 0},
    {"dialog", "QUORVEL_DIALOG", 0, 0},
    {"log_level", "QUORVEL_LOGLEVEL", -1, 7},
    {"timeout_ms", "QUORVEL_TIMEOUT_MS", 50, 600'000},
    {"afc_window", "QUORVEL_AFC_WINDOW", 1, 4096},
    {nullptr, nullptr, 0, 0},
};

SettingResult TakeSetting(std::string_view option, std::string *why)
{
    const size_t equals = option.find('=');
    const SETTING *setting = FindSetting(option.substr(0, equals));
    if (setting == nullptr) {
        return SettingResult::Foreign;
    }
    const std::string value(
        equals == std::string_view::npos ? "" : option.substr(equals + 1));
    if (value.empty() ||
        (!IsText(*setting) && !IsNumberWithin(*setting, value))) {
        *why = std::string("-o ") + setting->key + " needs " + Range(*setting);
        return SettingResult::Bad;
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread only
    setenv(setting->variable, value.c_str(), 1);
    return SettingResult::Taken;
}
