#include "bstrlib_test.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

TEST_F(bstrlib, format_of_a_short_text_takes_one_attempt_of_twice_the_format) {
    const bstr_owner b(bformat("%d-%s", 7, "x"));
    expect_valid(b);
    EXPECT_EQ(text_of(b), "7-x");
    EXPECT_EQ(b->mlen, 18); // 16 at the least, and two more
}

TEST_F(bstrlib, format_longer_than_twice_its_format_is_completed_by_a_second_attempt) {
    const std::string text(5000, 'x');
    const bstr_owner b(bformat("%s/%d", text.c_str(), 42));
    expect_valid(b);
    EXPECT_EQ(text_of(b), text + "/42");
    EXPECT_EQ(b->mlen, 8192); // grown once, to the size that was reported
}

TEST_F(bstrlib, format_of_every_length_around_the_first_attempt) {
    for (int length = 0; length < 70; ++length) {
        const std::string text(static_cast<std::size_t>(length), 'y');
        const bstr_owner b(bformat("%s", text.c_str()));
        expect_valid(b);
        EXPECT_EQ(text_of(b), text);
    }
}

TEST_F(bstrlib, format_works_in_the_smallest_scratch_when_memory_is_short) {
    allowed_mallocs = 1; // the record; its buffer of 18 fails
    failing_mallocs = 1;
    const bstr_owner b(bformat("%s", "abcdef"));
    expect_valid(b);
    EXPECT_EQ(text_of(b), "abcdef");
}

TEST_F(bstrlib, format_that_cannot_grow_fails) {
    const std::string text(5000, 'x');
    allowed_mallocs = 2;
    failing_mallocs = 100;
    failing_reallocs = 100;
    const bstring b = bformat("%s", text.c_str());
    have_memory();
    EXPECT_EQ(b, nullptr);
}

TEST_F(bstrlib, format_of_null_is_null) {
    // Through plain pointers: the compiler rejects a null format.
    bstring (*const format)(const char *, ...) = bformat;
    int (*const append)(bstring, const char *, ...) = bformata;
    EXPECT_EQ(format(nullptr), nullptr);
    const bstr_owner b = make("a");
    EXPECT_EQ(append(b.get(), nullptr), BSTR_ERR);
    EXPECT_EQ(text_of(b), "a");
}

TEST_F(bstrlib, format_appended) {
    const bstr_owner b = make("http://127.0.0.1/");
    EXPECT_EQ(bformata(b.get(), "?rotation=%i", 90), BSTR_OK);
    EXPECT_EQ(text_of(b), "http://127.0.0.1/?rotation=90");
    EXPECT_EQ(bformata(b.get(), "%s", reinterpret_cast<const char *>(b->data)), BSTR_OK);
    EXPECT_EQ(text_of(b), "http://127.0.0.1/?rotation=90http://127.0.0.1/?rotation=90");
    refused_records records;
    for (bstring refused : records.all()) {
        EXPECT_EQ(bformata(refused, "x"), BSTR_ERR);
    }
    EXPECT_EQ(std::memcmp(records.bytes, "abc", 4), 0);
}

} // namespace
