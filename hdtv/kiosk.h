#pragma once

#include "bstrlib/bstrlib.h"

#include <string_view>

/// The kiosk browser: one full-screen child process that shows the page at url, turned by rotation.
/// What is declared here is written here alone.

/// The page that the browser shows unless the gateway asked for another one.
constexpr const char *station_page = "http://127.0.0.1/station_web/";

extern bstring url;   ///< the page address without the rotation suffix; null: none
extern int rotation;  ///< degrees
extern int kiosk_pid; ///< as the last fork returned it; 0 before the first start, never reset

/// Kills and reaps the running browser, remembers t_url as the page address and starts a browser on
/// it, with "?rotation=N" appended when rotation is above 0. A null or empty t_url only stops the
/// browser and empties url. Passing url itself (the very record) restarts the browser on the same
/// page; any other record is copied and stays the caller's. Blocks until the old browser is gone.
void set_url_w_rotation(bstring t_url);

/// The station page becomes the page; no browser is started yet.
void choose_station_page();

/// The browser shows this page; an empty address stops it.
void show_page(std::string_view address);

/// The browser shows the station page, and is left alone where it does so already.
void show_station_page();

/// Starts the browser anew on its page. Without a page it does nothing.
void restart_browser();

/// Starts the browser again when its process is gone. One that has exited but was not waited for still
/// counts as there.
void keep_browser_alive();

/// Takes the rotation from the configuration; every text but "90", "180" and "270" means 0.
void read_rotation();

/// Turns the page, 0 to 255 quarter turns, and stores the rotation: more than three are stored as "0",
/// while rotation keeps the product. The browser is restarted where something changes.
void turn_page(int quarter_turns);

/// Back to how the process starts.
void reset_kiosk_state();
