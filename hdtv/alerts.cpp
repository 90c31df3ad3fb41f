#include "hdtv/alerts.h"

#include "cec/cec.h"
#include "hdtv/alert_decision.h"
#include "hdtv/kiosk.h"
#include "hdtv/line.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <string_view>

char unit_str[unit_list_size];

namespace {

bool is_alert_active;
std::time_t alert_start; // of the current or the last alert
int last_turnout_end;    // these three: of the detail alert that started the current alert
int last_turnout_zero;
std::uint8_t last_turnout_reverse;
gateway_message last_detail_alert_buf; // whatever its flag

// Blocks for as long as the television reports standby.
void wake_television_and_start_alert() {
    cec_alert_active();
    is_alert_active = true;
    alert_start = std::time(nullptr);
}

void end_alert() {
    cec_alert_inactive();
    is_alert_active = false;
}

// All alerts start and end here.
void carry_out(alert_decision decision) {
    if (decision == alert_decision::start) {
        wake_television_and_start_alert();
    } else if (decision == alert_decision::end) {
        end_alert();
    }
}

void save_turnout_values(const detail_alert &alert) {
    last_turnout_end = alert.turnout_end;
    last_turnout_zero = alert.turnout_zero;
    last_turnout_reverse = alert.turnout_reverse;
}

void print_unit(std::string_view name, std::uint8_t color) {
    char room[64]; // a name has at most 31 characters
    line_builder line(room);
    line.append("Unit: ");
    line.append(name);
    line.append(' ');
    line.append_number(color);
    line.append('\n');
    print_line(line.view());
}

void print_length(std::string_view text) {
    char room[16];
    line_builder line(room);
    line.append_number(static_cast<std::uint32_t>(text.size()));
    line.append('\n');
    print_line(line.view());
}

void list_units(const detail_alert &alert) {
    for (const auto &[name, color] : alert.units) {
        if (color != 0) {
            print_unit(name, color);
        }
    }
    format_units(alert.units, unit_str);
}

// The turnout values are those of the alert's start; text, units and flag those of `detail`.
void write_active_alert(const detail_alert &detail, std::string_view map_url) {
    write_alert_document({.type = "hdtv_alert",
                          .show_turnout_timer = detail.flag,
                          .alert_time = static_cast<std::uint32_t>(alert_start),
                          .turnout_end = static_cast<std::uint32_t>(last_turnout_end),
                          .turnout_zero = static_cast<std::uint32_t>(last_turnout_zero),
                          .turnout_reverse = last_turnout_reverse,
                          .alert_area = detail.text,
                          .map_url = map_url,
                          .units = unit_str});
}

} // namespace

void handle_display_alert(const display_alert &alert) {
    show_station_page();
    print_length(alert.text);
    const alert_decision decision = decide(is_alert_active, alert.flag, alert.text.empty());
    carry_out(decision);
    if (decision == alert_decision::ignore) {
        return;
    }
    write_alert_document({.type = "display_alert",
                          .show_turnout_timer = alert.flag,
                          .alert_time = static_cast<std::uint32_t>(alert_start),
                          .alert_area = alert.text});
}

void handle_hdtv_alert(const hdtv_alert & /*alert*/) {}

void handle_detail_alert(const detail_alert &alert, const gateway_message &datagram) {
    show_station_page();
    last_detail_alert_buf = datagram;
    const alert_decision decision = decide(is_alert_active, alert.flag, alert.text_length == 0);
    carry_out(decision);
    if (decision == alert_decision::start) {
        save_turnout_values(alert);
    }
    // An ignored message has already stored its text and its units for the next map address.
    list_units(alert);
    if (decision == alert_decision::ignore) {
        return;
    }
    if (is_alert_active) {
        write_active_alert(alert, "");
    } else {
        write_alert_document({.type = "hdtv_alert", .show_turnout_timer = alert.flag});
    }
}

void handle_set_map_url(const set_map_address &map) {
    if (is_alert_active) {
        write_active_alert(read_detail_alert(last_detail_alert_buf), map.address);
    }
}

void clear_unit_list() {
    std::fill(std::begin(unit_str), std::end(unit_str), '\0');
}

void reset_alert_state() {
    is_alert_active = false;
    alert_start = 0;
    last_turnout_end = last_turnout_zero = 0;
    last_turnout_reverse = 0;
    last_detail_alert_buf = {};
    clear_unit_list();
}
