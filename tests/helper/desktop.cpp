#include "tests/helper/desktop.h"

#include <stdexcept>

namespace
{

constexpr const char *NAME = "org.freedesktop.Notifications";

// The part of the desktop's interface that programs like ours use.
constexpr const char *INTERFACE = R"(<node>
<interface name="org.freedesktop.Notifications">
  <method name="GetCapabilities"><arg type="as" direction="out"/></method>
  <method name="GetServerInformation">
    <arg type="s" direction="out"/><arg type="s" direction="out"/>
    <arg type="s" direction="out"/><arg type="s" direction="out"/>
  </method>
  <method name="Notify">
    <arg type="s" direction="in"/><arg type="u" direction="in"/>
    <arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="s" direction="in"/><arg type="as" direction="in"/>
    <arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>
    <arg type="u" direction="out"/>
  </method>
</interface></node>)";

void Require(bool holds, const char *what)
{
    if (!holds) {
        throw std::runtime_error(std::string("no desktop: ") + what);
    }
}

} // namespace

Desktop::Desktop(const std::string &work, bool answers)
    : address("unix:path=" + work + "/bus"), answering(answers),
      context(g_main_context_new()), loop(g_main_loop_new(context, FALSE))
{
    bus =
        std::make_unique<Process>(Words{"dbus-daemon", "--session", "--nofork",
                                        "--nosyslog", "--address=" + address},
                                  Environment{}, work + "/bus.log");
    const bool connected = Eventually([&] {
        connection = g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(
                G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
        return connection != nullptr;
    });
    Require(connected, "the bus did not start");
    interfaces = g_dbus_node_info_new_for_xml(INTERFACE, nullptr);
    Serve();
    thread = std::thread([this] {
        g_main_context_push_thread_default(context);
        g_main_loop_run(loop);
        g_main_context_pop_thread_default(context);
    });
}

Desktop::~Desktop()
{
    g_main_loop_quit(loop);
    thread.join();
    for (GDBusMethodInvocation *call : unanswered) {
        g_object_unref(call);
    }
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    g_object_unref(connection);
    g_dbus_node_info_unref(interfaces);
    g_main_loop_unref(loop);
    g_main_context_unref(context);
}

void Desktop::Serve()
{
    static const GDBusInterfaceVTable CALLS = {Called, nullptr, nullptr, {}};
    g_main_context_push_thread_default(context);
    const guint id = g_dbus_connection_register_object(
        connection, "/org/freedesktop/Notifications", interfaces->interfaces[0],
        &CALLS, this, nullptr, nullptr);
    g_main_context_pop_thread_default(context);
    Require(id != 0, "the object could not be registered");
    GVariant *owned = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus",
        "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", NAME, 0U),
        nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    Require(owned != nullptr, "the name could not be had");
    g_variant_unref(owned);
}

void Desktop::Called(GDBusConnection *, const char *, const char *,
                     const char *, const char *method, GVariant *parameters,
                     GDBusMethodInvocation *call, void *self)
{
    auto *desktop = static_cast<Desktop *>(self);
    GVariant *answer = nullptr;
    if (g_strcmp0(method, "GetCapabilities") == 0) {
        const char *const abilities[] = {"body", "body-markup", nullptr};
        answer = g_variant_new("(^as)", abilities);
    } else if (g_strcmp0(method, "GetServerInformation") == 0) {
        answer = g_variant_new("(ssss)", "test", "test", "1", "1.2");
    } else {
        Notification one;
        const char *title = nullptr;
        const char *text = nullptr;
        g_variant_get_child(parameters, 1, "u", &one.replaces);
        g_variant_get_child(parameters, 3, "&s", &title);
        g_variant_get_child(parameters, 4, "&s", &text);
        one.title = title;
        one.text = text;
        const std::lock_guard<std::mutex> hold(desktop->lock);
        desktop->shown.push_back(one);
        answer = g_variant_new("(u)",
                               one.replaces != 0
                                   ? one.replaces
                                   : static_cast<guint>(desktop->shown.size()));
    }
    if (desktop->answering) {
        g_dbus_method_invocation_return_value(call, answer);
    } else {
        g_variant_unref(g_variant_ref_sink(answer));
        desktop->unanswered.push_back(call);
    }
}

std::vector<Notification> Desktop::Shown()
{
    const std::lock_guard<std::mutex> hold(lock);
    return shown;
}
