// Runs a fuzz target once for each file that is named, or is in a directory that is named.

#include "fuzz_target.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

std::vector<std::filesystem::path> files_at(const std::filesystem::path &place) {
    if (!std::filesystem::is_directory(place)) {
        return {place};
    }
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(place)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

void replay(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    REQUIRE(file.is_open());
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    std::fprintf(stderr, "%s\n", path.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(content.data()), content.size());
}

} // namespace

int main(int argc, char **argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &path : files_at(argv[i])) {
            replay(path);
            ++count;
        }
    }
    std::fprintf(stderr, "%zu files replayed\n", count);
    return count > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
