#include "hdtv/kiosk.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "hdtv/child_process.h"
#include "hdtv/config_store.h"
#include "hdtv/descriptor.h"
#include "hdtv/line.h"
#include "hdtv/programs.h"
#include "hdtv/proxy.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <span>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

bstring url;
int rotation;
int kiosk_pid;

namespace {

constexpr const char *browser_name = "qt-webkit-kiosk";
constexpr const char *proxy_settings = "/usr/etc/xdg/QtWebkitKiosk/proxy.ini";

// Any pid but 0 is signaled, even the -1 left by a failed fork, which reaches every process.
void stop_browser() {
    if (kiosk_pid != 0) {
        kill(kiosk_pid, SIGKILL);
        waitpid(kiosk_pid, nullptr, 0);
    }
}

// Takes ownership of the record.
void replace_url(bstring page) {
    bdestroy(url);
    url = page;
}

// The suffix is appended as is, even to an address that already contains a query.
bstr_owner make_launch_address(const_bstring address) {
    bstr_owner launch(bstrcpy(address));
    if (rotation > 0) {
        bformata(launch.get(), "?rotation=%i", rotation);
    }
    return launch;
}

// Runs in the child, between fork and exec. The browser never outlives the service.
void enter_browser_fn() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    write_once(STDOUT_FILENO, use_oru_proxy ? "Starting qt-webkit-kiosk using proxy\n"
                                            : "Starting qt-webkit-kiosk without proxy\n");
}

void start_browser(const char *address) {
    if (use_oru_proxy) {
        kiosk_pid =
            start_program(programs::browser, {browser_name, "-c", proxy_settings, "-u", address},
                          enter_browser_fn);
    } else {
        kiosk_pid =
            start_program(programs::browser, {browser_name, "-u", address}, enter_browser_fn);
    }
}

void format_process_path(std::span<char> path, int pid) {
    std::ranges::fill(path, '\0');
    line_builder text(path);
    text.append("/proc/");
    text.append_number(static_cast<std::uint32_t>(pid));
}

bool is_browser_gone() {
    // Formatted for each browser, not at each tick.
    static char path[32];
    static int pid;
    if (pid != kiosk_pid) {
        pid = kiosk_pid;
        format_process_path(path, pid);
    }
    struct stat status {};
    return stat(path, &status) == -1 && errno == ENOENT;
}

const char *rotation_setting() {
    for (const auto &[text, degrees] : stored_rotations) {
        if (degrees == rotation) {
            return text;
        }
    }
    return "0";
}

} // namespace

void set_url_w_rotation(bstring t_url) {
    stop_browser();
    if (t_url == nullptr || t_url->slen == 0) {
        replace_url(nullptr);
        return;
    }
    if (t_url != url) {
        replace_url(bstrcpy(t_url));
    }
    const bstr_owner launch = make_launch_address(url);
    start_browser(bstr_text(launch.get()));
}

void choose_station_page() {
    replace_url(bfromcstr(station_page));
}

void show_page(std::string_view address) {
    replace_url(blk2bstr(address.data(), static_cast<int>(address.size())));
    set_url_w_rotation(url);
}

void show_station_page() {
    if (biseqcstr(url, station_page) != 1) {
        show_page(station_page);
    }
}

void restart_browser() {
    if (url != nullptr) {
        set_url_w_rotation(url);
    }
}

void keep_browser_alive() {
    if (url != nullptr && kiosk_pid > 0 && is_browser_gone()) {
        restart_browser();
    }
}

void read_rotation() {
    const bstr_owner value(get_config_option(config_file, config_key::rotation));
    if (!value) {
        return;
    }
    rotation = 0;
    for (const auto &[text, degrees] : stored_rotations) {
        if (biseqcstr(value.get(), text) == 1) {
            rotation = degrees;
        }
    }
}

void turn_page(int quarter_turns) {
    const int previous = rotation;
    rotation = 90 * quarter_turns;
    set_config_option(config_file, config_key::rotation, rotation_setting());
    if (rotation != previous) {
        restart_browser();
    }
}

void reset_kiosk_state() {
    replace_url(nullptr);
    rotation = kiosk_pid = 0;
}
