// The configuration: settings read from any file, and stored in it.

#include "hdtv/config_store.h"
#include "bstrlib/bstr_owner.h"

#include "config_model.h"
#include "fake_calls.h"
#include "fuzz_service.h"
#include "fuzz_target.h"

#include <array>

namespace {

// Whether the file is there, and what it holds.
struct stored_file {
    bool is_there;
    std::string text;
};

std::string any_word(fuzz_input &input) {
    static constexpr std::array<const char *, 8> words = {"rotation", "comm_gw", "log_alerts", "0",
                                                          "90",       "true",    "",           "}"};
    const int chosen = input.byte();
    return chosen < 0x40 ? words[static_cast<std::size_t>(chosen) % words.size()]
                         : std::string(input.short_text().c_str());
}

void expect_value(const stored_file &file, const std::string &option) {
    const bstr_owner value(get_config_option(config_file, option.c_str()));
    const auto expected = config_model::member(config_model::readable(file.text), option);
    REQUIRE((value != nullptr) == expected.has_value());
    if (value) {
        REQUIRE_SAME(std::string(bstr_text(value.get())), *expected);
        REQUIRE(value->slen == static_cast<int>(expected->size()));
    }
}

void store(stored_file &file, const std::string &option, const std::string &value,
           printed_text &output) {
    output.take();
    set_config_option(config_file, option.c_str(), value.c_str());
    const auto changed = config_model::changed(file.text, option, value);
    REQUIRE(fake::state.calls_of("fork").size() == (changed ? 2 : 0));
    REQUIRE(fake::state.calls_of("wait").size() == (changed ? 2 : 0));
    REQUIRE_SAME(output.take(), changed ? "Writing CFG:\n" + *changed + "\n" : "");
    if (changed && file.is_there) {
        file.text = config_model::overwritten(file.text, *changed);
    }
    REQUIRE(fake::state.files.contains(config_file) == file.is_there);
    if (file.is_there) {
        REQUIRE_SAME(fake::state.files[config_file], file.text);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz_input input(data, size);
    fuzz_service service;
    stored_file file = {input.byte() % 8 != 0, {}};
    const int changes = input.byte() % 8;
    std::array<std::string, 16> words;
    for (int i = 0; i < 2 * changes; ++i) {
        words[static_cast<std::size_t>(i)] = any_word(input);
    }
    if (file.is_there) {
        file.text = input.all();
        fake::state.files[config_file] = file.text;
    }
    for (std::size_t i = 0; i < 2 * static_cast<std::size_t>(changes); i += 2) {
        fake::state.calls.clear();
        expect_value(file, words[i]);
        store(file, words[i], words[i + 1], service.output);
        expect_value(file, words[i]);
        REQUIRE(fake::open_files.empty());
    }
    return 0;
}
