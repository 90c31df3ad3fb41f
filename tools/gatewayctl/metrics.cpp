#include "tools/gatewayctl/metrics.h"

#include "tools/gatewayctl/address.h"

#include <cstdio>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using labels = std::vector<std::pair<const char *, std::string>>;

std::string number_text(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.15g", value);
    return text;
}

double seconds_of(wall_time time) {
    return std::chrono::duration<double>(
               std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()))
        .count();
}

// As the format wants a label's value.
std::string escaped(std::string_view value) {
    std::string text;
    for (const char c : value) {
        if (c == '\n') {
            text += "\\n";
            continue;
        }
        text += c == '\\' || c == '"' ? "\\" : "";
        text += c;
    }
    return text;
}

/// One metric after another.
class metrics_page {
  public:
    void begin(const std::string &name, const char *type, const char *help) {
        name_ = "station_display_" + name;
        text_ += "# HELP " + name_ + " " + help + "\n# TYPE " + name_ + " " + type + "\n";
    }

    void add(double value, const labels &named = {}, const char *suffix = "") {
        text_ += name_ + suffix;
        const char *before = "{";
        for (const auto &[name, text] : named) {
            text_ += std::exchange(before, ",") + std::string(name) + "=\"" + escaped(text) + '"';
        }
        text_ += (named.empty() ? " " : "} ") + number_text(value) + '\n';
    }

    void add_only(const std::string &name, const char *type, const char *help, double value) {
        begin(name, type, help);
        add(value);
    }

    std::string text() && {
        return std::move(text_);
    }

  private:
    std::string name_;
    std::string text_;
};

labels identity_labels(const fleet_unit &unit) {
    return {{"unit", name_of(unit)},
            {"group", unit.identity.group},
            {"address", host_text(unit.identity.address)}};
}

// Only a reply to a roll call tells it.
std::string version_text(const roll_answer &said) {
    return said.version == 0 ? "" : std::to_string(said.version);
}

labels with(labels known, const char *name, std::string value) {
    known.emplace_back(name, std::move(value));
    return known;
}

void add_tally(metrics_page &page, const fleet_tally &tally) {
    page.add_only("units_expected", "gauge",
                  "Units that ought to be there: those of the inventory or, without one, all that "
                  "have answered since the start.",
                  static_cast<double>(tally.expected));
    page.add_only("units_present", "gauge", "Expected units that answer roll calls.",
                  static_cast<double>(tally.present));
    page.add_only("units_unknown", "gauge", "Units that answer but are not in the inventory.",
                  static_cast<double>(tally.unknown));
}

void add_states(metrics_page &page, const std::vector<const fleet_unit *> &units) {
    page.begin("unit_present", "gauge", "Whether an expected unit answers roll calls.");
    for (const fleet_unit *unit : units) {
        if (unit->is_expected) {
            page.add(unit->state == presence::present ? 1 : 0, identity_labels(*unit));
        }
    }
    page.begin("unit_last_answer_timestamp_seconds", "gauge",
               "When a unit sent its latest record; missing if it has sent none since the start.");
    for (const fleet_unit *unit : units) {
        if (unit->last_answer) {
            page.add(seconds_of(*unit->last_answer), identity_labels(*unit));
        }
    }
}

void add_information(metrics_page &page, const std::vector<const fleet_unit *> &units) {
    page.begin("unit_info", "gauge",
               "What a unit has said of itself, and whether it is expected; always 1.");
    for (const fleet_unit *unit : units) {
        if (unit->last_answer) {
            labels said =
                with(identity_labels(*unit), "hardware_address", unit->said.hardware_address);
            said = with(std::move(said), "version", version_text(unit->said));
            page.add(1, with(std::move(said), "expected", unit->is_expected ? "true" : "false"));
        }
    }
}

void add_requests(metrics_page &page, const std::vector<const fleet_unit *> &units) {
    page.begin("unit_requests_outstanding", "gauge",
               "Whether a unit that is present still asks its gateway for something.");
    for (const fleet_unit *unit : units) {
        if (unit->state == presence::present) {
            const labels named = identity_labels(*unit);
            page.add(unit->said.wants_date ? 1 : 0, with(named, "request", "date"));
            page.add(unit->said.wants_settings ? 1 : 0, with(named, "request", "settings"));
        }
    }
}

void add_times(metrics_page &page, const answer_times &times) {
    page.begin("roll_call_round_trip_seconds", "histogram",
               "From a roll call to the first record of each unit that answered it.");
    std::uint64_t total = 0;
    for (std::size_t i = 0; i < times.counts.size(); ++i) {
        total += times.counts[i];
        const bool is_last = i == std::size(answer_times::bounds);
        page.add(static_cast<double>(total),
                 {{"le", is_last ? "+Inf" : number_text(answer_times::bounds[i])}}, "_bucket");
    }
    page.add(times.sum, {}, "_sum");
    page.add(static_cast<double>(total), {}, "_count");
}

void add_calls(metrics_page &page, const fleet &units, const watch_counts &counts,
               std::chrono::milliseconds every) {
    page.add_only("roll_call_interval_seconds", "gauge", "How often the roll is called.",
                  std::chrono::duration<double>(every).count());
    if (units.last_call()) {
        page.add_only("last_roll_call_timestamp_seconds", "gauge",
                      "When the latest roll call was sent.", seconds_of(units.last_call()->wall));
    }
    page.add_only("roll_calls_total", "counter", "Roll calls sent.",
                  static_cast<double>(counts.calls));
    page.add_only("roll_call_failures_total", "counter",
                  "Units or networks to which a roll call could not be sent.",
                  static_cast<double>(counts.failed_calls));
    page.add_only("invalid_records_total", "counter", "Records that could not be read.",
                  static_cast<double>(counts.invalid_records));
}

} // namespace

std::string metrics_text(const fleet &units, const watch_counts &counts,
                         std::chrono::milliseconds every) {
    metrics_page page;
    const std::vector<const fleet_unit *> all = units.units();
    add_tally(page, tally_of(units));
    add_states(page, all);
    add_information(page, all);
    add_requests(page, all);
    add_times(page, units.times());
    add_calls(page, units, counts, every);
    return std::move(page).text();
}
