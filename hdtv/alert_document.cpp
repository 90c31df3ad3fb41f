#include "hdtv/alert_document.h"

#include "bstrlib/bstrlib.h"
#include "hdtv/config_store.h"
#include "hdtv/descriptor.h"
#include "hdtv/line.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <string_view>
#include <unistd.h>
#include <utility>

using namespace std::string_view_literals;

namespace {

constexpr int initial_turnout_timer = 120; // seconds
constexpr mode_t file_mode = 0777;

} // namespace

int turnout_timer = initial_turnout_timer;
bool log_alerts = true;

namespace {

constexpr tagbstring amp = "&"_bstr;
constexpr tagbstring escaped_amp = "&amp;"_bstr;
constexpr tagbstring lthan = "<"_bstr;
constexpr tagbstring escaped_lthan = "&lt;"_bstr;
constexpr tagbstring gthan = ">"_bstr;
constexpr tagbstring escaped_gthan = "&gt;"_bstr;
constexpr tagbstring quote = "\""_bstr;
constexpr tagbstring escaped_quote = "&quot;"_bstr;
constexpr tagbstring bslash = "\\"_bstr;
constexpr tagbstring escaped_bslash = "\\\\"_bstr;
constexpr tagbstring fslash = "/"_bstr;
constexpr tagbstring escaped_fslash = "\\/"_bstr;
constexpr tagbstring bspace = "\b"_bstr;
constexpr tagbstring escaped_bspace = "\\b"_bstr;
constexpr tagbstring ff = "\f"_bstr;
constexpr tagbstring escaped_ff = "\\f"_bstr;
constexpr tagbstring nl = "\n"_bstr;
constexpr tagbstring escaped_nl = "\\n"_bstr;
constexpr tagbstring cr = "\r"_bstr;
constexpr tagbstring escaped_cr = "\\r"_bstr;
constexpr tagbstring tab = "\t"_bstr;
constexpr tagbstring escaped_tab = "\\t"_bstr;

// The page decodes the markup characters and the quotation mark as HTML references, the rest as JSON
// escapes.
constexpr std::pair<const tagbstring *, const tagbstring *> escape_pairs[] = {
    {&amp, &escaped_amp},       {&lthan, &escaped_lthan},   {&gthan, &escaped_gthan},
    {&quote, &escaped_quote},   {&bslash, &escaped_bslash}, {&fslash, &escaped_fslash},
    {&bspace, &escaped_bspace}, {&ff, &escaped_ff},         {&nl, &escaped_nl},
    {&cr, &escaped_cr},         {&tab, &escaped_tab},
};

constexpr std::size_t longest_escape = 6;

struct escape {
    char text[longest_escape + 1];
    std::uint8_t size;
};

// The pairs for a single pass over a text.
struct escape_table {
    std::array<std::uint8_t, '\\' + 1> numbers; // of each character's escape; 0: it has none
    std::array<escape, std::size(escape_pairs) + 1> escapes;
    char characters[std::size(escape_pairs) + 1]; // that have one
};

constexpr escape_table table = [] {
    escape_table result{};
    std::uint8_t number = 0;
    for (const auto &[find, replacement] : escape_pairs) {
        const unsigned char character = find->data[0];
        result.characters[number] = static_cast<char>(character);
        result.numbers[character] = ++number;
        escape &entry = result.escapes[number];
        entry.size = static_cast<std::uint8_t>(replacement->slen);
        std::copy_n(replacement->data, entry.size, entry.text);
    }
    return result;
}();

// Null for a character that is written as it is.
const escape *escape_of(char c) {
    const auto place = static_cast<unsigned char>(c);
    const std::size_t number = place < table.numbers.size() ? table.numbers[place] : 0;
    return number != 0 ? &table.escapes[number] : nullptr;
}

// Fits the longest document: a text that fills a message, each of its characters escaped, the address of
// a map that fills one, and the list of units.
constexpr std::size_t longest_document = std::size_t{36} * 1024;
constexpr std::size_t longest_frame = 512; // all the rest of the document
static_assert(longest_escape * protocol::message_capacity + protocol::message_capacity +
                  unit_list_size + longest_frame <=
              longest_document);

// The document, with room before it for what its line begins with, on the console and in the log, and
// after it for the line feed, so that all three are written from the same place.
constexpr std::string_view printed_before = "Writing JSON: ";
constexpr std::size_t log_time_size = std::string_view("24-03-05 07:04:09: ").size();
constexpr std::size_t room_before = std::max(printed_before.size(), log_time_size);
char line_room[room_before + longest_document + 1];
constexpr char *document_room = line_room + room_before;

void append_escaped(line_builder &document, std::string_view text) {
    const std::size_t start = document.view().size();
    // Most texts need no escapes. strcspn is the fastest look at a long one, and needs its end marked:
    // by a zero, or, where that has no more room, by what follows the room, a zero or a line feed.
    document.append(text);
    document.append('\0');
    const std::size_t plain =
        std::min(std::strcspn(document.view().data() + start, table.characters), text.size());
    document.shorten_to(start + plain);
    text.remove_prefix(plain);
    for (const char c : text) {
        const escape *found = escape_of(c);
        if (found != nullptr) {
            document.append_start(found->text, found->size);
        } else {
            document.append(c);
        }
    }
}

void append_member(line_builder &document, std::string_view name, std::uint32_t number) {
    document.append(name);
    document.append_number(number);
}

std::string_view format_document(const alert_document &document) {
    line_builder text({document_room, longest_document});
    const std::uint32_t alert_expiration =
        document.alert_time + static_cast<std::uint32_t>(turnout_timer);
    text.append("[{\"alert_type\":\"");
    text.append(document.type);
    append_member(text, "\", \"show_turnout_timer\":\""sv, document.show_turnout_timer);
    append_member(text, "\", \"alert_time\":\""sv, document.alert_time);
    append_member(text, "\", \"turnout_end\":\""sv, document.turnout_end);
    append_member(text, "\", \"turnout_zero\":\""sv, document.turnout_zero);
    append_member(text, "\", \"turnout_reverse\":\""sv, document.turnout_reverse);
    append_member(text, "\", \"alert_expiration\":\""sv, alert_expiration);
    text.append("\", \"alert_area\":\"");
    append_escaped(text, document.alert_area);
    text.append("\", \"map_url\":\"");
    text.append(document.map_url);
    text.append("\", \"units\":[");
    text.append(document.units);
    text.append("]}]");
    return text.view();
}

// The line that begins with `before` and ends with the document, where the document lies.
std::string_view line_of(std::string_view before, std::string_view document) {
    char *start = document_room - before.size();
    std::memcpy(start, before.data(), before.size());
    document_room[document.size()] = '\n';
    return {start, before.size() + document.size() + 1};
}

void replace_document(std::string_view document) {
    const int fd = open(document_file, O_WRONLY | O_CREAT | O_TRUNC, file_mode);
    write_once(fd, document);
    close(fd);
}

bstring format_log_prefix() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local); // follow_zone has looked at the zone
    char room[log_time_size];
    line_builder text(room);
    const int numbers[] = {local.tm_year, local.tm_mon + 1, local.tm_mday,
                           local.tm_hour, local.tm_min,     local.tm_sec};
    const std::string_view after[] = {"-"sv, "-"sv, " "sv, ":"sv, ":"sv, ": "sv};
    for (std::size_t i = 0; i < std::size(numbers); ++i) {
        text.append_two_digits(static_cast<std::uint32_t>(numbers[i]));
        text.append(after[i]);
    }
    return blk2bstr(text.view().data(), static_cast<int>(text.view().size()));
}

void append_to_log(std::string_view document) {
    // Deliberate leak, see architecture.md.
    const_bstring prefix = format_log_prefix();
    const int fd = open(document_log, O_RDWR | O_CREAT | O_APPEND, file_mode);
    write_once(fd, line_of(bstr_text(prefix), document));
    close(fd);
}

} // namespace

void write_alert_document(const alert_document &document) {
    const std::string_view text = format_document(document);
    print_line(line_of(printed_before, text));
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
    std::ranges::fill(list, '\0');
    line_builder text(list.first<unit_list_size - 1>());
    for (const auto &[name, color] : units) {
        if (color != 0) {
            text.append(text.view().empty() ? "{\"unit\":\""sv : ",{\"unit\":\""sv);
            text.append(name);
            text.append("\",\"color\":\"");
            text.append_number(color);
            text.append("\"}");
        }
    }
}

void set_turnout_timer(int seconds) {
    turnout_timer = seconds;
}

void read_log_alerts() {
    // Deliberate leak, see architecture.md.
    bstring value = get_config_option(config_file, config_key::log_alerts);
    if (biseqcstrcaseless(value, "true") == 1) {
        log_alerts = true;
    }
}

void reset_alert_document_state() {
    turnout_timer = initial_turnout_timer;
    log_alerts = true;
}
