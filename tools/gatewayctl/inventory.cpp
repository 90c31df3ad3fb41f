#include "tools/gatewayctl/inventory.h"

#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/characters.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/socket.h"
#include "tools/gatewayctl/text.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

namespace {

constexpr std::string_view blanks = " \t";
constexpr std::string_view hardware_mark = "hw=";
constexpr std::size_t longest_host = 253;
constexpr std::size_t longest_port = 5;

struct place {
    const std::string &file;
    std::size_t line; // from 1

    [[noreturn]] void fail(const std::string &words) const {
        throw usage_failure(file + ":" + std::to_string(line) + ": " + words);
    }
};

// The next field and what comes after it; an empty field at the end.
std::string_view take_field(std::string_view &rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
    const std::string_view field = rest.substr(0, rest.find_first_of(blanks));
    rest.remove_prefix(field.size());
    return field;
}

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

bool is_harmless(std::string_view text) {
    while (!text.empty()) {
        const character next = first_character(text);
        if (next.size == 0 || (is_deceptive(next.code) && next.code != '\t')) {
            return false;
        }
        text.remove_prefix(next.size);
    }
    return true;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_in_host(char c) {
    return is_digit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
           c == '-' || c == '_';
}

bool is_port(std::string_view text) {
    int port = 0;
    const char *end = text.data() + text.size();
    return text.size() <= longest_port && std::ranges::all_of(text, is_digit) &&
           std::from_chars(text.data(), end, port).ec == std::errc() && port >= 1 && port <= 0xffff;
}

bool is_address(std::string_view text) {
    const std::size_t colon = text.find(':');
    const std::string_view host = text.substr(0, colon);
    return !host.empty() && host.size() <= longest_host && std::ranges::all_of(host, is_in_host) &&
           is_unambiguous(std::string(host)) &&
           (colon == std::string_view::npos || is_port(text.substr(colon + 1)));
}

// In lower case, with colons; none if it is no hardware address.
std::optional<std::string> parse_hardware_address(std::string_view text) {
    constexpr std::size_t size = 17;
    std::string address;
    for (const char c : text) {
        const bool is_separator = address.size() % 3 == 2;
        const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
        const bool is_hex = is_digit(lower) || (lower >= 'a' && lower <= 'f');
        if (is_separator ? c != ':' && c != '-' : !is_hex) {
            return std::nullopt;
        }
        address += is_separator ? ':' : lower;
    }
    return address.size() == size ? std::optional(address) : std::nullopt;
}

void take_hardware_address(inventory_unit &unit, std::string_view text, const place &here) {
    const auto address = parse_hardware_address(text);
    if (!address) {
        here.fail(quoted(text) + " is not a hardware address such as 02:00:0a:57:21:32");
    }
    if (!unit.hardware_address.empty()) {
        here.fail("a second hardware address");
    }
    unit.hardware_address = *address;
}

// The fields after the address.
void take_rest(inventory_unit &unit, std::string_view rest, const place &here) {
    bool has_group = false;
    for (std::string_view field = take_field(rest); !field.empty(); field = take_field(rest)) {
        if (field.front() == '#') {
            field = std::string_view(field.data() + 1, field.size() - 1 + rest.size());
            unit.comment = trimmed(field);
            return;
        }
        if (field.starts_with(hardware_mark)) {
            take_hardware_address(unit, field.substr(hardware_mark.size()), here);
        } else if (!has_group) {
            unit.group = field == "-" ? "" : field;
            has_group = true;
        } else {
            here.fail(quoted(field) + " is one field too many: a comment begins with #");
        }
    }
}

std::optional<inventory_unit> parse_line(std::string_view line, const place &here) {
    std::string_view rest = line;
    inventory_unit unit;
    unit.name = take_field(rest);
    if (unit.name.empty() || unit.name.front() == '#') {
        return std::nullopt;
    }
    if (!is_harmless(line)) {
        here.fail("control characters or invalid UTF-8 in " + quoted(line));
    }
    const std::string_view address = take_field(rest);
    if (address.empty() || address.front() == '#') {
        here.fail(quoted(unit.name) + " has no address");
    }
    if (!is_address(address)) {
        here.fail(quoted(address) + " is not an address: HOST or HOST:PORT");
    }
    unit.address = address;
    take_rest(unit, rest, here);
    return unit;
}

// What has to be different in each line, with the line where each is.
class seen_values {
  public:
    explicit seen_values(const char *what) : what_(what) {}

    void add(const std::string &value, const place &here) {
        add(value, value, here);
    }

    // The second one is as it is written.
    void add(const std::string &value, const std::string &written, const place &here) {
        const auto [known, is_new] = lines_.emplace(value, here.line);
        if (!is_new) {
            here.fail(std::string("the ") + what_ + " " + quoted(written) + " is also in line " +
                      std::to_string(known->second));
        }
    }

  private:
    const char *what_;
    std::map<std::string, std::size_t> lines_;
};

// Takes the line with its end, of either kind.
std::string_view take_line(std::string_view &text) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line.substr(0, line.size() - (line.ends_with('\r') ? 1 : 0));
}

std::string read_all(std::istream &input) {
    return {std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
}

} // namespace

std::vector<inventory_unit> read_inventory(const std::string &file) {
    std::ifstream input(file, std::ios::binary);
    if (!input) {
        throw run_failure("cannot open " + file + ": " + reason(errno));
    }
    try {
        return parse_inventory(read_all(input), file);
    } catch (const std::ios_base::failure &) { // a folder, for example
        throw run_failure("cannot read " + file + ": " + reason(errno));
    }
}

std::vector<inventory_unit> parse_inventory(std::string_view text, const std::string &file) {
    std::vector<inventory_unit> units;
    seen_values names("name");
    seen_values addresses("address");
    seen_values hardware("hardware address");
    std::string comments; // since the latest unit
    for (place here{file, 1}; !text.empty(); ++here.line) {
        const std::string_view line = take_line(text);
        auto unit = parse_line(line, here);
        if (!unit) {
            comments += std::string(line) + "\n";
            continue;
        }
        unit->above = std::exchange(comments, {});
        names.add(unit->name, here);
        addresses.add(with_port(unit->address), unit->address, here);
        if (!unit->hardware_address.empty()) {
            hardware.add(unit->hardware_address, here);
        }
        units.push_back(std::move(*unit));
    }
    if (!units.empty()) {
        units.back().below = comments;
    }
    return units;
}

std::string to_text(const inventory_unit &unit) {
    std::string line = unit.name + "  " + unit.address;
    if (!unit.group.empty()) {
        line += "  " + unit.group;
    }
    if (!unit.hardware_address.empty()) {
        line += "  " + std::string(hardware_mark) + unit.hardware_address;
    }
    if (!unit.comment.empty()) {
        line += "  # " + unit.comment;
    }
    return line;
}

std::vector<inventory_unit> of_group(const std::vector<inventory_unit> &units,
                                     const std::string &group) {
    std::vector<inventory_unit> chosen;
    std::ranges::copy_if(units, std::back_inserter(chosen),
                         [&group](const inventory_unit &unit) { return unit.group == group; });
    if (chosen.empty()) {
        throw usage_failure("no unit is in the group " + quoted(group));
    }
    return chosen;
}
