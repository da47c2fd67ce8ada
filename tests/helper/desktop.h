// A session bus with a notification service of the test's own.
#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/child.h"

// A notification that somebody asked for.
struct Notification {
    uint32_t replaces = 0;
    std::string title;
    std::string text;
};

class Desktop
{
  public:
    // `answers`: whether the service ever answers. `work`: for the bus's files.
    Desktop(const std::string &work, bool answers);
    ~Desktop();
    Desktop(const Desktop &) = delete;
    Desktop &operator=(const Desktop &) = delete;

    // For the environment of a program that is to find it.
    std::string Address() const { return address; }
    std::vector<Notification> Shown();

  private:
    static void Called(GDBusConnection *connection, const char *sender,
                       const char *path, const char *interface,
                       const char *method, GVariant *parameters,
                       GDBusMethodInvocation *call, void *self);
    void Serve();

    std::string address;
    const bool answering;
    std::unique_ptr<Process> bus;
    GMainContext *context;
    GMainLoop *loop;
    GDBusConnection *connection = nullptr;
    GDBusNodeInfo *interfaces = nullptr;
    std::mutex lock;
    std::vector<Notification> shown; // under the lock
    std::vector<GDBusMethodInvocation *> unanswered;
    std::thread thread;
};
