#include "hdtv/dispatch.h"

#include "hdtv/alert_document.h"
#include "hdtv/alerts.h"
#include "hdtv/child_process.h"
#include "hdtv/control.h"
#include "hdtv/gateway_records.h"
#include "hdtv/kiosk.h"
#include "hdtv/messages.h"
#include "hdtv/programs.h"
#include "hdtv/watchdog.h"

namespace {

void take_display_alert(const display_alert &alert) {
    if (alert.turnout) {
        set_turnout_timer(*alert.turnout);
    }
    handle_display_alert(alert);
}

void take_hdtv_alert(const hdtv_alert &alert) {
    if (alert.turnout) {
        set_turnout_timer(*alert.turnout);
    }
    handle_hdtv_alert(alert);
}

void take_detail_alert(const detail_alert &alert, const gateway_message &message) {
    set_turnout_timer(alert.turnout_end);
    handle_detail_alert(alert, message);
}

void reboot_unit() {
    start_program(programs::reboot, {"reboot"});
}

void set_clock(const set_date &wanted) {
    note_date_arrived();
    run_program(programs::date, {"date", "-s", wanted.date});
}

void stop_turnout() {
    write_alert_document({.type = "stop_turnout"});
}

void take_settings(const hdtv_settings &settings) {
    note_settings_arrived();
    turn_page(settings.quarter_turns);
}

// Reads the message and calls its handler.
void act_on(const gateway_message &message, const message_sender &sender) {
    using protocol::message_type;
    switch (static_cast<message_type>(message.byte(0))) {
    case message_type::rollcall_request:
        return answer_rollcall(sender);
    case message_type::display_alert:
        return take_display_alert(read_display_alert(message));
    case message_type::reboot:
        return reboot_unit();
    case message_type::hdtv_alert:
        return take_hdtv_alert(read_hdtv_alert(message));
    case message_type::set_date:
        return set_clock(read_set_date(message));
    case message_type::stop_turnout:
        return stop_turnout();
    case message_type::set_page_address:
        return show_page(read_set_page_address(message).address);
    case message_type::hdtv_settings:
        return take_settings(read_hdtv_settings(message));
    case message_type::detail_alert:
        return take_detail_alert(read_detail_alert(message), message);
    case message_type::set_map_address:
        return handle_set_map_url(read_set_map_address(message));
    case message_type::json_control:
        return handle_json_control(read_json_control(message));
    }
}

} // namespace

void dispatch_message(const gateway_message &message, channel from, const message_sender &sender) {
    if (counts_on(message.byte(0), from)) {
        act_on(message, sender);
    }
    refill_watchdog_budget();
}
