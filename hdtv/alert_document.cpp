#include "hdtv/alert_document.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "hdtv/config_store.h"
#include "hdtv/descriptor.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace {

constexpr int initial_turnout_timer = 120; // seconds
constexpr const char *document_path = "/dev/shm/alerts.json";
constexpr const char *log_path = "/tmp/alerts.log";
constexpr mode_t file_mode = 0777;

} // namespace

int turnout_timer = initial_turnout_timer;
bool log_alerts = true;

namespace {

const tagbstring amp = bstr_constant("&");
const tagbstring escaped_amp = bstr_constant("&amp;");
const tagbstring lthan = bstr_constant("<");
const tagbstring escaped_lthan = bstr_constant("&lt;");
const tagbstring gthan = bstr_constant(">");
const tagbstring escaped_gthan = bstr_constant("&gt;");
const tagbstring quote = bstr_constant("\"");
const tagbstring escaped_quote = bstr_constant("&quot;");
const tagbstring bslash = bstr_constant("\\");
const tagbstring escaped_bslash = bstr_constant("\\\\");
const tagbstring fslash = bstr_constant("/");
const tagbstring escaped_fslash = bstr_constant("\\/");
const tagbstring bspace = bstr_constant("\b");
const tagbstring escaped_bspace = bstr_constant("\\b");
const tagbstring ff = bstr_constant("\f");
const tagbstring escaped_ff = bstr_constant("\\f");
const tagbstring nl = bstr_constant("\n");
const tagbstring escaped_nl = bstr_constant("\\n");
const tagbstring cr = bstr_constant("\r");
const tagbstring escaped_cr = bstr_constant("\\r");
const tagbstring tab = bstr_constant("\t");
const tagbstring escaped_tab = bstr_constant("\\t");

struct escape {
    const tagbstring *find;
    const tagbstring *replace;
};

// The order prevents double escaping: "&" comes before the references, which add more of them, and
// the backslash before the escapes, which add more of those. The page decodes the markup characters
// and the quotation mark as HTML references, the rest as JSON escapes.
constexpr escape escapes[] = {
    {&amp, &escaped_amp},       {&lthan, &escaped_lthan},   {&gthan, &escaped_gthan},
    {&quote, &escaped_quote},   {&bslash, &escaped_bslash}, {&fslash, &escaped_fslash},
    {&bspace, &escaped_bspace}, {&ff, &escaped_ff},         {&nl, &escaped_nl},
    {&cr, &escaped_cr},         {&tab, &escaped_tab},
};

bstr_owner escape_alert_text(std::string_view text) {
    bstr_owner escaped(blk2bstr(text.data(), static_cast<int>(text.size())));
    for (const auto &[find, replace] : escapes) {
        bfindreplace(escaped.get(), find, replace, 0);
    }
    return escaped;
}

std::string_view view_of(const bstr_owner &text) {
    return text ? std::string_view(bstr_text(text.get()), static_cast<std::size_t>(text->slen))
                : std::string_view();
}

void replace_document(const bstr_owner &document) {
    const int fd = open(document_path, O_WRONLY | O_CREAT | O_TRUNC, file_mode);
    write_once(fd, view_of(document));
    close(fd);
}

bstring format_log_prefix() {
    const std::time_t now = std::time(nullptr);
    const std::tm *local = std::localtime(&now);
    return bformat("%02d-%02d-%02d %02d:%02d:%02d: ", local->tm_year % 100, local->tm_mon + 1,
                   local->tm_mday, local->tm_hour, local->tm_min, local->tm_sec);
}

void append_to_log(const bstr_owner &document) {
    // Deliberate leak, see architecture.md.
    bstring prefix = format_log_prefix();
    binsert(document.get(), 0, prefix, ' ');
    bconchar(document.get(), '\n');
    const int fd = open(log_path, O_RDWR | O_CREAT | O_APPEND, file_mode);
    write_once(fd, view_of(document));
    close(fd);
}

bstr_owner format_document(const alert_document &document) {
    const bstr_owner area = escape_alert_text(document.alert_area);
    const std::uint32_t alert_expiration =
        document.alert_time + static_cast<std::uint32_t>(turnout_timer);
    return bstr_owner(bformat(
        "[{\"alert_type\":\"%s\", \"show_turnout_timer\":\"%i\", \"alert_time\":\"%lu\", "
        "\"turnout_end\":\"%lu\", \"turnout_zero\":\"%lu\", \"turnout_reverse\":\"%i\", "
        "\"alert_expiration\":\"%lu\", \"alert_area\":\"%s\", \"map_url\":\"%.*s\", "
        "\"units\":[%.*s]}]",
        document.type, document.show_turnout_timer, static_cast<unsigned long>(document.alert_time),
        static_cast<unsigned long>(document.turnout_end),
        static_cast<unsigned long>(document.turnout_zero), document.turnout_reverse,
        static_cast<unsigned long>(alert_expiration), bstr_text(area.get()),
        static_cast<int>(document.map_url.size()), document.map_url.data(),
        static_cast<int>(document.units.size()), document.units.data()));
}

} // namespace

void write_alert_document(const alert_document &document) {
    const bstr_owner text = format_document(document);
    std::printf("Writing JSON: %s\n", bstr_text(text.get()));
    replace_document(text);
    if (log_alerts) {
        append_to_log(text);
    }
}

void write_alert_json(const char *alert_type, std::uint8_t show_turnout_timer,
                      std::uint32_t alert_time, std::uint32_t turnout_end,
                      std::uint32_t turnout_zero, std::uint8_t turnout_reverse,
                      const char *alert_area, const char *map_url, const char *units) {
    write_alert_document({.type = alert_type,
                          .show_turnout_timer = show_turnout_timer,
                          .alert_time = alert_time,
                          .turnout_end = turnout_end,
                          .turnout_zero = turnout_zero,
                          .turnout_reverse = turnout_reverse,
                          .alert_area = alert_area,
                          .map_url = map_url,
                          .units = units});
}

void write_status_document(const char *line) {
    write_alert_document({.type = "display_alert", .alert_area = line});
}

void format_units(std::span<const alerted_unit> units, std::span<char, unit_list_size> list) {
    constexpr std::size_t longest_entry = 64;
    static_assert(protocol::detail_alert::unit_slots * longest_entry < unit_list_size);
    std::ranges::fill(list, '\0');
    std::size_t length = 0;
    for (const auto &[name, color] : units) {
        if (color != 0) {
            const int size = std::snprintf(
                &list[length], longest_entry, "%s{\"unit\":\"%.*s\",\"color\":\"%d\"}",
                length == 0 ? "" : ",", static_cast<int>(name.size()), name.data(), color);
            length += static_cast<std::size_t>(size);
        }
    }
}

void set_turnout_timer(int seconds) {
    turnout_timer = seconds;
}

void read_log_alerts() {
    // Deliberate leak, see architecture.md.
    bstring value = get_config_option(config_file, "log_alerts");
    if (biseqcstrcaseless(value, "true") == 1) {
        log_alerts = true;
    }
}

void reset_alert_document_state() {
    turnout_timer = initial_turnout_timer;
    log_alerts = true;
}
