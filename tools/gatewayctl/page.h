#pragma once

#include <string>

/// Which page a unit is to show.
struct page_settings {
    std::string address;
    bool is_framed = false; ///< in the station page's frame for guests
    bool is_blank = false;
    bool is_card = false;
    bool is_status = false;
};

/// The address to send; empty for a blank screen. Throws usage_failure unless exactly one page is
/// asked for, and if it cannot be framed as asked.
std::string page_address(const page_settings &settings);

/// Whether the page is one of the station page's own: all others let the unit take its page for dead.
bool is_of_station_page(const std::string &address);
