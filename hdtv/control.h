#pragma once

#include "hdtv/messages.h"

/// Type 123: a small JSON object, searched as text, that may request an audio clip and may name the
/// gateway, handled in that order. If a clip is fetched, blocks until any child has ended.
void handle_json_control(const json_control &control);
