#pragma once

#include "hdtv/messages.h"

/// Type 123: a small JSON object, looked up as text, that may ask for an audio clip and may name the
/// gateway; the clip first. Blocks until some child has ended when a clip is fetched.
void handle_json_control(const json_control &control);
