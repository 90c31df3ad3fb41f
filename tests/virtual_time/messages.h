#pragma once

#include "dice.h"

#include <string>

/// Messages as gateways send them, right and wrong.
namespace virtual_time {

std::string random_display_alert(dice &random);
std::string random_detail_alert(dice &random);
std::string random_map(dice &random);
std::string random_end(dice &random);
std::string random_date(dice &random);
std::string random_page(dice &random);
std::string random_control(dice &random);
std::string random_hdtv_alert(dice &random);
/// Bytes without sense, or a message that was cut short or runs on.
std::string random_garbage(dice &random);
/// Any CEC message, with its header.
std::string random_cec(dice &random);

} // namespace virtual_time
