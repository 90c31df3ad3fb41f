#pragma once

#include "bstrlib/bstrlib.h"

#include "bstrlib/bstr_owner.h"
#include "failing_memory.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

/// What the string library's tests share.

class bstrlib : public testing::Test {
  protected:
    void SetUp() override {
        have_memory();
        realloc_sizes.clear();
    }
    void TearDown() override {
        have_memory();
    }
    static void have_memory() {
        failing_mallocs = failing_reallocs = allowed_mallocs = 0;
    }
};

inline bstr_owner make(const std::string &text) {
    return bstr_owner(blk2bstr(text.data(), static_cast<int>(text.size())));
}

inline std::string text_of(const_bstring b) {
    return {reinterpret_cast<const char *>(b->data), static_cast<std::size_t>(b->slen)};
}

inline std::string text_of(const bstr_owner &b) {
    return text_of(b.get());
}

inline void expect_valid(const bstr_owner &b) {
    ASSERT_NE(b.get(), nullptr);
    ASSERT_NE(b->data, nullptr);
    EXPECT_GE(b->slen, 0);
    EXPECT_GT(b->mlen, b->slen);
    EXPECT_EQ(b->data[b->slen], 0);
}

// Records that no operation may modify, and a check that none did.
struct refused_records {
    unsigned char bytes[8] = {'a', 'b', 'c', 0};
    tagbstring constant = {-1, 3, bytes};
    tagbstring zero_capacity = {0, 0, bytes};
    tagbstring dead = {8, -1, bytes};
    tagbstring overlong = {2, 3, bytes};
    tagbstring without_data = {8, 0, nullptr};

    std::vector<bstring> all() {
        return {nullptr, &constant, &zero_capacity, &dead, &overlong, &without_data};
    }
};
