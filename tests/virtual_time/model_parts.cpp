#include "model.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <fcntl.h>

namespace virtual_time {

namespace {

constexpr const char *config_path = "/var/www/config.json";
constexpr const char *station_page = "http://127.0.0.1/station_web/";

void replace_all(std::string &text, const std::string &find, const std::string &replacement) {
    for (std::size_t at = 0; (at = text.find(find, at)) != std::string::npos;) {
        text.replace(at, find.size(), replacement);
        at += replacement.size();
    }
}

std::string escape(std::string text) {
    const std::pair<const char *, const char *> pairs[] = {
        {"&", "&amp;"}, {"<", "&lt;"}, {">", "&gt;"}, {"\"", "&quot;"},
        {"\\", "\\\\"}, {"/", "\\/"},  {"\b", "\\b"}, {"\f", "\\f"},
        {"\n", "\\n"},  {"\r", "\\r"}, {"\t", "\\t"}};
    for (const auto &[find, replacement] : pairs) {
        replace_all(text, find, replacement);
    }
    return text;
}

std::string log_prefix(std::int64_t wall) {
    const auto seconds = static_cast<std::time_t>(wall);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    return format("%02d-%02d-%02d %02d:%02d:%02d: ", utc.tm_year % 100, utc.tm_mon + 1, utc.tm_mday,
                  utc.tm_hour, utc.tm_min, utc.tm_sec);
}

} // namespace

void model::write_document(const document_values &values) {
    const std::uint32_t expiration = values.time + static_cast<std::uint32_t>(turnout);
    const std::string text =
        std::string("[{\"alert_type\":\"") + values.type +
        format(
            "\", \"show_turnout_timer\":\"%i\", \"alert_time\":\"%lu\", \"turnout_end\":\"%i\", "
            "\"turnout_zero\":\"%i\", \"turnout_reverse\":\"%i\", \"alert_expiration\":\"%lu\", ",
            values.flag, static_cast<unsigned long>(values.time), values.end, values.zero,
            values.reverse, static_cast<unsigned long>(expiration)) +
        "\"alert_area\":\"" + escape(values.area) + "\", \"map_url\":\"" + values.map +
        "\", \"units\":[" + values.units + "]}]";
    print("Writing JSON: " + text + "\n");
    write_file("/dev/shm/alerts.json", document, text);
    const entry &log = take(act::opened, "/tmp/alerts.log 0777");
    if (log.number != (O_RDWR | O_CREAT | O_APPEND)) {
        throw violation("the log is opened with other flags");
    }
    if (log.result >= 0) {
        take(act::written, log_prefix(log.wall) + text + "\n");
    }
}

void model::write_detail(const std::string &bytes, const std::string &map) {
    write_document({"hdtv_alert", byte_at(bytes, 1), start, end, zero, reverse, text_at(bytes, 539),
                    map, units});
}

void model::write_file(const char *path, std::optional<std::string> &file,
                       const std::string &text) {
    const entry &opened = take(act::opened, path + std::string(" 0777"));
    if (opened.number != (O_WRONLY | O_CREAT | O_TRUNC)) {
        throw violation(std::string(path) + " is opened with other flags");
    }
    if (opened.result >= 0) {
        file = take(act::written, text).result >= 0 ? text : "";
    }
}

bool model::take_socket(const char *type) {
    return take(act::socket, type).result >= 0;
}

std::string model::hardware_address() {
    take_socket("udp");
    return take(act::hardware).text;
}

std::string model::own_address() {
    if (!take_socket("udp")) {
        return "";
    }
    const entry &listed = take(act::listed);
    if (listed.result < 0) {
        ++descriptors; // the socket stays open
        return "";
    }
    return listed.text;
}

void model::choose_proxy(const std::string &address) {
    has_proxy = false;
    if (address.compare(0, 9, "10.87.33.") != 0) {
        return;
    }
    take_socket("tcp");
    has_proxy = take(act::connected, "10.87.33.1:3128").result >= 0;
    print(has_proxy ? "Proxy listening on 10.87.33.1:3128\n"
                    : "Unable to connect to proxy at 10.87.33.1:3128.  Disabling proxy support\n");
}

void model::show(const std::string &address) {
    url = address;
    restart_browser();
}

void model::show_station_page() {
    if (url != station_page) {
        show(station_page);
    }
}

void model::restart_browser() {
    if (!url) {
        return;
    }
    if (browser != 0) {
        if (take(act::killed, "9").number != browser) {
            throw violation("the browser is not killed, but another process");
        }
        const entry &waited = take(act::waited);
        if (waited.number != browser) {
            throw violation("the browser is not waited for, but another process");
        }
        children -= waited.result > 0;
    }
    if (url->empty()) {
        url.reset();
        return;
    }
    const std::string page = rotation > 0 ? *url + "?rotation=" + std::to_string(rotation) : *url;
    const std::string how = has_proxy ? "using" : "without";
    const std::string settings = has_proxy ? "\x1F-c\x1F/usr/etc/xdg/QtWebkitKiosk/proxy.ini" : "";
    browser = fork("prctl 1 9\x1Ewrite 1 Starting qt-webkit-kiosk " + how +
                   " proxy\n\x1Esignal 13 default\x1E"
                   "exec /usr/bin/qt-webkit-kiosk\x1Fqt-webkit-kiosk" +
                   settings + "\x1F-u\x1F" + page);
}

long model::fork(const std::string &told) {
    const long pid = take(act::forked).result;
    if (pid >= 0) {
        take(act::child, told);
        ++children;
    }
    return pid;
}

void model::start_program(const std::vector<std::string> &command) {
    std::string told = "signal 13 default\x1E"
                       "exec " +
                       command[0];
    for (std::size_t i = 1; i < command.size(); ++i) {
        told += "\x1F" + command[i];
    }
    fork(told);
}

void model::run_program(const std::vector<std::string> &command) {
    start_program(command);
    wait_any();
}

void model::wait_any() {
    const entry &waited = take(act::waited);
    if (waited.number != -1) {
        throw violation("a certain process is waited for");
    }
    children -= waited.result > 0;
}

void model::sleep(long seconds) {
    if (take(act::slept).number != seconds) {
        throw violation("the pause is not of " + std::to_string(seconds) + " s");
    }
}

std::string model::read_config() {
    const entry &opened = take(act::opened, config_path);
    return opened.result >= 0 ? text_at(take(act::read).text + '\0', 0) : "";
}

std::optional<std::string> model::config_option(const std::string &key) {
    const entry &looked = take(act::looked, config_path);
    if (looked.result != 0 || looked.number == 0) {
        return std::nullopt;
    }
    return json_value(read_config(), key);
}

void model::set_config_option(const std::string &key, const std::string &value) {
    const auto current = config_option(key);
    if (current == value) {
        return;
    }
    std::string config = read_config();
    const std::string name = "\"" + key + "\":\"";
    if (current) {
        replace_all(config, name + *current + "\"", name + value + "\"");
    } else {
        for (std::size_t i = config.size(); i-- > 1;) {
            if (config[i] == '}') {
                config.insert(i, "," + name + value + "\"");
            }
        }
    }
    print("Writing CFG:\n" + config + "\n");
    run_program({"/bin/mount", "mount", "-o", "rw,remount"});
    const entry &opened = take(act::opened, config_path);
    if (opened.number != O_WRONLY) {
        throw violation("the configuration is opened with other flags");
    }
    if (opened.result >= 0) {
        take(act::written, config);
    }
    run_program({"/bin/mount", "mount", "-o", "ro,remount"});
}

void model::kick() {
    if (watchdog > 0) {
        take(act::kicked, " ");
    }
}

std::string text_at(const std::string &bytes, std::size_t position) {
    return bytes.c_str() + position;
}

int number_at(const std::string &bytes, std::size_t position) {
    return byte_at(bytes, position) * 256 + byte_at(bytes, position + 1);
}

int byte_at(const std::string &bytes, std::size_t position) {
    return static_cast<unsigned char>(bytes[position]);
}

std::optional<std::string> json_value(const std::string &json, const std::string &key) {
    const std::string tag = "\"" + key + "\":\"";
    const std::size_t found = json.find(tag);
    if (found == std::string::npos) {
        return std::nullopt;
    }
    const std::size_t start = found + tag.size();
    const std::size_t end = json.find('"', start);
    if (end == std::string::npos) {
        return std::nullopt;
    }
    return json.substr(start, end - start);
}

std::string format(const char *text, ...) {
    char room[512];
    std::va_list arguments;
    va_start(arguments, text);
    std::vsnprintf(room, sizeof room, text, arguments);
    va_end(arguments);
    return room;
}

} // namespace virtual_time
