#include "helper/copy_plan.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <set>

namespace helper
{

namespace
{

// File systems keep times in steps of up to two seconds.
constexpr int64_t STEP_SECONDS = 2;
// A device's clock differs a little from ours.
constexpr int64_t CLOCK_SECONDS = 60;

struct Planner {
    CopyPlan &plan;
    const CopyEnd &target;
    const std::function<bool()> &stopped;
    std::set<std::string> targets = {};
};

void problem(Planner &planner, const std::string &path, const std::string &why,
             bool failure = true)
{
    planner.plan.problems.push_back({path, why, failure});
}

std::string nameOf(const std::string &path)
{
    return path.substr(path.find_last_of('/') + 1);
}

bool alreadyThere(const CopyPlan &plan, const struct stat &source,
                  const struct stat &there)
{
    if (!S_ISREG(there.st_mode) || there.st_size != source.st_size) {
        return false;
    }
    const int64_t later = there.st_mtim.tv_sec - source.st_mtim.tv_sec;
    return plan.to_device ? later >= -CLOCK_SECONDS
                          : later > -STEP_SECONDS && later < STEP_SECONDS;
}

void addFile(Planner &planner, const std::string &source, const struct stat &st,
             const std::string &target, bool fresh)
{
    if (!planner.targets.insert(target).second) {
        problem(planner, source, message::COPY_SAME_NAME);
        return;
    }
    struct stat there {
    };
    const bool exists = !fresh && lstat(target.c_str(), &there) == 0;
    const auto size = static_cast<uint64_t>(st.st_size);
    if (exists && there.st_dev == st.st_dev && there.st_ino == st.st_ino) {
        problem(planner, source, message::COPY_INTO_ITSELF);
    } else if (exists && S_ISDIR(there.st_mode)) {
        problem(planner, target, strerrordesc_np(EISDIR));
    } else if (exists && alreadyThere(planner.plan, st, there)) {
        ++planner.plan.present_files;
        planner.plan.present_bytes += size;
    } else {
        planner.plan.files.push_back(
            {source, target, size, st.st_mtim, exists});
        planner.plan.bytes += size;
    }
}

void addEntry(Planner &planner, const std::string &source,
              const struct stat &st, const std::string &target, bool fresh);

// The names first: a folder is not kept open while what is below it is looked
// at.
int namesIn(const std::string &folder, std::vector<std::string> &names)
{
    const std::unique_ptr<DIR, int (*)(DIR *)> open(opendir(folder.c_str()),
                                                    closedir);
    if (open == nullptr) {
        return errno;
    }
    errno = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this function's own
    while (const dirent *entry = readdir(open.get())) {
        if (strcmp(entry->d_name, ".") != 0 &&
            strcmp(entry->d_name, "..") != 0) {
            names.emplace_back(entry->d_name);
        }
        errno = 0;
    }
    return errno;
}

void addContents(Planner &planner, const std::string &source,
                 const std::string &target, bool fresh)
{
    std::vector<std::string> names;
    const int error = namesIn(source, names);
    if (error != 0) {
        problem(planner, source, strerrordesc_np(error));
    }
    for (const std::string &name : names) {
        if (planner.stopped()) {
            return;
        }
        const std::string path = source + "/" + name;
        struct stat st {
        };
        if (lstat(path.c_str(), &st) != 0) {
            problem(planner, path, strerrordesc_np(errno));
            continue;
        }
        addEntry(planner, path, st, target + "/" + name, fresh);
    }
}

void addFolder(Planner &planner, const std::string &source,
               const struct stat &st, const std::string &target, bool fresh)
{
    if (planner.target.path == source ||
        planner.target.path.starts_with(source + "/")) {
        problem(planner, source, message::COPY_INTO_ITSELF);
        return;
    }
    struct stat there {
    };
    const bool exists = !fresh && stat(target.c_str(), &there) == 0;
    if (exists && !S_ISDIR(there.st_mode)) {
        problem(planner, target, strerrordesc_np(ENOTDIR));
        return;
    }
    if (!exists) {
        planner.plan.folders.push_back({target, st.st_mtim});
    }
    const size_t before = planner.plan.files.size();
    addContents(planner, source, target, !exists);
    // One that an earlier copy has begun gets its time when it is gone on with.
    if (exists && planner.plan.files.size() > before) {
        planner.plan.folders.push_back({target, st.st_mtim});
    }
}

void addEntry(Planner &planner, const std::string &source,
              const struct stat &st, const std::string &target, bool fresh)
{
    if (S_ISDIR(st.st_mode)) {
        addFolder(planner, source, st, target, fresh);
    } else if (S_ISREG(st.st_mode)) {
        addFile(planner, source, st, target, fresh);
    } else {
        problem(planner, source,
                S_ISLNK(st.st_mode) ? message::COPY_SKIPPED_LINK
                                    : message::COPY_SKIPPED_SPECIAL,
                false);
    }
}

void addSource(Planner &planner, const CopyEnd &source, bool into)
{
    struct stat st {
    };
    if (stat(source.path.c_str(), &st) != 0) {
        problem(planner, source.path, strerrordesc_np(errno));
        return;
    }
    const std::string name =
        source.path == source.volume ? "" : "/" + nameOf(source.path);
    addEntry(planner, source.path, st,
             into ? planner.target.path + name : planner.target.path, false);
}

bool anyFolder(const std::vector<CopyEnd> &sources)
{
    for (const CopyEnd &source : sources) {
        struct stat st {
        };
        if (stat(source.path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            return true;
        }
    }
    return false;
}

} // namespace

Result planCopy(const std::vector<CopyEnd> &sources, const CopyEnd &target,
                bool target_is_folder, const std::function<bool()> &stopped,
                CopyPlan &plan)
{
    plan.to_device = !target.volume.empty();
    struct stat st {
    };
    const bool exists = stat(target.path.c_str(), &st) == 0;
    const bool into = target_is_folder || sources.size() > 1 ||
                      anyFolder(sources) || (exists && S_ISDIR(st.st_mode));
    if (into && exists && !S_ISDIR(st.st_mode)) {
        return refuse(message::TARGET_NO_FOLDER, {target.path});
    }
    if (into && !exists) {
        plan.folders.push_back({target.path, {0, UTIME_OMIT}});
    }
    Planner planner = {plan, target, stopped};
    for (const CopyEnd &source : sources) {
        addSource(planner, source, into);
    }
    return {};
}

} // namespace helper
