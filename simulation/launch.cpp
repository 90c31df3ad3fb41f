// Starts a program inside a simulated station, with no more rights than the station grants, and
// refuses everywhere else. The service reboots, sets clocks, remounts and kills: outside a station
// it would do so to this machine.
//
// It checks what the station's keeper left in /run/station, one item per line:
//     outside      the namespaces that the station was started from
//     stand-ins    the paths where a stand-in must be
//     dangerous    the names of programs that may be on a search path only as stand-ins
//     gateway      exists on the gateway's side, whose files are the machine's, read-only

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <linux/capability.h>
#include <set>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vector>

namespace {

const std::string station_directory = "/run/station/";

// The program, and everything it starts, loses every other capability.
constexpr int kept_capabilities[] = {
    CAP_DAC_OVERRIDE,     // the lent programs and pages may have another owner
    CAP_KILL,             // ends its children, whatever their user; it sees no others
    CAP_NET_ADMIN,        // ifconfig and the DHCP client's script set up the station's own network
    CAP_NET_BIND_SERVICE, // the page's port 80, the DHCP client's 68 and server's 67
    CAP_NET_RAW,          // the DHCP client asks before it has an address
};

// A board's root also has these, but only inside the unit's user namespace.
constexpr int board_root_capabilities[] = {
    CAP_CHOWN,     CAP_FOWNER, CAP_FSETID, CAP_SETGID, CAP_SETUID,
    CAP_SYS_ADMIN, // mounts, namespaces
};

// In the user namespace of a unit with a board's root.
constexpr unsigned long most_ids = 65536;

constexpr const char *search_path[] = {"/bin",      "/sbin",          "/usr/bin",
                                       "/usr/sbin", "/usr/local/bin", "/usr/local/sbin"};

[[noreturn]] void refuse(const char *program, const std::string &reason) {
    std::fprintf(stderr, "Refusing to start %s outside the simulated station: %s.\n", program,
                 reason.c_str());
    std::exit(1);
}

std::vector<std::string> lines_of(const std::string &path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string contents_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string read_link(const std::string &path) {
    char target[256];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return {target, static_cast<std::size_t>(length < 0 ? 0 : length)};
}

// "pid:[4026531836]" names both the namespace and its kind.
void require_own_namespaces(const char *program) {
    const std::vector<std::string> outside = lines_of(station_directory + "outside");
    if (outside.size() != 5) {
        refuse(program, "there is no station here");
    }
    for (const std::string &name : outside) {
        const std::string kind = name.substr(0, name.find(':'));
        const std::string own = read_link("/proc/self/ns/" + kind);
        if (own.empty() || own == name) {
            refuse(program, "its " + kind + " namespace is not a private one");
        }
    }
}

bool has_contents(const std::string &path, const std::string &contents) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 &&
           status.st_size == static_cast<off_t>(contents.size()) && contents_of(path) == contents;
}

void require_stand_in(const char *program, const std::string &path, const std::string &stand_in) {
    // A tool that is missing altogether can do no harm.
    if (access(path.c_str(), F_OK) == 0 && !has_contents(path, stand_in)) {
        refuse(program, path + " is the machine's own");
    }
}

// Names match with any suffix: mkfs also stands for mkfs.ext4.
void require_stand_ins_in(const char *program, const std::string &directory,
                          const std::set<std::string> &dangerous, const std::string &stand_in) {
    DIR *entries = opendir(directory.c_str());
    if (entries == nullptr) {
        return;
    }
    while (const dirent *entry = readdir(entries)) {
        const std::string name = entry->d_name;
        std::string path = directory;
        path += "/" + name;
        const std::string stem = name.substr(0, name.find('.'));
        // The station's own busybox, whose dangerous applets are masked, is allowed.
        const bool is_masked =
            stem == "busybox" && has_contents(path, contents_of(station_directory + "bin/busybox"));
        if (!is_masked && (stem == "busybox" || dangerous.contains(stem))) {
            require_stand_in(program, path, stand_in);
        }
    }
    closedir(entries);
}

void require_stand_ins(const char *program) {
    const std::string stand_in = contents_of(station_directory + "bin/stand-in");
    const std::vector<std::string> paths = lines_of(station_directory + "stand-ins");
    const std::vector<std::string> names = lines_of(station_directory + "dangerous");
    if (stand_in.empty() || paths.empty() || names.empty()) {
        refuse(program, "there are no stand-ins for the machine's tools");
    }
    for (const std::string &path : paths) {
        require_stand_in(program, path, stand_in);
    }
    const std::set<std::string> dangerous(names.begin(), names.end());
    std::set<std::string> seen;
    for (const char *directory : search_path) {
        // Directories may have several names; check each only once.
        char *real = realpath(directory, nullptr);
        if (real != nullptr && seen.insert(real).second) {
            require_stand_ins_in(program, real, dangerous, stand_in);
        }
        std::free(real);
    }
}

void require_read_only(const char *program, const char *path) {
    struct statvfs status {};
    if (statvfs(path, &status) != 0 || (status.f_flag & ST_RDONLY) == 0) {
        refuse(program, std::string(path) + " can be written");
    }
}

// A station's own user namespace maps fewer ids than the machine has. The kernel writes this file.
void require_own_users(const char *program) {
    unsigned long inside = 0;
    unsigned long outside = 0;
    unsigned long count = 0;
    std::ifstream("/proc/self/uid_map") >> inside >> outside >> count;
    if (count == 0 || count > most_ids) {
        refuse(program, "a board's root is one in a user namespace only");
    }
}

void require_masked_sysrq(const char *program) {
    struct stat status {};
    const bool exists = stat("/proc/sysrq-trigger", &status) == 0;
    if (exists && (!S_ISCHR(status.st_mode) || status.st_rdev != makedev(1, 3))) {
        refuse(program, "/proc/sysrq-trigger is the machine's own");
    }
}

bool is_kept(int capability, bool is_board_root) {
    return std::ranges::find(kept_capabilities, capability) != std::end(kept_capabilities) ||
           (is_board_root && std::ranges::find(board_root_capabilities, capability) !=
                                 std::end(board_root_capabilities));
}

// With user id 0, every exec grants the whole bounding set again: what is dropped from that set is
// gone for good.
void drop_capabilities(const char *program, bool is_board_root) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2]{};
    for (int capability = 0; prctl(PR_CAPBSET_READ, capability) >= 0; ++capability) {
        if (is_kept(capability, is_board_root)) {
            sets[CAP_TO_INDEX(capability)].permitted |= CAP_TO_MASK(capability);
            sets[CAP_TO_INDEX(capability)].effective |= CAP_TO_MASK(capability);
        } else if (prctl(PR_CAPBSET_READ, capability) != 0 &&
                   prctl(PR_CAPBSET_DROP, capability) != 0) {
            refuse(program, "a capability cannot be dropped");
        }
    }
    // No inheritable capabilities, and therefore no ambient ones.
    if (syscall(SYS_capset, &header, sets) != 0 || prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        refuse(program, "its capabilities cannot be set");
    }
}

// The program starts with default signals, whatever the station's starter ignores or blocks.
void reset_signals() {
    for (int number = 1; number < NSIG; ++number) {
        std::signal(number, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

} // namespace

int main(int argc, char **argv) {
    const bool is_board_root = argc > 1 && std::string(argv[1]) == "--board-root";
    char **command = argv + (is_board_root ? 2 : 1);
    const char *program = *command;
    if (program == nullptr) {
        std::fprintf(stderr, "usage: station-launch [--board-root] PROGRAM [ARGUMENT...]\n");
        return 1;
    }
    require_own_namespaces(program);
    if (access((station_directory + "gateway").c_str(), F_OK) == 0) {
        require_read_only(program, "/");
    } else {
        require_stand_ins(program);
    }
    require_read_only(program, "/sys");
    require_read_only(program, "/proc/sys");
    require_masked_sysrq(program);
    if (is_board_root) {
        require_own_users(program);
    }
    drop_capabilities(program, is_board_root);
    reset_signals();
    execvp(program, command);
    std::perror(program);
    return 1;
}
