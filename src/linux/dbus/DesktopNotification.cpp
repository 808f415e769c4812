#include "linux/dbus/DesktopNotification.h"

#include <systemd/sd-bus.h>

#include <memory>

namespace brindlemar {

void notifyDesktop(const std::string& summary, const std::string& body) {
    constexpr std::uint64_t patience = 1'000'000; // microseconds
    sd_bus* opened = nullptr;
    if (sd_bus_open_user(&opened) < 0) return;
    const std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> bus(opened, sd_bus_flush_close_unref);
    sd_bus_set_method_call_timeout(bus.get(), patience);
    constexpr unsigned newOne = 0;
    constexpr int asLongAsUsual = -1;
    sd_bus_call_method(bus.get(), "org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                       "org.freedesktop.Notifications", "Notify", nullptr, nullptr, "susssasa{sv}i", "Brindlemar",
                       newOne, "", summary.c_str(), body.c_str(), 0, 0, asLongAsUsual);
}

} // namespace brindlemar
