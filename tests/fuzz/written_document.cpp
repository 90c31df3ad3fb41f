#include "written_document.h"

#include "fuzz_target.h"

namespace {

constexpr std::string_view escaped_controls = "\b\f\n\r\t";

// A strict reader of JSON's objects, lists and strings. Of the control characters only those that have
// an escape are refused as they are: the service passes on the others, and the page takes them for
// spaces.
class json_reader {
  public:
    explicit json_reader(std::string_view text) : rest_(text) {}

    bool is_document() {
        return value() && rest_.empty();
    }

  private:
    bool skip(std::string_view text) {
        const bool is_there = rest_.starts_with(text);
        rest_.remove_prefix(is_there ? text.size() : 0);
        return is_there;
    }

    void skip_space() {
        while (skip(" ")) {
        }
    }

    bool string() {
        if (!skip("\"")) {
            return false;
        }
        while (!rest_.empty() && rest_.front() != '"') {
            if (escaped_controls.find(rest_.front()) != std::string_view::npos) {
                return false;
            }
            const bool is_escape = skip("\\");
            if (rest_.empty() || (is_escape && std::string_view("\"\\/bfnrt").find(rest_.front()) ==
                                                   std::string_view::npos)) {
                return false;
            }
            rest_.remove_prefix(1);
        }
        return skip("\"");
    }

    bool member() {
        return string() && skip(":") && value();
    }

    // The first of the list is behind the bracket.
    template <class element_fn> bool list(std::string_view end, element_fn element) {
        if (skip(end)) {
            return true;
        }
        do {
            skip_space();
            if (!(this->*element)()) {
                return false;
            }
        } while (skip(","));
        return skip(end);
    }

    bool value() {
        if (skip("[")) {
            return list("]", &json_reader::value);
        }
        return skip("{") ? list("}", &json_reader::member) : string();
    }

    std::string_view rest_;
};

// What the page makes of it: JSON's escapes, then the references. Each character that has an escape
// must have been escaped.
std::string unescaped(std::string_view text) {
    static constexpr std::pair<std::string_view, char> escapes[] = {
        {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"\\\\", '\\'}, {"\\/", '/'},
        {"\\b", '\b'},  {"\\f", '\f'}, {"\\n", '\n'}, {"\\r", '\r'},   {"\\t", '\t'},
    };
    std::string result;
    while (!text.empty()) {
        char c = text.front();
        std::size_t size = 1;
        bool needs_escape = false;
        for (const auto &[escape, character] : escapes) {
            needs_escape |= c == character;
            if (text.starts_with(escape)) {
                c = character;
                size = escape.size();
            }
        }
        REQUIRE(size > 1 || !needs_escape);
        result += c;
        text.remove_prefix(size);
    }
    return result;
}

std::string member(const char *name, std::uint32_t value) {
    return std::string("\"") + name + "\":\"" + std::to_string(value) + "\", ";
}

std::string head_of(const expected_document &d) {
    return "[{\"alert_type\":\"" + d.type + "\", " +
           member("show_turnout_timer", static_cast<std::uint32_t>(d.flag)) +
           member("alert_time", d.time) + member("turnout_end", d.turnout_end) +
           member("turnout_zero", d.turnout_zero) +
           member("turnout_reverse", static_cast<std::uint32_t>(d.turnout_reverse)) +
           member("alert_expiration", d.time + d.timer) + "\"alert_area\":\"";
}

std::string tail_of(const expected_document &d) {
    std::string units;
    for (const auto &[name, color] : d.units) {
        units += std::string(units.empty() ? "" : ",") + "{\"unit\":\"" + name + "\",\"color\":\"" +
                 std::to_string(color) + "\"}";
    }
    return "\", \"map_url\":\"" + d.map + "\", \"units\":[" + units + "]}]";
}

bool is_harmless(const std::string &text) {
    return text.find_first_of("\"\\\b\f\n\r\t") == std::string::npos;
}

} // namespace

void expect_document(const std::string &text, const expected_document &expected) {
    const std::string head = head_of(expected);
    const std::string tail = tail_of(expected);
    REQUIRE(text.size() >= head.size() + tail.size());
    REQUIRE_SAME(text.substr(0, head.size()), head);
    REQUIRE_SAME(text.substr(text.size() - tail.size()), tail);
    const std::string area = text.substr(head.size(), text.size() - head.size() - tail.size());
    REQUIRE(area.find('"') == std::string::npos);
    REQUIRE_SAME(unescaped(area), expected.area);
    const bool is_plain = is_harmless(expected.map) &&
                          std::all_of(expected.units.begin(), expected.units.end(),
                                      [](const auto &unit) { return is_harmless(unit.first); });
    REQUIRE(!is_plain || json_reader(text).is_document());
}
