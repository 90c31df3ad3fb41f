#include "hdtv/dispatch.h"

#include "bstrlib/bstrlib.h"
#include "hdtv/alert_document.h"
#include "hdtv/alerts.h"
#include "hdtv/child_process.h"
#include "hdtv/config_store.h"
#include "hdtv/control.h"
#include "hdtv/gateway_records.h"
#include "hdtv/hdtv.h"
#include "hdtv/kiosk.h"
#include "hdtv/protocol.h"
#include "hdtv/watchdog.h"

bool got_set_date_packet;
bool got_hdtv_settings_packet;

namespace {

using protocol::message_type;

void take_display_alert(gateway_message &message) {
    namespace layout = protocol::display_alert;
    const int pkt_sz = message.number(layout::text_length);
    // Only a length that fits exactly says that there is a trailer.
    if (message.size() - pkt_sz - layout::text == layout::trailer_size) {
        const int trailer = message.size() - layout::trailer_size;
        turnout_timer = message.number(trailer);
        message.cut_text(trailer);
    }
    handle_display_alert(message);
}

// The trailer counts from the end of what was received, unlike the display alert's. A message too
// short to hold it changes no timer.
void take_hdtv_alert(gateway_message &message) {
    const int trailer = message.size() - protocol::hdtv_alert::turnout_timer_from_end;
    if (trailer >= 0) {
        turnout_timer = message.number(trailer);
        message.cut_text(trailer);
    }
    handle_hdtv_alert(message);
}

void take_detail_alert(const gateway_message &message) {
    turnout_timer = message.number(protocol::detail_alert::turnout_end);
    handle_detail_alert(message);
}

void reboot_unit() {
    start_program("/sbin/reboot", {"reboot"});
}

void set_date(const gateway_message &message) {
    got_set_date_packet = true;
    run_program("/bin/date", {"date", "-s", message.text(protocol::set_date::text)});
}

void stop_turnout() {
    write_alert_json("stop_turnout", 0, 0, 0, 0, 0, "", "", "");
}

void set_page_address(const gateway_message &message) {
    bdestroy(url);
    url = bfromcstr(message.text(protocol::set_page_address::text));
    set_url_w_rotation(url);
}

const char *rotation_setting() {
    for (const auto &[text, degrees] : rotation_settings) {
        if (degrees == rotation) {
            return text;
        }
    }
    return "0";
}

// More than three quarter turns are stored as "0", while rotation keeps the product.
void set_rotation(const gateway_message &message) {
    got_hdtv_settings_packet = true;
    const int previous = rotation;
    rotation = 90 * message.byte(protocol::hdtv_settings::quarter_turns);
    set_config_option(config_file, "rotation", rotation_setting());
    if (url != nullptr && rotation != previous) {
        set_url_w_rotation(url);
    }
}

void act_on(gateway_message &message, channel from, const message_sender &sender) {
    switch (static_cast<message_type>(message.byte(0))) {
    case message_type::rollcall_request:
        if (from == channel::udp) {
            answer_rollcall(sender);
        }
        break;
    case message_type::display_alert:
        take_display_alert(message);
        break;
    case message_type::reboot:
        reboot_unit();
        break;
    case message_type::hdtv_alert:
        take_hdtv_alert(message);
        break;
    case message_type::set_date:
        set_date(message);
        break;
    case message_type::stop_turnout:
        if (from == channel::tcp) {
            stop_turnout();
        }
        break;
    case message_type::set_page_address:
        set_page_address(message);
        break;
    case message_type::hdtv_settings:
        set_rotation(message);
        break;
    case message_type::detail_alert:
        take_detail_alert(message);
        break;
    case message_type::set_map_address:
        if (from == channel::tcp) {
            handle_set_map_url(message);
        }
        break;
    case message_type::json_control:
        handle_json_control(message);
        break;
    default:
        break;
    }
}

} // namespace

void dispatch_message(gateway_message &message, channel from, const message_sender &sender) {
    act_on(message, from, sender);
    refill_watchdog_budget();
}
