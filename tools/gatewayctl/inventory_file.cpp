#include "tools/gatewayctl/inventory_file.h"

#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/replace_file.h"
#include "tools/gatewayctl/socket.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

[[noreturn]] void fail_to_write(const std::string &name, int error) {
    throw run_failure("cannot write " + name + ": " + reason(error));
}

// Where a link leads, so that it stays one.
std::string target_of(const std::string &name) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(name, error);
    return error ? name : target.string();
}

// Where the file that replaces it is written.
std::string folder_of(const std::string &name) {
    const std::filesystem::path folder = std::filesystem::path(target_of(name)).parent_path();
    return folder.empty() ? "." : folder.string();
}

mode_t mode_of_new_files() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

void write_to_device(const std::string &name, const std::string &text) {
    std::ofstream file(name, std::ios::binary);
    file << text;
    file.close();
    if (!file) {
        fail_to_write(name, errno);
    }
}

} // namespace

inventory_file::inventory_file(std::string name) : name_(std::move(name)) {
    struct stat status {};
    const bool exists = stat(name_.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) {
        fail_to_write(name_, EISDIR);
    }
    const bool is_replaced = !exists || S_ISREG(status.st_mode);
    if ((exists && access(name_.c_str(), W_OK) != 0) ||
        (is_replaced && access(folder_of(name_).c_str(), W_OK) != 0)) {
        fail_to_write(name_, errno);
    }
}

void inventory_file::write(const std::vector<inventory_unit> &units,
                           const std::string &comment) const {
    std::string text = comment.empty() ? "" : "# " + comment + "\n";
    for (const inventory_unit &unit : units) {
        text += to_text(unit) + "\n";
    }
    write(text);
}

void inventory_file::write(const std::string &text) const {
    struct stat status {};
    const bool exists = stat(name_.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        write_to_device(name_, text);
        return;
    }
    replace_file(target_of(name_), text,
                 exists ? file_rights{status.st_mode & 07777U, status.st_uid, status.st_gid}
                        : file_rights{mode_of_new_files()});
}
