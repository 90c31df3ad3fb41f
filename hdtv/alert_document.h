#pragma once

#include "hdtv/messages.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/// The alert document: the one line of JSON that tells the station page what to show. Nothing else
/// writes it.

constexpr const char *document_file = "/dev/shm/alerts.json";
constexpr const char *document_log = "/tmp/alerts.log";

extern int turnout_timer; ///< seconds, initially 120: how long after its start an alert expires
extern bool log_alerts;   ///< initially true, never cleared

constexpr std::size_t unit_list_size = 4096; ///< bytes, terminating zero included

/// What the page should show. The type is never null; the texts are not stored.
struct alert_document {
    const char *type;                    ///< "display_alert", "hdtv_alert" or "stop_turnout"
    std::uint8_t show_turnout_timer = 0; ///< the flag byte of the message, 1 = alert on
    std::uint32_t alert_time = 0;        ///< seconds since the epoch; 0 in status documents
    std::uint32_t turnout_end = 0; ///< these three: of the detail alert that started the alert
    std::uint32_t turnout_zero = 0;
    std::uint8_t turnout_reverse = 0;
    std::string_view alert_area = {}; ///< the text; escaped on its way into the document
    std::string_view map_url = {};    ///< written unescaped
    std::string_view units = {};      ///< from format_units; written unescaped
};

/// Rewrites "/dev/shm/alerts.json" (in place), prints the document, and appends it with the local time
/// to "/tmp/alerts.log" while log_alerts is set. Its expiration is alert_time + turnout_timer, in 32
/// bits.
void write_alert_document(const alert_document &document);

/// The same, with separate arguments.
void write_alert_json(const char *alert_type, std::uint8_t show_turnout_timer,
                      std::uint32_t alert_time, std::uint32_t turnout_end,
                      std::uint32_t turnout_zero, std::uint8_t turnout_reverse,
                      const char *alert_area, const char *map_url, const char *units);

/// Writes the document of an idle station, whose page shows this one line of text.
void write_status_document(const char *line);

/// Fills the list with the occupied slots as JSON objects joined by commas, and zeros after them.
void format_units(std::span<const alerted_unit> units, std::span<char, unit_list_size> list);

void set_turnout_timer(int seconds);

/// The configuration's "log_alerts". Logging is on from the start, so this can only enable what is
/// already enabled.
void read_log_alerts();

/// Resets this module to its initial state.
void reset_alert_document_state();
