#include "fake_system.h"

#include "fake_calls.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

namespace fake {

system_state state;
bool is_active;
std::map<int, open_file> open_files;

void record(const std::string &call) {
    state.calls.push_back(call);
}

bool fails(const std::string &call) {
    return std::any_of(state.failing.begin(), state.failing.end(),
                       [&](const std::string &name) { return call.starts_with(name); });
}

int failure(int error) {
    errno = error;
    return -1;
}

int new_descriptor(open_file file) {
    const int fd = state.next_descriptor++;
    open_files[fd] = std::move(file);
    return fd;
}

std::vector<std::string> system_state::calls_of(const std::string &prefix) const {
    std::vector<std::string> found;
    std::copy_if(calls.begin(), calls.end(), std::back_inserter(found),
                 [&](const std::string &call) { return call.starts_with(prefix); });
    return found;
}

std::vector<std::string> system_state::executed() const {
    std::vector<std::string> found = calls_of("execv ");
    for (std::string &call : found) {
        call.erase(0, std::strlen("execv "));
    }
    return found;
}

void start() {
    state = system_state();
    open_files.clear();
    is_active = true;
}

void stop() {
    is_active = false;
}

} // namespace fake
