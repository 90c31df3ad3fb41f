#include "hdtv/alerts.h"

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"
#include "cec/cec.h"
#include "hdtv/alert_document.h"
#include "hdtv/hdtv.h"
#include "hdtv/kiosk.h"
#include "hdtv/protocol.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>

char unit_str[4096];

namespace {

bool is_alert_active;
std::time_t alert_start; // of the current or the last alert
int last_turnout_end;    // these three: of the detail alert that started the current alert
int last_turnout_zero;
std::uint8_t last_turnout_reverse;
gateway_message last_detail_alert_buf; // whatever its flag

void show_station_page() {
    if (biseqcstr(url, station_page) == 1) {
        return;
    }
    bdestroy(url);
    url = bfromcstr(station_page);
    set_url_w_rotation(url);
}

bool is_empty(const bstr_owner &text) {
    return !text || text->slen == 0;
}

// The only road into an alert and out of it. Returns whether this message has started one.
bool follow_flag(int flag, bool is_text_empty) {
    if (flag != protocol::alert_on) {
        return false;
    }
    if (is_text_empty) {
        cec_alert_inactive();
        is_alert_active = false;
        return false;
    }
    if (is_alert_active) {
        return false;
    }
    cec_alert_active();
    is_alert_active = true;
    alert_start = std::time(nullptr);
    return true;
}

bool is_ignored(int flag) {
    return flag != protocol::alert_on && is_alert_active;
}

void save_turnout_values(const gateway_message &datagram) {
    namespace layout = protocol::detail_alert;
    last_turnout_end = datagram.number(layout::turnout_end);
    last_turnout_zero = datagram.number(layout::turnout_zero);
    last_turnout_reverse = datagram.byte(layout::turnout_reverse);
}

// One unit's entry fits: 31 bytes of name at most, also of a name that fills its 32 without a zero.
void append_unit(const char *name, int color) {
    constexpr int longest_name = protocol::detail_alert::unit_name_size - 1;
    char entry[64];
    const char *separator = *unit_str == 0 ? "" : ",";
    std::printf("Unit: %.*s %d\n", longest_name, name, color);
    std::snprintf(entry, sizeof entry, "%s{\"unit\":\"%.*s\",\"color\":\"%d\"}", separator,
                  longest_name, name, color);
    std::strncat(unit_str, entry, sizeof unit_str - std::strlen(unit_str) - 1);
}

void build_unit_list(const gateway_message &datagram) {
    namespace layout = protocol::detail_alert;
    std::fill(std::begin(unit_str), std::end(unit_str), '\0');
    for (int slot = 0; slot < layout::unit_slots; ++slot) {
        const int color = datagram.byte(layout::unit_colors + slot);
        if (color != 0) {
            append_unit(datagram.text(layout::unit_names + layout::unit_name_size * slot), color);
        }
    }
}

// The turnout values are those of the alert's start; text, units and flag those of `detail`.
void write_active_alert(const gateway_message &detail, const char *map_url) {
    namespace layout = protocol::detail_alert;
    write_alert_json(
        "hdtv_alert", detail.byte(layout::flag), static_cast<std::uint32_t>(alert_start),
        static_cast<std::uint32_t>(last_turnout_end), static_cast<std::uint32_t>(last_turnout_zero),
        last_turnout_reverse, detail.text(layout::text), map_url, unit_str);
}

} // namespace

void handle_display_alert(const gateway_message &datagram) {
    namespace layout = protocol::display_alert;
    show_station_page();
    const bstr_owner text(bfromcstr(datagram.text(layout::text)));
    std::printf("%d\n", text ? text->slen : 0);
    const std::uint8_t flag = datagram.byte(layout::flag);
    follow_flag(flag, is_empty(text));
    if (is_ignored(flag)) {
        return;
    }
    write_alert_json("display_alert", flag, static_cast<std::uint32_t>(alert_start), 0, 0, 0,
                     bstr_text(text.get()), "", "");
}

void handle_hdtv_alert(const gateway_message & /*datagram*/) {}

void handle_detail_alert(const gateway_message &datagram) {
    namespace layout = protocol::detail_alert;
    const int text_length = datagram.number(layout::text_length);
    show_station_page();
    last_detail_alert_buf = datagram;
    const bstr_owner text(blk2bstr(datagram.text(layout::text),
                                   gateway_message::available(layout::text, text_length)));
    const std::uint8_t flag = datagram.byte(layout::flag);
    if (follow_flag(flag, is_empty(text))) {
        save_turnout_values(datagram);
    }
    // An ignored message has already left its text and its units for the next map address.
    build_unit_list(datagram);
    if (is_ignored(flag)) {
        return;
    }
    if (is_alert_active) {
        write_active_alert(datagram, "");
    } else {
        write_alert_json("hdtv_alert", flag, 0, 0, 0, 0, "", "", "");
    }
}

void handle_set_map_url(const gateway_message &datagram) {
    if (is_alert_active) {
        write_active_alert(last_detail_alert_buf, datagram.text(protocol::set_map_address::text));
    }
}
