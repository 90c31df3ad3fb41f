#pragma once

/// The outside programs that the service starts, each by its absolute path. The browser is one of
/// them.
namespace programs {

constexpr const char *amixer = "/usr/bin/amixer";
constexpr const char *aplay = "/usr/bin/aplay";
constexpr const char *browser = "/usr/bin/qt-webkit-kiosk";
constexpr const char *date = "/bin/date";
constexpr const char *ifconfig = "/sbin/ifconfig";
constexpr const char *killall = "/usr/bin/killall";
constexpr const char *lsusb = "/usr/bin/lsusb";
constexpr const char *mount = "/bin/mount";
constexpr const char *network_script = "/etc/init.d/S40network";
constexpr const char *reboot = "/sbin/reboot";
constexpr const char *tvservice = "/usr/bin/tvservice";
constexpr const char *udhcpc = "/sbin/udhcpc";
constexpr const char *wget = "/usr/bin/wget";

} // namespace programs
