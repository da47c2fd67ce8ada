#include "helper/copy.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "helper/clock.h"
#include "helper/copy_run.h"
#include "helper/progress.h"
#include "helper/screen.h"
#include "helper/signals.h"
#include "helper/text.h"

namespace helper
{

namespace
{

constexpr int DRAW_MS = 100;

struct Totals {
    uint64_t failed = 0;
    uint64_t left_out = 0;
};

void tellProblems(const std::vector<CopyProblem> &problems)
{
    for (const CopyProblem &problem : problems) {
        fprintf(stderr, "quorvel: %s: %s\n", printable(problem.path).c_str(),
                problem.why.c_str());
    }
}

Totals countProblems(const std::vector<CopyProblem> &problems)
{
    Totals totals;
    for (const CopyProblem &problem : problems) {
        ++(problem.failure ? totals.failed : totals.left_out);
    }
    return totals;
}

// What was to come below a folder that cannot be made is left out.
void leaveOut(CopyPlan &plan, const std::string &folder)
{
    const auto below = [inside = folder + "/"](const auto &one) {
        return one.target.starts_with(inside);
    };
    std::erase_if(plan.folders, below);
    plan.bytes = 0;
    std::erase_if(plan.files, below);
    for (const CopyFile &file : plan.files) {
        plan.bytes += file.size;
    }
}

// Without the target's own folder nothing can be copied; without another one,
// the rest can.
Result makeFolders(CopyPlan &plan)
{
    for (size_t i = 0; i < plan.folders.size(); ++i) {
        const CopyFolder folder = plan.folders[i];
        if (mkdir(folder.target.c_str(), 0777) == 0 || errno == EEXIST) {
            continue;
        }
        const char *why = copyReason(errno);
        if (folder.time.tv_nsec == UTIME_OMIT) {
            return refuse(message::NO_TARGET_FOLDER, {folder.target, why});
        }
        plan.problems.push_back({folder.target, why});
        leaveOut(plan, folder.target);
    }
    return {};
}

// In the end, because every file put into a folder changes its time.
void keepFolderTimes(const CopyPlan &plan)
{
    if (plan.to_device) {
        return;
    }
    for (auto at = plan.folders.rbegin(); at != plan.folders.rend(); ++at) {
        const timespec times[2] = {{0, UTIME_OMIT}, at->time};
        utimensat(AT_FDCWD, at->target.c_str(), times, 0);
    }
}

Result resolveAll(const std::vector<std::string> &texts, const CopyWorld &world,
                  std::vector<CopyEnd> &ends)
{
    for (const std::string &text : texts) {
        const Result result = resolveEnd(world, text, ends.emplace_back());
        if (!result.ok()) {
            return result;
        }
    }
    return {};
}

std::vector<std::string> devicesOf(const std::vector<CopyEnd> &ends)
{
    std::vector<std::string> udids;
    for (const CopyEnd &end : ends) {
        if (!end.udid.empty()) {
            udids.push_back(end.udid);
        }
    }
    return udids;
}

// Draws and listens until the threads are done. True: interrupted.
bool attend(CopyRun &run, const CopyPlan &plan, Screen &screen,
            const Signals &signals, bool quiet)
{
    Progress progress(plan.bytes);
    double drawn = 0;
    bool interrupted = false;
    while (!run.figures.ended) {
        pollfd news[] = {{signals.descriptor(), POLLIN, 0},
                         {run.ending(), POLLIN, 0}};
        poll(news, std::size(news), DRAW_MS);
        if (signals.take() != 0) {
            interrupted = true;
            run.stop();
        }
        const std::vector<CopyProblem> problems = run.takeProblems();
        if (!problems.empty()) {
            screen.show({});
            tellProblems(problems);
        }
        if (!quiet && screen.live() && now() - drawn >= DRAW_MS / 1000.0) {
            drawn = now();
            screen.show({progress.line(run.figures.bytes, run.figures.resumed,
                                       drawn, run.current())});
        }
    }
    screen.show({});
    tellProblems(run.takeProblems());
    return interrupted;
}

std::string summary(const CopyPlan &plan, const CopyFigures &figures,
                    const Totals &totals, double seconds)
{
    const uint64_t moved = figures.bytes - figures.resumed;
    std::string text = "Copied " + countText(figures.files, "file", "files") +
                       " (" + bytesText(moved) + ") in " + secondsText(seconds);
    if (seconds >= 1) {
        text += ", " +
                bytesText(static_cast<uint64_t>(static_cast<double>(moved) /
                                                seconds)) +
                "/s";
    }
    const auto also = [&](uint64_t count, const char *what) {
        text += count == 0 ? "" : "; " + countText(count, "", "") + what;
    };
    also(plan.present_files,
         plan.present_files == 1 ? "was there already" : "were there already");
    also(totals.failed, "failed");
    also(totals.left_out, "left out");
    return text + ".";
}

Result judge(const CopyFigures &figures, const Totals &totals, bool interrupted)
{
    if (figures.gone) {
        return refuse(message::COPY_GONE);
    }
    if (interrupted) {
        return refuse(message::COPY_INTERRUPTED);
    }
    return totals.failed > 0 ? refuse(message::COPY_INCOMPLETE) : Result();
}

Result carryOut(CopyPlan &plan, const std::vector<std::string> &udids,
                const Signals &signals, const CopyOptions &options)
{
    const Result made = makeFolders(plan);
    if (!made.ok()) {
        return made;
    }
    tellProblems(plan.problems);
    const double begin = now();
    Screen screen;
    CopyRun run(plan, udids);
    const bool interrupted = attend(run, plan, screen, signals, options.quiet);
    keepFolderTimes(plan);
    Totals totals = countProblems(plan.problems);
    totals.failed += run.figures.failed;
    if (!options.quiet) {
        screen.say(summary(plan, run.figures, totals, now() - begin));
    }
    return judge(run.figures, totals, interrupted);
}

} // namespace

Result copy(const std::vector<std::string> &sources, const std::string &target,
            const CopyOptions &options)
{
    const Signals signals;
    std::vector<std::string> texts = sources;
    texts.push_back(target);
    const CopyWorld world = lookAround(texts);
    std::vector<CopyEnd> ends;
    Result result = resolveAll(sources, world, ends);
    CopyEnd to;
    if (result.ok()) {
        result = resolveEnd(world, target, to);
    }
    if (!result.ok()) {
        return result;
    }
    bool stopped = false;
    CopyPlan plan;
    result = planCopy(
        ends, to, target.ends_with('/'),
        [&] { return stopped = stopped || signals.take() != 0; }, plan);
    if (!result.ok() || stopped) {
        return stopped ? refuse(message::COPY_INTERRUPTED) : result;
    }
    ends.push_back(to);
    return carryOut(plan, devicesOf(ends), signals, options);
}

} // namespace helper
