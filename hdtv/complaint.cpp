#include "hdtv/complaint.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

void complain(const char *what) {
    std::fprintf(stderr, "hdtv: %s: %s\n", what, std::strerror(errno));
}
