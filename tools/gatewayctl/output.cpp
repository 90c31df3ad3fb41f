#include "tools/gatewayctl/output.h"

#include <cstdio>

int written_status(int status) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return status;
    }
    std::fputs("gatewayctl: standard output could not be written\n", stderr);
    return 1;
}
