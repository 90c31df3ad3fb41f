#include "tools/gatewayctl/say.h"

#include <chrono>
#include <cstdio>
#include <ctime>

void say(const std::string &who, const std::string &what) {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm local{};
    char time[16];
    localtime_r(&seconds, &local);
    std::strftime(time, sizeof time, "%H:%M:%S", &local);
    std::printf("%s.%03d  %-15s  %s\n", time, static_cast<int>(milliseconds), who.c_str(),
                what.c_str());
    std::fflush(stdout);
}
