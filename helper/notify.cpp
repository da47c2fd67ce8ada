#include "helper/notify.h"

#include <libnotify/notify.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "helper/text.h"

namespace helper
{

namespace
{

constexpr auto LAST_WAIT = std::chrono::seconds(1);
constexpr size_t MOST = 50; // that wait for a desktop which does not answer

bool desktop()
{
    for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes it
        const char *value = getenv(name);
        if (value != nullptr && *value != '\0') {
            return true;
        }
    }
    return false;
}

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
using Shown = std::map<std::string, std::unique_ptr<NotifyNotification, Unref>>;

// Whether the desktop takes a text's "<" for the beginning of markup. Asked each
// time: another one may have come.
bool takesMarkup()
{
    GList *abilities = notify_get_server_caps();
    const bool takes =
        g_list_find_custom(abilities, "body-markup", [](auto one, auto wanted) {
            return g_strcmp0(static_cast<const char *>(one),
                             static_cast<const char *>(wanted));
        }) != nullptr;
    g_list_free_full(abilities, g_free);
    return takes;
}

std::string forDesktop(const std::string &text)
{
    std::string plain = printable(text);
    if (!takesMarkup()) {
        return plain;
    }
    const std::unique_ptr<char, decltype(&g_free)> escaped(
        g_markup_escape_text(plain.c_str(), -1), g_free);
    return escaped.get();
}

struct Wanted {
    std::string about;
    std::string title;
    std::string text;
};

// The library's connection would end this program with the session's bus.
void outliveTheBus()
{
    GDBusConnection *bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    if (bus != nullptr) {
        g_dbus_connection_set_exit_on_close(bus, FALSE);
        g_object_unref(bus);
    }
}

void showOne(Shown &shown, const Wanted &wanted)
{
    const std::string summary = printable(wanted.title);
    const std::string body = forDesktop(wanted.text);
    auto &one = shown[wanted.about];
    if (one == nullptr) {
        one.reset(
            notify_notification_new(summary.c_str(), body.c_str(), "phone"));
    } else {
        notify_notification_update(one.get(), summary.c_str(), body.c_str(),
                                   "phone");
    }
    // Nobody there to show it: the terminal has the same text.
    if (notify_notification_show(one.get(), nullptr) == FALSE) {
        shown.erase(wanted.about);
    }
}

} // namespace

struct Notifier::Queue {
    std::mutex lock;
    std::condition_variable changed;
    std::deque<Wanted> waiting; // under the lock
    bool working = false;       // under the lock
    bool ending = false;        // under the lock

    void work();
};

void Notifier::Queue::work()
{
    Shown shown;
    std::unique_lock<std::mutex> hold(lock);
    for (;;) {
        changed.wait(hold, [this] { return ending || !waiting.empty(); });
        if (waiting.empty()) {
            return;
        }
        const Wanted next = std::move(waiting.front());
        waiting.pop_front();
        working = true;
        hold.unlock();
        if (notify_is_initted() != FALSE || notify_init("Quorvel") != FALSE) {
            outliveTheBus();
            showOne(shown, next);
        }
        hold.lock();
        working = false;
        changed.notify_all();
    }
}

Notifier::Notifier() : queue(std::make_shared<Queue>()) {}

Notifier::~Notifier()
{
    std::unique_lock<std::mutex> hold(queue->lock);
    queue->changed.wait_for(hold, LAST_WAIT, [this] {
        return queue->waiting.empty() && !queue->working;
    });
    queue->waiting.clear();
    queue->ending = true;
    queue->changed.notify_all();
}

void Notifier::show(const std::string &about, const std::string &title,
                    const std::string &text)
{
    if (!desktop()) {
        return;
    }
    try {
        if (!started) {
            std::thread([mine = queue] { mine->work(); }).detach();
            started = true;
        }
    } catch (const std::system_error &) {
        return;
    }
    const std::lock_guard<std::mutex> hold(queue->lock);
    if (queue->waiting.size() < MOST) {
        queue->waiting.push_back({about, title, text});
    }
    queue->changed.notify_all();
}

} // namespace helper
