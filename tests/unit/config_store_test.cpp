#include "hdtv/config_store.h"

#include "service_test.h"

#include "bstrlib/bstr_owner.h"

#include <fcntl.h>

namespace {

constexpr const char *file = "/var/www/config.json";

class config_store : public service_test {
  protected:
    static std::string config() {
        return fake::state.files[file];
    }

    /// What a getter returned; "(null)" for null.
    static std::string take(bstring value) {
        const bstr_owner owner(value);
        return owner ? bstr_text(value) : "(null)";
    }

    static std::string from_json(const std::string &json, const char *key) {
        const bstr_owner text(blk2bstr(json.data(), static_cast<int>(json.size())));
        return take(get_from_json(text.get(), key));
    }
};

TEST_F(config_store, value_is_the_text_between_the_quotes) {
    EXPECT_EQ(from_json(R"({"a":"1","b":"two words"})", "a"), "1");
    EXPECT_EQ(from_json(R"({"a":"1","b":"two words"})", "b"), "two words");
    EXPECT_EQ(from_json(R"({"a":""})", "a"), "");
}

TEST_F(config_store, member_with_blanks_or_without_quotes_is_invisible) {
    EXPECT_EQ(from_json(R"({"a": "1"})", "a"), "(null)");
    EXPECT_EQ(from_json(R"({"a" :"1"})", "a"), "(null)");
    EXPECT_EQ(from_json(R"({"a":1})", "a"), "(null)");
    EXPECT_EQ(from_json("", "a"), "(null)");
}

TEST_F(config_store, value_without_a_closing_quote_is_null) {
    EXPECT_EQ(from_json(R"({"a":"1)", "a"), "(null)");
    EXPECT_EQ(from_json(R"({"a":")", "a"), "(null)");
}

TEST_F(config_store, first_match_wins_even_inside_another_value) {
    EXPECT_EQ(from_json(R"({"a":"1","a":"2"})", "a"), "1");
    EXPECT_EQ(from_json(R"({"x":"\"a":"1","a":"2"})", "a"), "1");
}

TEST_F(config_store, value_ends_at_the_first_quote_and_escapes_count_for_nothing) {
    EXPECT_EQ(from_json(R"({"a":"x\"y"})", "a"), "x\\");
}

TEST_F(config_store, lookup_in_null_is_null) {
    EXPECT_EQ(take(get_from_json(nullptr, "a")), "(null)");
}

TEST_F(config_store, option_of_a_missing_or_empty_file_is_null_and_opens_nothing) {
    EXPECT_EQ(take(get_config_option(file, "a")), "(null)");
    have_config("");
    EXPECT_EQ(take(get_config_option(file, "a")), "(null)");
    EXPECT_TRUE(fake::state.calls_of("open").empty());
}

TEST_F(config_store, option_is_read_from_the_first_4095_bytes_in_one_read) {
    const std::string member = R"("a":"1")";
    have_config("{" + std::string(4095 - 1 - member.size(), ' ') + member + "}");
    EXPECT_EQ(take(get_config_option(file, "a")), "1");
    have_config("{" + std::string(4096 - 1 - member.size(), ' ') + member + "}");
    EXPECT_EQ(take(get_config_option(file, "a")), "(null)");
    EXPECT_EQ(fake::state.calls_of("read").size(), 2U);
    EXPECT_TRUE(fake::state.calls_of("read").front().ends_with(" 4095"));
}

TEST_F(config_store, option_text_ends_at_the_first_zero_byte) {
    have_config(std::string("{\0\"a\":\"1\"}", 10));
    EXPECT_EQ(take(get_config_option(file, "a")), "(null)");
}

TEST_F(config_store, option_of_an_unreadable_file_is_null) {
    have_config(R"({"a":"1"})");
    fake::state.failing = {"open /var/www"};
    EXPECT_EQ(take(get_config_option(file, "a")), "(null)");
}

TEST_F(config_store, setting_the_value_it_has_writes_and_remounts_nothing) {
    have_config(R"({"rotation":"90"})");
    set_config_option(file, "rotation", "90");
    EXPECT_EQ(output(), "");
    EXPECT_TRUE(fake::state.calls_of("fork").empty());
    EXPECT_EQ(fake::state.calls_of("open").size(), 1U);
}

TEST_F(config_store, setting_another_value_replaces_it_everywhere_between_two_remounts) {
    have_config(R"({"a":"1","b":"2","a":"1"})");
    set_config_option(file, "a", "7");
    EXPECT_EQ(config(), R"({"a":"7","b":"2","a":"7"})");
    EXPECT_EQ(output(), "Writing CFG:\n{\"a\":\"7\",\"b\":\"2\",\"a\":\"7\"}\n");
    const std::vector<std::string> &calls = fake::state.calls;
    const auto written = std::find_if(calls.begin(), calls.end(), [](const std::string &call) {
        return call.starts_with("write ");
    });
    ASSERT_NE(written, calls.end());
    const auto count_before = [&](const char *name) {
        return std::count(calls.begin(), written, name);
    };
    EXPECT_EQ(count_before("fork"), 1);
    EXPECT_EQ(count_before("wait"), 1);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "fork"), 2);
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "wait"), 2);
    EXPECT_EQ(calls.back(), "wait");
}

TEST_F(config_store, missing_key_lands_before_the_closing_brace) {
    have_config(R"({"a":"1"})");
    set_config_option(file, "k", "v");
    EXPECT_EQ(config(), R"({"a":"1","k":"v"})");
}

TEST_F(config_store, empty_object_receives_the_member_with_its_leading_comma) {
    have_config("{}");
    set_config_option(file, "k", "v");
    EXPECT_EQ(config(), R"({,"k":"v"})");
}

TEST_F(config_store, every_closing_brace_receives_the_member) {
    have_config(R"({"a":{"b":"1"}} })");
    set_config_option(file, "k", "v");
    EXPECT_EQ(config(), R"({"a":{"b":"1","k":"v"},"k":"v"} ,"k":"v"})");
}

TEST_F(config_store, brace_at_index_0_is_never_examined) {
    have_config("}");
    set_config_option(file, "k", "v");
    EXPECT_EQ(config(), "}");
    have_config("}}");
    set_config_option(file, "k", "v");
    EXPECT_EQ(config(), R"(},"k":"v"})");
}

TEST_F(config_store, shorter_text_leaves_the_stale_tail_behind_it) {
    have_config(R"({"rotation":"180"})");
    set_config_option(file, "rotation", "90");
    EXPECT_EQ(config(), R"({"rotation":"90"}})");
}

TEST_F(config_store, longer_file_is_cut_to_its_first_4095_bytes_in_what_is_written) {
    const std::string start = R"({"a":"1"})";
    have_config(start + std::string(5000 - start.size(), 'x'));
    set_config_option(file, "a", "2");
    EXPECT_EQ(output(),
              "Writing CFG:\n{\"a\":\"2\"}" + std::string(4095 - start.size(), 'x') + "\n");
}

TEST_F(config_store, missing_or_empty_file_prints_and_remounts_but_stays_as_it_is) {
    set_config_option(file, "k", "v");
    EXPECT_FALSE(fake::state.files.contains(file));
    have_config("");
    set_config_option(file, "k", "v");
    EXPECT_EQ(config(), "");
    EXPECT_EQ(output(), "Writing CFG:\n\nWriting CFG:\n\n");
    EXPECT_EQ(fake::state.calls_of("fork").size(), 4U);
}

TEST_F(config_store, file_is_opened_for_writing_without_creating_or_truncating) {
    have_config(R"({"a":"1"})");
    set_config_option(file, "a", "2");
    EXPECT_EQ(fake::state.calls_of("open").back(),
              std::string("open ") + file + " " + std::to_string(O_WRONLY));
}

TEST_F(config_store, mount_child_executes_exactly_the_read_write_remount) {
    have_config(R"({"a":"1"})");
    fake::state.next_pid = 0;
    EXPECT_CHILD_ENDS(set_config_option(file, "a", "2"));
    EXPECT_EQ(fake::state.executed(), std::vector<std::string>{"/bin/mount: mount -o rw,remount"});
    EXPECT_EQ(fake::state.calls.back(), "_exit 0");
}

} // namespace
