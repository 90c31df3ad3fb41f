#pragma once

#include "bstrlib/bstrlib.h"

/// The unit's settings: a flat JSON object of string members in one small file. It is read and
/// changed as text, by the exact pattern "key":"value" without spaces; the first match wins.

constexpr const char *config_file = "/var/www/config.json";
constexpr int config_limit = 4095; ///< bytes that are read; what comes after them is ignored

/// The keys that the service reads.
namespace config_key {
constexpr const char *comm_gw = "comm_gw";
constexpr const char *rotation = "rotation";
constexpr const char *log_alerts = "log_alerts";
} // namespace config_key

/// The value of parameter in json_obj, or null. The caller releases it.
bstring get_from_json(const_bstring json_obj, const char *parameter);

/// The value of option in the first 4095 bytes of file, or null if the file is missing or empty or
/// has no such member. The caller releases it.
bstring get_config_option(const char *file, const char *option);

/// Changes the member, or adds it before every closing brace. An unchanged value writes nothing;
/// otherwise the root file system is remounted read-write around the write, blocking. The file is
/// neither created nor truncated, so a shorter text leaves the tail of the old one after it.
void set_config_option(const char *file, const char *option, const char *value);
