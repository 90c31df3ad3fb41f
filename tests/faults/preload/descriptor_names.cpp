#include "descriptor_names.h"

#include "site_name.h"

namespace {

constexpr int most_descriptors = 64;

site_name names[most_descriptors] = {site_name("standard input"), site_name("standard output"),
                                     site_name("standard error")};

bool has_name(int fd) {
    return fd >= 0 && fd < most_descriptors;
}

} // namespace

std::string_view name_of(int fd) {
    return has_name(fd) ? names[fd].text() : "nothing";
}

void name_descriptor(int fd, std::string_view name) {
    if (has_name(fd)) {
        names[fd] = site_name(name);
    }
}
