#pragma once

#include <cstdint>

/// The alert document: the one line of JSON that the station page reads to know what to show.

/// Rewrites the document "/dev/shm/alerts.json" (in place), prints it, and appends it with the local
/// time to "/tmp/alerts.log" while log_alerts is set.
///
/// alert_type          "display_alert", "hdtv_alert" or "stop_turnout"
/// show_turnout_timer  the flag byte of the message, 1 = alert on; 0 in status documents
/// alert_time          seconds since the epoch; 0 in status documents
/// turnout_end, turnout_zero, turnout_reverse
///                     of the detail alert that started the alert, else 0
/// alert_area          the text to show; escaped here
/// map_url, units      written as they are: units is a list of JSON objects joined by commas
///
/// The texts are never null and stay the caller's. The document's expiration is alert_time +
/// turnout_timer, in 32 bits.
void write_alert_json(const char *alert_type, std::uint8_t show_turnout_timer,
                      std::uint32_t alert_time, std::uint32_t turnout_end,
                      std::uint32_t turnout_zero, std::uint8_t turnout_reverse,
                      const char *alert_area, const char *map_url, const char *units);

/// The document of an idle station: the one line of text that its page then shows.
void write_status_document(const char *line);
