#pragma once

#include "hdtv/protocol.h"

#include <cstdint>

/// What a display or detail alert does to the station's one alert.
enum class alert_decision {
    start,     ///< an alert begins: it takes over the television
    update,    ///< the active alert gets new content
    end,       ///< the alert ends, even if none is active: the television is handed back
    show_idle, ///< only shown, because no alert is active
    ignore,
};

constexpr alert_decision decide(bool is_alert_active, std::uint8_t flag,
                                bool is_text_empty) noexcept {
    if (flag != protocol::alert_on) {
        return is_alert_active ? alert_decision::ignore : alert_decision::show_idle;
    }
    if (is_text_empty) {
        return alert_decision::end;
    }
    return is_alert_active ? alert_decision::update : alert_decision::start;
}
