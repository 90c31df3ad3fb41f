#pragma once

#include "bstrlib/bstrlib.h"

/// The kiosk browser: one full-screen child process that shows the page at url.

/// The page that the browser shows unless the gateway asked for another one.
constexpr const char *station_page = "http://127.0.0.1/station_web/";

/// The rotations as the configuration stores them, and in degrees. Every other text means 0, and
/// every other rotation is stored as "0".
struct stored_rotation {
    const char *text;
    int degrees;
};
constexpr stored_rotation rotation_settings[] = {{"90", 90}, {"180", 180}, {"270", 270}};

/// Kills and reaps the running browser, remembers t_url as the page address and starts a browser on
/// it, with "?rotation=N" appended when rotation is above 0. A null or empty t_url only stops the
/// browser and empties url. Passing url itself (the very record) restarts the browser on the same
/// page; any other record is copied and stays the caller's. Blocks until the old browser is gone.
void set_url_w_rotation(bstring t_url);
