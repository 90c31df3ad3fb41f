#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// A strict reading of the configuration's text: an object of strings, each member written exactly
/// "key":"value". The service searches for that pattern and ignores everything else without a word;
/// here it is named. Knows nothing of files.

/// A place in the text, both from 1; the column counts bytes.
struct text_place {
    int line = 1;
    int column = 1;
};

struct config_fault {
    text_place place;
    std::string what;
};

struct config_member {
    std::string key;
    std::string value;
    text_place place; ///< of its key
};

struct config_reading {
    std::vector<config_member> members; ///< those that the service can see, in order
    std::vector<config_fault> faults;   ///< what it ignores, or would misread
    std::vector<config_fault> remarks;  ///< what it leaves behind itself, and what is harmless
};

/// Any bytes of any length.
config_reading read_strictly(std::string_view bytes);

/// "line 1, column 12".
std::string place_text(const text_place &place);
