#include "tools/doctor/config_text.h"

#include "hdtv/config_store.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace {

constexpr std::string_view blanks = " \t\r\n";

bool is_known(const std::string &key) {
    return key == config_key::comm_gw || key == config_key::rotation ||
           key == config_key::log_alerts;
}

std::string known_keys() {
    return std::string(config_key::comm_gw) + ", " + config_key::rotation + " and " +
           config_key::log_alerts;
}

class strict_reader {
  public:
    explicit strict_reader(std::string_view bytes) : bytes_(bytes), text_(seen_part(bytes)) {}

    config_reading read() {
        note_unseen_part();
        skip_blanks();
        if (at_end()) {
            fault(at_, "there is no object: the text is empty");
            return std::move(reading_);
        }
        if (peek() == '{') {
            ++at_;
        } else {
            fault(at_, "the opening brace is missing");
        }
        read_members();
        check_keys();
        std::ranges::stable_sort(reading_.faults, {}, [](const config_fault &each) {
            return std::pair(each.place.line, each.place.column);
        });
        return std::move(reading_);
    }

  private:
    // The service reads the first bytes, and of these what comes before a zero byte.
    static std::string_view seen_part(std::string_view bytes) {
        bytes = bytes.substr(0, config_limit);
        return bytes.substr(0, bytes.find('\0'));
    }

    void note_unseen_part() {
        if (text_.size() == bytes_.size()) {
            return;
        }
        if (text_.size() == static_cast<std::size_t>(config_limit)) {
            fault(text_.size(), "bytes beyond " + std::to_string(config_limit) + " are not read");
        } else {
            fault(text_.size(), "a zero byte: nothing after it is read");
        }
    }

    bool at_end() const {
        return at_ >= text_.size();
    }

    char peek() const {
        return at_end() ? '\0' : text_[at_];
    }

    text_place place_of(std::size_t offset) const {
        const std::string_view before = bytes_.substr(0, offset);
        const std::size_t line_feed = before.rfind('\n');
        const std::size_t start = line_feed == std::string_view::npos ? 0 : line_feed + 1;
        return {static_cast<int>(std::ranges::count(before, '\n')) + 1,
                static_cast<int>(offset - start) + 1};
    }

    void fault(std::size_t offset, std::string what) {
        reading_.faults.push_back({place_of(offset), std::move(what)});
    }

    void remark(std::size_t offset, std::string what) {
        reading_.remarks.push_back({place_of(offset), std::move(what)});
    }

    bool skip_blanks() {
        const std::size_t start = at_;
        at_ = std::min(text_.find_first_not_of(blanks, at_), text_.size());
        return at_ > start;
    }

    // To the next comma or brace, past any text in quotation marks.
    void skip_to_next_member() {
        bool is_quoted = false;
        for (; !at_end(); ++at_) {
            if (peek() == '"') {
                is_quoted = !is_quoted;
            } else if (!is_quoted && (peek() == ',' || peek() == '}')) {
                return;
            }
        }
    }

    void read_members() {
        for (bool is_first = true;; is_first = false) {
            skip_blanks();
            if (at_end()) {
                if (text_.size() == bytes_.size()) {
                    fault(at_, "the closing brace is missing: the service cannot add a setting");
                }
                return;
            }
            if (peek() == '}') {
                ++at_;
                read_tail();
                return;
            }
            if (peek() == ',') {
                note_stray_comma(is_first);
                ++at_;
                continue;
            }
            read_member();
            read_separator();
        }
    }

    // The service puts a comma before each member that it adds, also before the first.
    void note_stray_comma(bool is_first) {
        if (is_first) {
            remark(at_,
                   "a comma before the first member, as the service leaves it in an empty object");
        } else {
            fault(at_, "a comma without a member before it");
        }
    }

    void read_separator() {
        skip_blanks();
        if (peek() == ',') {
            const std::size_t comma = at_++;
            skip_blanks();
            if (peek() == '}') {
                fault(comma, "a comma before the closing brace");
            }
        } else if (peek() == '"') {
            fault(at_, "a comma is missing before this member");
        } else if (!at_end() && peek() != '}') {
            fault(at_, "this is no part of a member");
            skip_to_next_member();
        }
    }

    void read_member() {
        const std::size_t start = at_;
        const std::size_t faults_before = reading_.faults.size();
        if (peek() != '"') {
            fault(at_, "this is not a key in quotation marks");
            skip_to_next_member();
            return;
        }
        const auto key = read_text("key");
        if (!key || !read_colon(*key)) {
            skip_to_next_member();
            return;
        }
        const auto value = read_value(*key);
        if (value && reading_.faults.size() == faults_before) {
            reading_.members.push_back({*key, *value, place_of(start)});
        }
    }

    // The text between two quotation marks.
    std::optional<std::string> read_text(const char *what) {
        const std::size_t start = at_++;
        const std::size_t end = text_.find('"', at_);
        if (end == std::string_view::npos) {
            fault(start, std::string("the closing quotation mark of this ") + what + " is missing");
            at_ = text_.size();
            return std::nullopt;
        }
        const std::string_view found = text_.substr(at_, end - at_);
        const std::size_t odd = found.find_first_of("\\\n");
        if (odd != std::string_view::npos) {
            fault(at_ + odd, found[odd] == '\\'
                                 ? "a backslash: nothing is escaped, and the text ends at the "
                                   "first quotation mark"
                                 : "a line end within a text: is a quotation mark missing?");
        }
        at_ = end + 1;
        return std::string(found);
    }

    bool read_colon(const std::string &key) {
        const std::size_t start = at_;
        const bool has_blank = skip_blanks();
        if (peek() != ':') {
            fault(at_, "a colon is missing after \"" + key + "\"");
            return false;
        }
        if (has_blank) {
            fault(start, "a blank before the colon: the service does not see \"" + key + "\"");
        }
        ++at_;
        const std::size_t after = at_;
        if (skip_blanks()) {
            fault(after, "a blank after the colon: the service does not see \"" + key + "\"");
        }
        return true;
    }

    std::optional<std::string> read_value(const std::string &key) {
        if (peek() == '"') {
            return read_text("value");
        }
        fault(at_, kind_of_value() + ": the service does not see \"" + key + "\"");
        skip_value();
        return std::nullopt;
    }

    std::string kind_of_value() const {
        const char c = peek();
        if ((c >= '0' && c <= '9') || c == '-') {
            return "a number without quotation marks";
        }
        if (c == '{' || c == '[') {
            return "an object or a list as a value";
        }
        return c == '\0' || c == ',' || c == '}' ? "a value is missing"
                                                 : "a value without quotation marks";
    }

    void skip_value() {
        int depth = 0;
        for (bool is_quoted = false; !at_end(); ++at_) {
            const char c = peek();
            is_quoted = (c == '"') != is_quoted;
            if (is_quoted) {
                continue;
            }
            if (depth == 0 && (c == ',' || c == '}')) {
                return;
            }
            depth += c == '{' || c == '[' ? 1 : 0;
            depth -= c == '}' || c == ']' ? 1 : 0;
        }
    }

    // A value that becomes shorter leaves the end of the older text behind the brace.
    void read_tail() {
        skip_blanks();
        if (at_end()) {
            return;
        }
        const std::size_t first = at_;
        const bool is_leftover =
            text_.substr(at_).find_first_not_of("\"} \t\r\n") == std::string_view::npos;
        if (is_leftover) {
            remark(first,
                   "the end of an older text after the closing brace, as the service leaves it");
        } else {
            fault(first, "text after the closing brace");
        }
    }

    void check_keys() {
        const auto &members = reading_.members;
        for (auto member = members.begin(); member != members.end(); ++member) {
            if (!is_known(member->key)) {
                reading_.faults.push_back({member->place, "the service does not know the key \"" +
                                                              member->key + "\"; it knows " +
                                                              known_keys()});
            }
            const auto same = [&](const config_member &other) { return other.key == member->key; };
            const auto first = std::find_if(members.begin(), member, same);
            if (first != member) {
                reading_.faults.push_back(
                    {member->place, "\"" + member->key + "\" a second time: the one at " +
                                        place_text(first->place) + " counts"});
            }
        }
    }

    std::string_view bytes_;
    std::string_view text_; // what the service reads of them
    std::size_t at_ = 0;
    config_reading reading_;
};

} // namespace

config_reading read_strictly(std::string_view bytes) {
    return strict_reader(bytes).read();
}

std::string place_text(const text_place &place) {
    return "line " + std::to_string(place.line) + ", column " + std::to_string(place.column);
}
