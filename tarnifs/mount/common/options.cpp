#include "tarnifs/mount/common/options.h"

#include <cstring>

#include "tarnifs/mount/arguments.h"
#include "tarnifs/mount/settings.h"

namespace
{

constexpr const char *LOCATION = "location_id=";

// The library's answers: -1 ends, 0 drops the option, 1 keeps it.
constexpr int END = -1;
constexpr int DROP = 0;
constexpr int KEEP = 1;

int TakeLocation(const char *text, OwnOptions *own)
{
    int32_t id = 0;
    if (!ParseLocationId(text, &id)) {
        own->problem = std::string("not a location id: ") + text;
        return END;
    }
    own->location = static_cast<uint32_t>(id);
    return DROP;
}

int TakeOption(void *data, const char *option, int key, fuse_args *)
{
    auto *own = static_cast<OwnOptions *>(data);
    if (key == FUSE_OPT_KEY_NONOPT) {
        if (own->mount_point.empty()) {
            own->mount_point = option;
        }
        return KEEP;
    }
    if (strncmp(option, LOCATION, strlen(LOCATION)) == 0) {
        return TakeLocation(option + strlen(LOCATION), own);
    }
    switch (TakeSetting(option, &own->problem)) {
    case SettingResult::Foreign:
        return KEEP;
    case SettingResult::Taken:
        return DROP;
    case SettingResult::Bad:
        break;
    }
    return END;
}

} // namespace

bool TakeOwnOptions(fuse_args *args, OwnOptions *own)
{
    static const fuse_opt none[] = {FUSE_OPT_END};
    return fuse_opt_parse(args, own, none, TakeOption) == 0;
}
