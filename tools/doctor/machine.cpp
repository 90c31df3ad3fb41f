#include "tools/doctor/machine.h"

#include "hdtv/alert_document.h"
#include "hdtv/programs.h"
#include "hdtv/watchdog.h"
#include "tools/doctor/files.h"
#include "tools/doctor/run_program.h"
#include "tools/doctor/sections.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/statvfs.h>
#include <sys/timex.h>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr unsigned long long megabyte = 1000000;

// upkeep moves the log away when it is larger than 1 MB; it looks every ten minutes.
constexpr unsigned long long largest_log = 2 * megabyte;

// A clip, and the log with its predecessor.
constexpr unsigned long long room_in_tmp = 4 * megabyte;
// The longest document many times over.
constexpr unsigned long long room_in_shm = megabyte;

constexpr const char *timeout_link = "watchdog timeout";

// The watchdog. Its device is never opened: that alone would arm it.

bool is_held_by_service(const snapshot &taken) {
    const auto files = taken.service() != nullptr ? open_files(taken.service()->pid) : std::nullopt;
    return files && std::ranges::find(*files, watchdog_device) != files->end();
}

finding about_watchdog(const snapshot &taken) {
    constexpr const char *link = "watchdog";
    if (!is_there(watchdog_device)) {
        return has_failed(link, std::string("there is no ") + watchdog_device,
                          "load the board's watchdog driver: without it nothing resets a hung unit",
                          chapter::parts);
    }
    if (taken.service() == nullptr) {
        return cannot_tell(link, std::string(watchdog_device) + " is there; the service, which "
                                                                "holds it, is not running");
    }
    if (!open_files(taken.service()->pid)) {
        return cannot_tell(link, std::string(watchdog_device) + " is there; only root sees who "
                                                                "holds it");
    }
    if (!is_held_by_service(taken)) {
        return has_failed(link, std::string("the service does not hold ") + watchdog_device,
                          "does another program hold it? End that, and restart the service",
                          chapter::trouble);
    }
    return is_ok(link, std::string("the service holds ") + watchdog_device);
}

finding about_watchdog_timeout(const snapshot &taken) {
    const std::string place = "/sys/class/watchdog/watchdog0/";
    const auto timeout = number_in(first_line(place + "timeout"));
    if (!timeout) {
        return cannot_tell(timeout_link, "the kernel does not tell");
    }
    return grade_watchdog_timeout({first_line(place + "identity"), *timeout,
                                   first_line(place + "state"), is_held_by_service(taken)});
}

// Space.

unsigned long long room_at(const char *place) {
    struct statvfs status {};
    return statvfs(place, &status) == 0
               ? static_cast<unsigned long long>(status.f_bavail) * status.f_frsize
               : 0;
}

bool is_read_only(const char *place) {
    struct statvfs status {};
    return statvfs(place, &status) == 0 && (status.f_flag & ST_RDONLY) != 0;
}

std::string directory_of(const char *file) {
    return fs::path(file).parent_path();
}

finding about_root() {
    return grade_root(is_read_only("/"), is_there("/etc/debian_version"));
}

finding about_log() {
    constexpr const char *link = "alert log";
    std::error_code error;
    const auto size = fs::file_size(document_log, error);
    if (error) {
        return is_ok(link, std::string(document_log) + " is not there yet");
    }
    if (size > largest_log) {
        return has_failed(link, std::string(document_log) + " has " + size_text(size),
                          "upkeep, which should move it away at 1 MB, does not run",
                          chapter::upkeep);
    }
    return is_ok(link, std::string(document_log) + ", " + size_text(size));
}

// Time.

finding about_time_zone() {
    constexpr const char *link = "time zone";
    constexpr const char *place = "/etc/localtime";
    std::error_code error;
    if (fs::is_symlink(place, error) && !is_there(place)) {
        return has_failed(
            link,
            std::string(place) + " leads nowhere, to " + fs::read_symlink(place, error).string(),
            "dpkg-reconfigure tzdata, or put the zone into the image", chapter::trouble);
    }
    tzset();
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[64] = "";
    std::strftime(text, sizeof text, "%Z, now %H:%M", &local);
    if (std::strcmp(local.tm_zone, "UTC") == 0 || std::strcmp(local.tm_zone, "Universal") == 0) {
        return cannot_tell(link, std::string(text) + ": is this what the station's clocks show?",
                           "set the station's zone (dpkg-reconfigure tzdata): in UTC a clock that "
                           "is right shows the wrong hour",
                           chapter::trouble);
    }
    return is_ok(link, text);
}

finding about_clock() {
    timex state{};
    const int result = adjtimex(&state); // modes 0: it only reads
    return grade_clock(std::time(nullptr), result >= 0 && (state.status & STA_UNSYNC) == 0);
}

// Programs.

struct needed_program {
    const char *path;
    const char *lost; ///< what does not work without it; null where a unit does without
};

constexpr needed_program needed_programs[] = {
    {programs::browser, "the page"},
    {programs::udhcpc, "an address"},
    {programs::killall, "a new DHCP client in the old one's place"},
    {programs::date, "the gateway's time"},
    {programs::mount, "storing a rotation on a read-only root"},
    {programs::reboot, "the gateway's reboot"},
    {programs::amixer, "a clip's volume"},
    {programs::wget, "clips"},
    {programs::aplay, "clips"},
    {programs::ifconfig, "noticing that eth0 is gone"},
    {programs::lsusb, nullptr},
    {programs::tvservice, nullptr},
    {programs::network_script, nullptr},
};

finding about_programs() {
    constexpr const char *link = "programs";
    std::string missing;
    std::string done_without;
    for (const auto &[path, lost] : needed_programs) {
        if (is_program(path)) {
            continue;
        }
        if (lost == nullptr) {
            done_without += (done_without.empty() ? "" : ", ") + std::string(path);
        } else {
            missing += (missing.empty() ? "" : ", ") + std::string(path) + " (" + lost + ")";
        }
    }
    if (!missing.empty()) {
        return has_failed(link, "missing: " + missing, "install them at exactly these paths",
                          chapter::parts);
    }
    return is_ok(link, done_without.empty()
                           ? "all there"
                           : "all there, except for what a unit can do without: " + done_without);
}

finding about_audio() {
    constexpr const char *link = "audio control";
    if (!is_program(programs::amixer)) {
        return cannot_tell(link, "there is no amixer to ask");
    }
    constexpr std::chrono::seconds patience(5); // a card's driver may hang
    const auto status = run_and_wait({programs::amixer, "sget", "PCM"}, {.limit = patience});
    if (!status) {
        return cannot_tell(link, "amixer does not answer");
    }
    return grade_audio(*status == 0, read_file("/proc/asound/cards").value_or(""));
}

// The board's power supply. Its driver sets an alarm below the lowest voltage.
finding about_power() {
    constexpr const char *link = "power supply";
    std::string names;
    std::error_code error;
    for (const auto &monitor : fs::directory_iterator("/sys/class/hwmon", error)) {
        std::error_code gone;
        for (const auto &file : fs::directory_iterator(monitor.path(), gone)) {
            const std::string name = file.path().filename();
            if (!name.starts_with("in") || !name.ends_with("_lcrit_alarm")) {
                continue;
            }
            const std::string driver = first_line(monitor.path() / "name");
            if (first_line(file.path()) == "1") {
                return has_failed(link, driver + " reports undervoltage",
                                  "use the board's own power supply and a short cable",
                                  chapter::trouble);
            }
            names += (names.empty() ? "" : ", ") + driver;
        }
    }
    return names.empty() ? cannot_tell(link, "the board does not tell")
                         : is_ok(link, names + " reports no undervoltage");
}

} // namespace

finding grade_space(const std::string &place, unsigned long long room, unsigned long long needed) {
    const std::string evidence = size_text(room) + " free";
    if (room < needed) {
        return has_failed(place, evidence + ", needed " + size_text(needed),
                          "find out what fills it: du -a " + place, chapter::trouble);
    }
    return is_ok(place, evidence);
}

finding grade_audio(bool has_control, const std::string &cards) {
    constexpr const char *link = "audio control";
    if (has_control) {
        return is_ok(link, "the sound card has a control named PCM");
    }
    if (cards.empty() || cards.find("no soundcards") != std::string::npos) {
        return cannot_tell(link, "no sound card: clips cannot be heard");
    }
    if (!is_root()) {
        return cannot_tell(link, "only root, and the group audio, see the sound card's controls");
    }
    return has_failed(link, "the sound card has no control named PCM",
                      "clips are played at whatever volume the card is set to: amixer, alsactl "
                      "store",
                      chapter::debian);
}

finding grade_root(bool is_read_only, bool is_debian) {
    constexpr const char *link = "root file system";
    if (!is_read_only) {
        return is_ok(link, "writable");
    }
    // The service names no mount point, which neither Debian's mount nor busybox's takes for the root.
    return has_failed(link, "read-only, and mount does not remount it for the service",
                      "keep it writable, or a new rotation is lost at the next start",
                      is_debian ? chapter::debian : chapter::image);
}

finding grade_watchdog_timeout(const watchdog_look &look) {
    const std::string evidence =
        (look.identity.empty() ? "" : look.identity + ", ") + std::to_string(look.timeout) + " s";
    if (!look.is_held) {
        return cannot_tell(timeout_link, evidence + "; the service is not seen to hold it");
    }
    if (look.state == "inactive") {
        return has_failed(timeout_link, evidence + ", but it is not running",
                          "restart the service, which arms it", chapter::trouble);
    }
    if (look.timeout != watchdog_timeout) {
        return has_failed(
            timeout_link,
            evidence + "; the service asks for " + std::to_string(watchdog_timeout) + " s",
            "this driver cannot do it: use another watchdog, or expect resets at another time",
            chapter::parts);
    }
    return is_ok(timeout_link, evidence);
}

finding grade_clock(std::time_t now, bool is_synchronized) {
    constexpr const char *link = "clock";
    constexpr std::time_t start_of_2026 = 1767225600;
    char text[64] = "";
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc);
    if (now < start_of_2026) {
        return has_failed(link, std::string(text) + ": it has never been set",
                          "the gateway sets it when it calls the roll; does it?", chapter::trouble);
    }
    if (!is_synchronized) {
        return cannot_tell(link, std::string(text) + "; no time server keeps it right, unless the "
                                                     "gateway sets it");
    }
    return is_ok(link, std::string(text) + ", synchronized");
}

findings look_at_machine(const snapshot &taken) {
    const std::string shm = directory_of(document_file);
    const std::string tmp = directory_of(document_log);
    return {about_watchdog(taken),
            about_watchdog_timeout(taken),
            about_root(),
            grade_space(shm, room_at(shm.c_str()), room_in_shm),
            grade_space(tmp, room_at(tmp.c_str()), room_in_tmp),
            about_log(),
            about_time_zone(),
            about_clock(),
            about_programs(),
            about_audio(),
            about_power()};
}
