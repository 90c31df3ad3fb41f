// Starts a program as the unit's own, inside a simulated station, and refuses everywhere else. The
// service reboots, sets clocks, remounts and kills: outside it would do so to this machine.
//
// /run/station/outside names the namespaces that the station was started from, a line each;
// /run/station/stand-ins names the paths at which a stand-in must lie.

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <linux/capability.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vector>

namespace {

const std::string station_directory = "/run/station/";

// What a namespace does not confine: the clock, mounts, modules, raw devices, the console.
constexpr int dropped_capabilities[] = {CAP_SYS_TIME,  CAP_SYS_ADMIN, CAP_SYS_MODULE,
                                        CAP_SYS_RAWIO, CAP_SYS_BOOT,  CAP_SYS_TTY_CONFIG};

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

void require_stand_ins(const char *program) {
    const std::string stand_in = contents_of(station_directory + "bin/stand-in");
    const std::vector<std::string> paths = lines_of(station_directory + "stand-ins");
    if (stand_in.empty() || paths.empty()) {
        refuse(program, "there are no stand-ins for the machine's tools");
    }
    for (const std::string &path : paths) {
        // A tool that is missing altogether can do no harm.
        if (access(path.c_str(), F_OK) == 0 && contents_of(path) != stand_in) {
            refuse(program, path + " is the machine's own");
        }
    }
}

void require_masked_sysrq(const char *program) {
    struct stat status {};
    const bool exists = stat("/proc/sysrq-trigger", &status) == 0;
    if (exists && (!S_ISCHR(status.st_mode) || status.st_rdev != makedev(1, 3))) {
        refuse(program, "/proc/sysrq-trigger is the machine's own");
    }
}

void drop_capabilities(const char *program) {
    for (const int capability : dropped_capabilities) {
        if (prctl(PR_CAPBSET_DROP, capability) != 0 && prctl(PR_CAPBSET_READ, capability) != 0) {
            refuse(program, "a capability cannot be dropped");
        }
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: station-launch PROGRAM [ARGUMENT...]\n");
        return 1;
    }
    const char *program = argv[1];
    require_own_namespaces(program);
    require_stand_ins(program);
    require_masked_sysrq(program);
    drop_capabilities(program);
    execv(program, argv + 1);
    std::perror(program);
    return 1;
}
