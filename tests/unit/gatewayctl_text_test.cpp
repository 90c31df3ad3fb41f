#include "tools/gatewayctl/address.h"
#include "tools/gatewayctl/text.h"

#include "gatewayctl_test.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {

TEST(address, host_may_carry_a_port) {
    EXPECT_EQ(to_text(resolve("127.0.0.1")), "127.0.0.1:4000");
    EXPECT_EQ(to_text(resolve("127.0.0.1:5")), "127.0.0.1:5");
    for (const char *text :
         {"", ":5", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536", "127.0.0.1:x"}) {
        EXPECT_NE(refusal([&] { resolve(text); }), "") << text;
    }
}

TEST(text, is_quoted_for_a_terminal) {
    EXPECT_EQ(quoted("a\"\\\n\t\x1b\x7fé"), "\"a\\\"\\\\\\n\\t\\x1b\\x7fé\"");
    EXPECT_EQ(quoted("\xc2\xa0ß € 🚒 \xef\xb8\x8f"), "\"\xc2\xa0ß € 🚒 \xef\xb8\x8f\"");
    EXPECT_EQ(quoted(std::string_view("\0", 1)), "\"\\x00\"");
    EXPECT_EQ(quoted(""), "\"\"");
}

TEST(text, that_steers_a_terminal_is_escaped) {
    for (int byte = 0x80; byte < 0xa0; ++byte) {
        const char last = static_cast<char>(byte);
        const std::string hex = to_hex(bytes({static_cast<std::uint8_t>(byte)}));
        EXPECT_EQ(::quoted(std::string(1, last)), "\"\\x" + hex + "\"");
        EXPECT_EQ(::quoted(std::string("\xc2") + last), "\"\\u00" + hex + "\"");
    }
}

TEST(text, that_deceives_its_reader_is_escaped) {
    EXPECT_EQ(quoted("\u200e\u200f\u2028\u2029\ufeff\u00ad"),
              "\"\\u200e\\u200f\\u2028\\u2029\\ufeff\\u00ad\"");
    EXPECT_EQ(quoted("\u202a\u202b\u202c\u202d\u202e"), "\"\\u202a\\u202b\\u202c\\u202d\\u202e\"");
    EXPECT_EQ(quoted("\u2066\u2067\u2068\u2069"), "\"\\u2066\\u2067\\u2068\\u2069\"");
    EXPECT_EQ(quoted("\U000e0041"), "\"\\U000e0041\"");
}

TEST(text, that_is_no_utf8_is_escaped_byte_by_byte) {
    for (const auto &[text, escaped] :
         {std::pair{"\xff", "\\xff"},
          {"\xc3", "\\xc3"},                            // cut off
          {"\xe2\x82", "\\xe2\\x82"},                   //
          {"\xc3(", "\\xc3("},                          //
          {"\xf0\x9f\x9a\"", "\\xf0\\x9f\\x9a\\\""},    //
          {"\xc0\x9b", "\\xc0\\x9b"},                   // overlong
          {"\xe0\x82\x9b", "\\xe0\\x82\\x9b"},          //
          {"\xf0\x80\x82\x9b", "\\xf0\\x80\\x82\\x9b"}, //
          {"\xed\xa0\x80", "\\xed\\xa0\\x80"},          // a surrogate
          {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"}, // past the last code point
          {"\xf8\x88\x80\x80\x80", "\\xf8\\x88\\x80\\x80\\x80"}}) {
        EXPECT_EQ(quoted(text), std::string("\"") + escaped + "\"");
    }
}

// Whatever the bytes, only printable ASCII and complete characters reach the terminal.
TEST(text, of_any_bytes_is_harmless) {
    std::mt19937 random(1);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int i = 0; i < 20000; ++i) {
        std::string text(8, ' ');
        std::ranges::generate(text, [&] { return static_cast<char>(byte(random)); });
        const std::string shown = ::quoted(text);
        EXPECT_EQ(printable(shown), shown);
        EXPECT_TRUE(std::ranges::none_of(
            shown, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7f; }));
    }
}

TEST(text, may_keep_its_own_quotation_marks) {
    EXPECT_EQ(printable("\"a\\\" \x1b\n\x9b é"), "\"a\\\" \\x1b\\n\\x9b é");
}

TEST(text, of_bytes) {
    EXPECT_EQ(to_hex(bytes({0, 0xaf})), "00 af");
    EXPECT_EQ(bytes_text(0), "0 bytes");
    EXPECT_EQ(bytes_text(1), "1 byte");
    EXPECT_EQ(bytes_text(2), "2 bytes");
}

} // namespace
