#include "tools/gatewayctl/date.h"

#include <ctime>

std::string date_now() {
    return "@" + std::to_string(std::time(nullptr));
}
