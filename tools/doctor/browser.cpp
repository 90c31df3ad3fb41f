#include "tools/doctor/browser.h"
#include "bstrlib/bstr_owner.h"
#include "hdtv/alert_document.h"
#include "hdtv/health.h"
#include "hdtv/kiosk.h"
#include "hdtv/programs.h"
#include "hdtv/watchdog.h"
#include "tools/doctor/files.h"
#include "tools/doctor/run_program.h"
#include "tools/doctor/sections.h"
#include "tools/doctor/shipped_headers.h"
#include "tools/doctor/web_client.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace {

// The page asks for a sign of life every 30 seconds.
constexpr std::time_t usual_silence = 60; // seconds

constexpr const char *browser_link = "browser";

// What the page's own type is, and what it is without it.
constexpr const char *main_fonts[] = {"liberation", "dejavu"};

struct extra_font {
    const char *file; // the beginning of its name
    const char *draws;
};
constexpr extra_font extra_fonts[] = {{"wqy", "Chinese, Japanese and Korean"},
                                      {"symbola", "pictographs"}};

bool is_child_of_service(const snapshot &taken, const process &each) {
    return taken.service() != nullptr && each.parent == taken.service()->pid;
}

// It may be called anything, and a wrapper may have replaced its arguments; the address stays.
std::string page_of(const process &each) {
    for (const std::string &argument : each.arguments) {
        const std::size_t start = std::min(argument.find("http://"), argument.find("https://"));
        if (start != std::string::npos) {
            return argument.substr(start);
        }
    }
    return "";
}

bool is_station_page(const std::string &page) {
    return page.starts_with(station_page);
}

// The service's other programs, and what a child of the service is called before it is a program.
bool is_other_program(const std::string &name) {
    constexpr const char *others[] = {programs::amixer,
                                      programs::aplay,
                                      programs::date,
                                      programs::ifconfig,
                                      programs::killall,
                                      programs::lsusb,
                                      programs::mount,
                                      programs::network_script,
                                      programs::reboot,
                                      programs::udhcpc,
                                      programs::tvservice,
                                      programs::wget,
                                      "sh",
                                      "hdtv"};
    return std::ranges::any_of(others,
                               [&](const char *path) { return fs::path(path).filename() == name; });
}

// A browser that has ended stays the service's child for a while. It may be called anything.
finding grade_no_browser(const snapshot &taken) {
    const auto ended = std::ranges::find_if(taken.all, [&](const process &each) {
        return is_child_of_service(taken, each) && each.state == 'Z' &&
               !is_other_program(each.name);
    });
    const std::string next =
        "run its command line by hand to see why: " + std::string(programs::browser) + " -u " +
        station_page;
    if (ended != taken.all.end()) {
        return has_failed(browser_link, name_and_id(*ended) + " has ended", next, chapter::trouble);
    }
    return cannot_tell(browser_link,
                       "the service has none: a gateway may have blanked the page (page --blank)",
                       "if none has: " + next, chapter::trouble);
}

// All names of font files, in lower case.
std::vector<std::string> font_files() {
    std::vector<std::string> names;
    for (const char *top : {"/usr/share/fonts", "/usr/local/share/fonts"}) {
        std::error_code error;
        for (auto each =
                 fs::recursive_directory_iterator(top,
                                                  fs::directory_options::follow_directory_symlink |
                                                      fs::directory_options::skip_permission_denied,
                                                  error);
             !error && each != fs::recursive_directory_iterator(); each.increment(error)) {
            std::string name = each->path().filename();
            std::ranges::transform(name, name.begin(), [](unsigned char c) {
                return static_cast<char>(std::tolower(c));
            });
            names.push_back(std::move(name));
        }
    }
    return names;
}

bool has_font(const std::vector<std::string> &files, const char *start) {
    return std::ranges::any_of(files, [start](const std::string &name) {
        const bool is_font = name.ends_with(".ttf") || name.ends_with(".ttc") ||
                             name.ends_with(".otf") || name.ends_with(".pcf.gz");
        return name.starts_with(start) && is_font;
    });
}

finding about_fonts() {
    constexpr const char *link = "fonts";
    const auto files = font_files();
    std::string there;
    for (const char *font : main_fonts) {
        if (!has_font(files, font)) {
            return has_failed(
                link, std::string("no font file begins with ") + font,
                "install fonts-liberation and fonts-dejavu-core, or the image's fonts",
                chapter::parts);
        }
        there += (there.empty() ? "" : ", ") + std::string(font);
    }
    for (const auto &[file, draws] : extra_fonts) {
        there +=
            has_font(files, file) ? std::string(", ") + file : std::string("; none for ") + draws;
    }
    return is_ok(link, there);
}

// As the service reads it; empty if there is none.
std::string mode_text() {
    const bstr_owner mode(get_fb_resolution());
    return mode ? bstr_text(mode.get()) : "";
}

// The board's own tool, whose answer the service acts on.
std::optional<finding> about_mode() {
    constexpr const char *link = "display";
    if (!is_program(programs::tvservice)) {
        return std::nullopt;
    }
    constexpr std::chrono::seconds patience(5);
    const auto text = ask_in_child(mode_text, patience);
    if (!text) {
        return cannot_tell(link, "tvservice does not answer");
    }
    if (text->empty()) {
        return std::nullopt;
    }
    const bstr_owner mode(bfromcstr(text->c_str()));
    if (is_fallback_mode(mode.get())) {
        return has_failed(link, "it has fallen back to " + *text,
                          "check the cable and the television's input; the service resets the "
                          "display every 30 seconds",
                          chapter::trouble);
    }
    return is_ok(link, *text);
}

// The kernel's connectors. One that is in use is enough.
finding about_connectors() {
    constexpr const char *link = "display";
    constexpr const char *directory = "/sys/class/drm";
    std::string seen;
    std::error_code error;
    for (const auto &each : fs::directory_iterator(directory, error)) {
        const std::string status = first_line(each.path() / "status");
        const std::string name = each.path().filename();
        if (status == "connected") {
            const std::string mode = first_line(each.path() / "modes");
            return is_ok(link, name + " connected" + (mode.empty() ? "" : ", prefers " + mode));
        }
        if (!status.empty()) {
            seen.append(seen.empty() ? "" : ", ").append(name).append(" ").append(status);
        }
    }
    if (seen.empty()) {
        return cannot_tell(link, "neither tvservice nor the kernel tells of one");
    }
    return has_failed(link, seen, "plug the cable in; switch the television on at the mains",
                      chapter::no_wake);
}

finding about_display() {
    auto told = about_mode();
    return told ? std::move(*told) : about_connectors();
}

finding about_web_server(const web_answer &page) {
    constexpr const char *link = "web server";
    constexpr int good = 200;
    if (page.status == 0) {
        return has_failed(link, std::string("no answer from ") + station_page,
                          "start it: systemctl start station-web, or /etc/init.d/S80station-web "
                          "start; another web server may hold the port",
                          chapter::trouble);
    }
    if (page.status != good) {
        return has_failed(
            link, std::string(station_page) + " answers " + std::to_string(page.status),
            "is another web server in its place, or the page not installed?", chapter::trouble);
    }
    return is_ok(link, std::string(station_page) + ", " + size_text(page.body.size()));
}

finding about_headers(const web_answer &page) {
    constexpr const char *link = "headers";
    if (page.status == 0) {
        return cannot_tell(link, "the web server does not answer");
    }
    const header_list expected = shipped_headers();
    for (const auto &[name, value] : expected) {
        const std::string sent = header_of(page, name);
        if (sent != value) {
            return has_failed(link, name + (sent.empty() ? " is missing" : " is not as shipped"),
                              "use the lighttpd.conf that comes with the page", chapter::parts);
        }
    }
    return is_ok(link, "as shipped: " + std::to_string(expected.size()));
}

finding compare_document(const std::optional<std::string> &file, const web_answer &answer,
                         bool has_service) {
    constexpr const char *link = "document served";
    if (!file && !has_service) {
        return cannot_tell(link, "the service, which writes it, is not running");
    }
    if (!file) {
        return has_failed(link, std::string(document_file) + " is missing",
                          "the service writes it when it starts: restart it", chapter::trouble);
    }
    if (answer.status == 0) {
        return cannot_tell(link, "the web server does not answer");
    }
    if (answer.body != *file) {
        return has_failed(link,
                          "status " + std::to_string(answer.status) + " with " +
                              size_text(answer.body.size()) + ", the file has " +
                              size_text(file->size()),
                          "use the lighttpd.conf that comes with the page", chapter::trouble);
    }
    return is_ok(link, "equals " + std::string(document_file) + ", " + size_text(file->size()));
}

// The service may rewrite it in between.
finding about_document(const snapshot &taken) {
    constexpr int attempts = 3;
    finding found;
    for (int i = 0; i < attempts; ++i) {
        const auto before = read_file(document_file);
        const web_answer answer = fetch_from_unit("alerts.json");
        found = compare_document(before, answer, taken.service() != nullptr);
        if (found.result != grade::fail || before == read_file(document_file)) {
            break;
        }
    }
    return found;
}

} // namespace

finding grade_browser(const snapshot &taken) {
    if (taken.service() == nullptr) {
        return cannot_tell(browser_link, "the service, which starts it, is not running");
    }
    const auto found = std::ranges::find_if(taken.all, [&](const process &each) {
        return is_child_of_service(taken, each) && each.state != 'Z' && !page_of(each).empty();
    });
    if (found == taken.all.end()) {
        return grade_no_browser(taken);
    }
    const std::string page = page_of(*found);
    if (!is_station_page(page)) {
        return cannot_tell(browser_link, name_and_id(*found) + " shows another page, " + page,
                           "the next alert brings the station page back; until then only a framed "
                           "page keeps the unit alive",
                           chapter::trouble);
    }
    return is_ok(browser_link, name_and_id(*found) + " shows " + page);
}

finding grade_liveness(std::optional<std::time_t> age, std::optional<long long> service_age) {
    constexpr const char *link = "page alive";
    constexpr const char *next =
        "look at the browser's lines above; the unit resets itself when the page stays dead";
    if (!service_age) {
        return cannot_tell(link, "the service, which starts the browser, is not running");
    }
    // What was reported before the start, another service's page has reported.
    const bool is_from_before = !age || *age > *service_age + clock_rounding;
    if (is_from_before && *service_age < usual_silence) {
        return cannot_tell(link, "not yet: the service has been running for " +
                                     duration_text(*service_age));
    }
    if (!age) {
        return has_failed(link, "the page has never reported that it is drawing", next,
                          chapter::trouble);
    }
    if (*age < 0) {
        return cannot_tell(link, "its last sign of life is in the future: the clock was set back");
    }
    const std::string evidence = "last sign of life " + duration_text(*age) + " ago";
    if (*age > staleness_limit) {
        return has_failed(link, evidence + ": messages no longer keep the unit from resetting",
                          next, chapter::trouble);
    }
    if (*age > usual_silence) {
        return has_failed(link, evidence + ", expected every 30 s", next, chapter::trouble);
    }
    return is_ok(link, evidence);
}

findings look_at_browser(const snapshot &taken) {
    const web_answer page = fetch_from_unit("");
    const auto age = age_of(liveness_file);
    const auto service_age =
        taken.service() != nullptr ? std::optional(running_time(*taken.service())) : std::nullopt;
    return {grade_browser(taken),
            about_fonts(),
            about_display(),
            about_web_server(page),
            about_headers(page),
            about_document(taken),
            grade_liveness(age, service_age)};
}
