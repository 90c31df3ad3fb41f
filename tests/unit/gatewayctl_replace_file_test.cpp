// A file that is replaced as a whole.

#include "tools/gatewayctl/failure.h"
#include "tools/gatewayctl/replace_file.h"
#include "tools/gatewayctl/socket.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

/// An empty directory of its own.
struct scratch_directory {
    std::string path = "/tmp/gatewayctl_test.XXXXXX";

    scratch_directory() {
        EXPECT_NE(mkdtemp(path.data()), nullptr);
    }
    scratch_directory(const scratch_directory &) = delete;
    scratch_directory &operator=(const scratch_directory &) = delete;
    ~scratch_directory() {
        std::filesystem::remove_all(path);
    }
    std::ptrdiff_t files() const {
        return std::distance(std::filesystem::directory_iterator(path), {});
    }
};

std::string content_of(const std::string &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(replace_file, puts_a_whole_file_in_its_place) {
    const scratch_directory place;
    const std::string path = place.path + "/units.prom";
    const mode_t before = umask(077);
    replace_file(path, "first\n");
    std::ifstream reader(path); // of the old one
    const std::string large(1 << 20, 'x');
    replace_file(path, large);
    umask(before);
    EXPECT_EQ(content_of(path), large);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "first\n");
    EXPECT_EQ(place.files(), 1);
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
}

TEST(replace_file, leaves_nothing_behind_where_it_cannot_be_written) {
    const scratch_directory place;
    const std::string path = place.path + "/units.prom";
    std::filesystem::create_directory(path); // in the way of the new one
    for (const auto &[file, error] :
         {std::pair(path, EISDIR), std::pair(place.path + "/none/units.prom", ENOENT)}) {
        try {
            replace_file(file, "text");
            FAIL();
        } catch (const run_failure &failure) {
            EXPECT_EQ(failure.what(), "cannot write " + file + ": " + reason(error));
        }
    }
    EXPECT_EQ(place.files(), 1);
}

TEST(replace_file, keeps_the_owner_if_it_may) {
    const scratch_directory place;
    const std::string path = place.path + "/units";
    constexpr uid_t other = 65534;
    replace_file(path, "text", {0640, other, other});
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid() == 0 ? other : geteuid());
    EXPECT_EQ(status.st_gid, geteuid() == 0 ? other : getegid());
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

} // namespace
