#include "hdtv/kiosk.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "hdtv/child_process.h"
#include "hdtv/descriptor.h"
#include "hdtv/hdtv.h"

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

bstring url;
int rotation;
int kiosk_pid;
bool use_oru_proxy;

namespace {

constexpr const char *browser_path = "/usr/bin/qt-webkit-kiosk";
constexpr const char *browser_name = "qt-webkit-kiosk";
constexpr const char *proxy_settings = "/usr/etc/xdg/QtWebkitKiosk/proxy.ini";

// Any pid but 0 is signalled, also the -1 that a failed fork left: that reaches every process.
void stop_browser() {
    if (kiosk_pid != 0) {
        std::ignore = kill(kiosk_pid, SIGKILL);
        std::ignore = waitpid(kiosk_pid, nullptr, 0);
    }
}

void drop_url() {
    bdestroy(url);
    url = nullptr;
}

void remember_url(bstring t_url) {
    if (t_url != url) {
        bdestroy(url);
        url = bstrcpy(t_url);
    }
}

// The suffix is appended as it stands, also to an address that already holds a query.
bstr_owner make_launch_address(const_bstring address) {
    bstr_owner launch(bstrcpy(address));
    if (rotation > 0) {
        bformata(launch.get(), "?rotation=%i", rotation);
    }
    return launch;
}

// In the child, between fork and exec. The browser never outlives the service.
void enter_browser_fn() {
    std::ignore = prctl(PR_SET_PDEATHSIG, SIGKILL);
    write_once(STDOUT_FILENO, use_oru_proxy ? "Starting qt-webkit-kiosk using proxy\n"
                                            : "Starting qt-webkit-kiosk without proxy\n");
}

void start_browser(const char *address) {
    if (use_oru_proxy) {
        kiosk_pid = start_program(browser_path, {browser_name, "-c", proxy_settings, "-u", address},
                                  enter_browser_fn);
    } else {
        kiosk_pid = start_program(browser_path, {browser_name, "-u", address}, enter_browser_fn);
    }
}

} // namespace

void set_url_w_rotation(bstring t_url) {
    stop_browser();
    if (t_url == nullptr || t_url->slen == 0) {
        drop_url();
        return;
    }
    remember_url(t_url);
    const bstr_owner launch = make_launch_address(url);
    start_browser(bstr_text(launch.get()));
}
