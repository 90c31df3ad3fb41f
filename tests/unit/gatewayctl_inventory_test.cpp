#include "tests/unit/gatewayctl_test.h"
#include "tools/gatewayctl/descriptor_owner.h"
#include "tools/gatewayctl/inventory.h"
#include "tools/gatewayctl/inventory_file.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

std::vector<inventory_unit> parse(const std::string &text) {
    return parse_inventory(text, "units");
}

std::string fault_of(const std::string &text) {
    return refusal([&text] { parse(text); });
}

TEST(inventory, takes_a_name_and_an_address_from_each_line) {
    const auto units = parse("a 10.0.0.1\n\tb\t10.0.0.2:4001  \n");
    ASSERT_EQ(units.size(), 2U);
    EXPECT_EQ(units[0].name, "a");
    EXPECT_EQ(units[0].address, "10.0.0.1");
    EXPECT_EQ(units[0].group, "");
    EXPECT_EQ(units[0].hardware_address, "");
    EXPECT_EQ(units[0].comment, "");
    EXPECT_EQ(units[1].name, "b");
    EXPECT_EQ(units[1].address, "10.0.0.2:4001");
}

TEST(inventory, takes_group_hardware_address_and_comment) {
    const auto units = parse("a 10.0.0.1 north hw=02-00-0A-57-21-32 #  above # the door \n"
                             "b 10.0.0.2 hw=02:00:0a:57:21:33 south\n"
                             "c 10.0.0.3 - #note");
    ASSERT_EQ(units.size(), 3U);
    EXPECT_EQ(units[0].group, "north");
    EXPECT_EQ(units[0].hardware_address, "02:00:0a:57:21:32");
    EXPECT_EQ(units[0].comment, "above # the door");
    EXPECT_EQ(units[1].group, "south");
    EXPECT_EQ(units[1].hardware_address, "02:00:0a:57:21:33");
    EXPECT_EQ(units[2].group, "");
    EXPECT_EQ(units[2].comment, "note");
}

TEST(inventory, skips_comments_and_empty_lines_of_either_kind_of_file) {
    const auto units = parse("# name address\r\n\r\n  \n  #a 1\na#1 10.0.0.1\r\n");
    ASSERT_EQ(units.size(), 1U);
    EXPECT_EQ(units[0].name, "a#1");
    EXPECT_EQ(units[0].address, "10.0.0.1");
}

TEST(inventory, keeps_the_comments_between_its_lines) {
    const auto units = parse("# one\r\n\na 10.0.0.1\n  # two\nb 10.0.0.2\n# three");
    ASSERT_EQ(units.size(), 2U);
    EXPECT_EQ(units[0].above, "# one\n\n");
    EXPECT_EQ(units[0].below, "");
    EXPECT_EQ(units[1].above, "  # two\n");
    EXPECT_EQ(units[1].below, "# three\n");
}

TEST(inventory, names_the_line_of_a_fault) {
    EXPECT_EQ(fault_of("\na"), "units:2: \"a\" has no address");
    EXPECT_EQ(fault_of("a # 10.0.0.1"), "units:1: \"a\" has no address");
    EXPECT_EQ(fault_of("a 10.0.0.1 north loud"),
              "units:1: \"loud\" is one field too many: a comment begins with #");
    EXPECT_EQ(fault_of("a\x1b[1m 10.0.0.1"),
              "units:1: control characters or invalid UTF-8 in \"a\\x1b[1m 10.0.0.1\"");
    EXPECT_EQ(fault_of("a 10.0.0.1 # \xff"),
              "units:1: control characters or invalid UTF-8 in \"a 10.0.0.1 # \\xff\"");
}

TEST(inventory, refuses_what_is_no_address) {
    for (const std::string address :
         {":4000", "a:", "a:0", "a:65536", "a:+1", "a:1:1", "a/24", "a:000001", "10.87.33.050",
          "50", "10.0.0.1.2:4000", "0x0a.1"}) {
        EXPECT_EQ(fault_of("a " + address),
                  "units:1: \"" + address + "\" is not an address: HOST or HOST:PORT");
    }
    EXPECT_EQ(parse("a " + std::string(253, 'h') + ":65535").size(), 1U);
    EXPECT_NE(fault_of("a " + std::string(254, 'h')), "");
}

TEST(inventory, refuses_what_is_no_hardware_address) {
    for (const std::string address :
         {"", "02:00:0a:57:21", "02:00:0a:57:21:3g", "02.00.0a.57.21.32", "02:00:0a:57:21:32:33"}) {
        EXPECT_EQ(fault_of("a 10.0.0.1 hw=" + address),
                  "units:1: \"" + address +
                      "\" is not a hardware address such as 02:00:0a:57:21:32");
    }
    EXPECT_EQ(fault_of("a 10.0.0.1 hw=02:00:0a:57:21:32 hw=02:00:0a:57:21:33"),
              "units:1: a second hardware address");
}

TEST(inventory, refuses_what_is_there_twice) {
    EXPECT_EQ(fault_of("a 10.0.0.1\nb 10.0.0.2\na 10.0.0.3"),
              "units:3: the name \"a\" is also in line 1");
    EXPECT_EQ(fault_of("a 10.0.0.1\nb 10.0.0.1"),
              "units:2: the address \"10.0.0.1\" is also in line 1");
    EXPECT_EQ(fault_of("a 10.0.0.1\nb 10.0.0.1:4000"),
              "units:2: the address \"10.0.0.1:4000\" is also in line 1");
    EXPECT_EQ(fault_of("a 10.0.0.1 hw=02:00:0a:57:21:32\nb 10.0.0.2 hw=02:00:0A:57:21:32"),
              "units:2: the hardware address \"02:00:0a:57:21:32\" is also in line 1");
    EXPECT_EQ(parse("a 10.0.0.1\nb 10.0.0.1:4001\nc 10.0.0.2").size(), 3U);
}

TEST(inventory, writes_a_line_that_it_reads_again) {
    for (const std::string line :
         {"a  10.0.0.1", "a  h:1  north", "a  h  hw=02:00:0a:57:21:32",
          "a  h  north  hw=02:00:0a:57:21:32  # above the door", "a  h  # Tür\t#2"}) {
        EXPECT_EQ(to_text(parse(line).at(0)), line);
    }
}

TEST(inventory, is_read_from_a_file) {
    const std::string file = testing::TempDir() + "gatewayctl_inventory";
    std::ofstream(file) << "a 10.0.0.1\nb";
    EXPECT_EQ(refusal([&file] { read_inventory(file); }), file + ":2: \"b\" has no address");
    std::ofstream(file) << "a 10.0.0.1\n";
    EXPECT_EQ(read_inventory(file).size(), 1U);
    std::remove(file.c_str());
    EXPECT_THROW(read_inventory(file), run_failure);
    EXPECT_THROW(read_inventory(testing::TempDir()), run_failure) << "a folder";
}

TEST(inventory_file, is_an_inventory) {
    const std::string name = testing::TempDir() + "gatewayctl_inventory_file";
    std::ofstream(name) << "kept\n";
    const inventory_file file(name);
    std::string before;
    std::ifstream(name) >> before;
    EXPECT_EQ(before, "kept") << "until it is written";
    const auto units = parse("a 10.0.0.1 north\nb h # note");
    file.write(units, "a comment");
    const auto read = read_inventory(name);
    ASSERT_EQ(read.size(), 2U);
    EXPECT_EQ(to_text(read[0]), to_text(units[0]));
    file.write({}, "");
    EXPECT_TRUE(read_inventory(name).empty());
    std::remove(name.c_str());
}

TEST(inventory_file, is_replaced_and_keeps_its_rights) {
    const std::string name = testing::TempDir() + "gatewayctl_inventory_mode";
    const std::string link = name + "_link";
    std::filesystem::remove(link);
    std::filesystem::create_symlink(name, link);
    std::ofstream(name) << "# old\n";
    std::filesystem::permissions(name, std::filesystem::perms::owner_all);
    const uid_t owner = geteuid() == 0 ? 65534 : geteuid(); // only root can give it away
    EXPECT_EQ(chown(name.c_str(), owner, static_cast<gid_t>(-1)), 0);
    std::ifstream reader(name);
    inventory_file(link).write("# new\n");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "# old\n")
        << "whoever reads it has the old one";
    std::ifstream again(name);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(again), {}), "# new\n");
    struct stat status {};
    EXPECT_EQ(stat(name.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
    EXPECT_EQ(status.st_uid, owner);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    std::filesystem::remove(link);
    std::filesystem::remove(name);
}

TEST(inventory_file, is_not_there_before_it_is_written) {
    const std::string name = testing::TempDir() + "gatewayctl_inventory_new";
    std::filesystem::remove(name);
    const inventory_file file(name);
    EXPECT_FALSE(std::filesystem::exists(name));
    const mode_t before = umask(027);
    file.write("");
    umask(before);
    EXPECT_EQ(std::filesystem::status(name).permissions(), std::filesystem::perms(0640));
    std::filesystem::remove(name);
}

TEST(inventory_file, tells_that_it_cannot_be_written) {
    EXPECT_THROW(inventory_file("/no/such/folder/file"), run_failure);
    EXPECT_THROW(inventory_file{testing::TempDir()}, run_failure) << "a folder";
}

// A socket, because a mistake here would replace the machine's own device.
TEST(inventory_file, replaces_nothing_that_is_no_file) {
    const std::string name = testing::TempDir() + "gatewayctl_inventory_socket";
    std::filesystem::remove(name);
    const descriptor_owner socket_there(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(socket_there.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    EXPECT_THROW(inventory_file(name).write({}, "comment"), run_failure);
    EXPECT_TRUE(std::filesystem::is_socket(name));
    std::filesystem::remove(name);
}

TEST(inventory, is_narrowed_to_a_group) {
    const auto units = parse("a h1 north\nb h2 south\nc h3 north\nd h4");
    const auto north = of_group(units, "north");
    ASSERT_EQ(north.size(), 2U);
    EXPECT_EQ(north[0].name, "a");
    EXPECT_EQ(north[1].name, "c");
    EXPECT_EQ(refusal([&units] { of_group(units, "west"); }), "no unit is in the group \"west\"");
}

} // namespace
