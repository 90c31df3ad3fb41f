#pragma once

#include "hdtv/message.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/messages.h"

#include <string>

/// What the tests of gatewayctl's parts share: bytes written as text, and refusals.

using bytes = message_bytes;

inline bytes operator+(bytes left, const std::string &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline bytes text_bytes(const std::string &text) {
    return bytes() + text;
}

// What the function refuses to do, in its own words.
template <class function> std::string refusal(function &&make) {
    try {
        make();
    } catch (const usage_failure &failure) {
        return failure.what();
    }
    return "";
}

inline detail_alert_settings detail(const std::string &text) {
    detail_alert_settings settings;
    settings.text = text;
    return settings;
}
