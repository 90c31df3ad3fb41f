#include "tools/gatewayctl/replace_file.h"

#include "tools/gatewayctl/descriptor_owner.h"
#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/socket.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool is_written(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(fd, text.data(), text.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return true;
}

// Before anybody can read it, and the owner first, because a change of owner takes rights away.
bool has_rights(int fd, const file_rights &rights) {
    if (fchown(fd, rights.user, rights.group) != 0 && errno != EPERM) {
        return false; // only root can give a file away
    }
    return fchmod(fd, rights.mode) == 0;
}

} // namespace

void replace_file(const std::string &path, const std::string &text, const file_rights &rights) {
    // Beside the file, so that it can take its place; and with an ending that no collector reads.
    std::string other = path + ".XXXXXX";
    const descriptor_owner file(mkostemp(other.data(), O_CLOEXEC));
    if (file.get() >= 0 && is_written(file.get(), text) && has_rights(file.get(), rights) &&
        std::rename(other.c_str(), path.c_str()) == 0) {
        return;
    }
    const int error = errno;
    if (file.get() >= 0) {
        unlink(other.c_str());
    }
    throw run_failure("cannot write " + path + ": " + reason(error));
}
