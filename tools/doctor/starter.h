#pragma once

#include "tools/doctor/processes.h"

#include <optional>
#include <string>

/// Who has started the service, and would start it again.
enum class starter { systemd, init_script, unknown };

starter starter_of(const process &service);

/// Whether the file was written before the service was started. Their starters leave a file behind at
/// that moment, and what was written first stays so when the clock is set later. Nothing if there is no
/// such file.
std::optional<bool> is_from_before_start(const std::string &file, const process &service);
