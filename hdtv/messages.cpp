#include "hdtv/messages.h"

#include <algorithm>
#include <cstring>

bool counts_on(std::uint8_t type, channel from) noexcept {
    using protocol::message_type;
    switch (static_cast<message_type>(type)) {
    case message_type::rollcall_request:
        return from == channel::udp;
    case message_type::stop_turnout:
    case message_type::set_map_address:
        return from == channel::tcp;
    case message_type::display_alert:
    case message_type::reboot:
    case message_type::hdtv_alert:
    case message_type::set_date:
    case message_type::set_page_address:
    case message_type::hdtv_settings:
    case message_type::detail_alert:
    case message_type::json_control:
        return true;
    }
    return false;
}

display_alert read_display_alert(const gateway_message &message) noexcept {
    namespace layout = protocol::display_alert;
    const int trailer = layout::text + message.number(layout::text_length);
    display_alert alert = {message.byte(layout::flag), message.text(layout::text), std::nullopt};
    // There is a trailer only if the length fits exactly.
    if (message.size() == trailer + layout::trailer_size) {
        alert.turnout = message.number(trailer);
        const auto length = static_cast<std::size_t>(trailer - layout::text);
        alert.text.remove_suffix(alert.text.size() - std::min(alert.text.size(), length));
    }
    return alert;
}

// Counted from the end of what was received, unlike the display alert's.
hdtv_alert read_hdtv_alert(const gateway_message &message) noexcept {
    const int trailer = message.size() - protocol::hdtv_alert::turnout_timer_from_end;
    if (trailer < 0) {
        return {std::nullopt};
    }
    return {message.number(trailer)};
}

namespace {

alerted_unit read_unit(const gateway_message &message, int slot) noexcept {
    namespace layout = protocol::detail_alert;
    constexpr std::size_t longest_name = layout::unit_name_size - 1;
    const char *name = message.text(layout::unit_names + layout::unit_name_size * slot);
    // A name that fills its slot would run on into the next.
    return {{name, strnlen(name, longest_name)}, message.byte(layout::unit_colors + slot)};
}

} // namespace

detail_alert read_detail_alert(const gateway_message &message) noexcept {
    namespace layout = protocol::detail_alert;
    detail_alert alert = {.flag = message.byte(layout::flag),
                          .units = {},
                          .turnout_end = message.number(layout::turnout_end),
                          .turnout_zero = message.number(layout::turnout_zero),
                          .turnout_reverse = message.byte(layout::turnout_reverse),
                          .text_length = message.number(layout::text_length),
                          .text = message.text(layout::text)};
    for (int slot = 0; slot < layout::unit_slots; ++slot) {
        alert.units[static_cast<std::size_t>(slot)] = read_unit(message, slot);
    }
    return alert;
}

set_date read_set_date(const gateway_message &message) noexcept {
    return {message.text(protocol::set_date::text)};
}

set_page_address read_set_page_address(const gateway_message &message) noexcept {
    return {message.text(protocol::set_page_address::text)};
}

hdtv_settings read_hdtv_settings(const gateway_message &message) noexcept {
    return {message.byte(protocol::hdtv_settings::quarter_turns)};
}

set_map_address read_set_map_address(const gateway_message &message) noexcept {
    return {message.text(protocol::set_map_address::text)};
}

json_control read_json_control(const gateway_message &message) noexcept {
    return {message.text(protocol::json_control::text)};
}
