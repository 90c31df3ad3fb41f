#pragma once

#include "bstrlib/bstrlib.h"

#include <string_view>

/// The kiosk browser: one full-screen child process that shows the page at url, rotated by
/// rotation. The variables declared here are written only here.

/// The page that the browser shows unless the gateway has asked for another one.
constexpr const char *station_page = "http://127.0.0.1/station_web/";

/// The rotations as the configuration stores them. Every other text means 0, and every other rotation
/// is stored as "0".
struct stored_rotation {
    const char *text;
    int degrees;
};
constexpr stored_rotation stored_rotations[] = {{"90", 90}, {"180", 180}, {"270", 270}};

extern bstring url;   ///< the page address without the rotation suffix; null: none
extern int rotation;  ///< degrees
extern int kiosk_pid; ///< as the last fork returned it; 0 before the first start, never reset

/// Kills and reaps the running browser, stores t_url as the page address and starts a browser on
/// it, with "?rotation=N" appended when rotation is above 0. A null or empty t_url only stops the
/// browser and empties url. Passing url itself (the same record) restarts the browser on the same
/// page; any other record is copied and stays the caller's. Blocks until the old browser is gone.
void set_url_w_rotation(bstring t_url);

/// The station page becomes the page; no browser is started yet.
void choose_station_page();

/// Shows this page in the browser; an empty address stops it.
void show_page(std::string_view address);

/// Shows the station page in the browser, which is left alone if it already does.
void show_station_page();

/// Restarts the browser on its page. Does nothing if there is no page.
void restart_browser();

/// Restarts the browser if its process is gone. One that has exited but has not been waited for
/// still counts as running.
void keep_browser_alive();

/// Takes the rotation from the configuration; every text but "90", "180" and "270" means 0.
void read_rotation();

/// Rotates the page by 0 to 255 quarter turns and stores the rotation: more than three are stored
/// as "0", while `rotation` keeps the product. The browser is restarted if anything changes.
void turn_page(int quarter_turns);

/// Resets this module to its initial state.
void reset_kiosk_state();
