#include "bstrlib/bstrlib.h"

#include "bstrlib/bstr_owner.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <span>
#include <string_view>

namespace {

using bytes = std::span<const unsigned char>;

bool is_readable(const_bstring b) {
    return b != nullptr && b->data != nullptr && b->slen >= 0;
}

bool is_writable(const_bstring b) {
    return is_readable(b) && b->mlen >= 1 && b->slen <= b->mlen;
}

bytes bytes_of(const_bstring b) {
    return {b->data, static_cast<std::size_t>(b->slen)};
}

std::string_view view_of(const_bstring b) {
    return {reinterpret_cast<const char *>(b->data), static_cast<std::size_t>(b->slen)};
}

bool is_same_caseless(unsigned char a, unsigned char b) {
    return std::tolower(a) == std::tolower(b);
}

// The smallest power of two above n, at least 8; n itself if that would overflow an int.
int snap_up_size(int n) {
    if (n < 8) {
        return 8;
    }
    std::int64_t power = 16;
    while (power <= n) {
        power *= 2;
    }
    return power > INT_MAX ? n : static_cast<int>(power);
}

// An empty record with a buffer of capacity bytes, terminator included.
bstring new_record(int capacity) {
    auto *b = static_cast<bstring>(std::malloc(sizeof(tagbstring)));
    if (b == nullptr) {
        return nullptr;
    }
    b->data = static_cast<unsigned char *>(std::malloc(static_cast<std::size_t>(capacity)));
    if (b->data == nullptr) {
        std::free(b);
        return nullptr;
    }
    b->mlen = capacity;
    b->slen = 0;
    b->data[0] = 0;
    return b;
}

void set_length(bstring b, int length) {
    b->slen = length;
    b->data[length] = 0;
}

bstring new_copy(const void *blk, int len, int capacity) {
    bstring b = new_record(capacity);
    if (b != nullptr) {
        std::memcpy(b->data, blk, static_cast<std::size_t>(len));
        set_length(b, len);
    }
    return b;
}

// Moves the bytes to a new, larger buffer; cheaper than realloc when most of the old one is unused,
// because only the used part is copied.
bool move_to_fresh_buffer(bstring b, int capacity) {
    auto *fresh = static_cast<unsigned char *>(std::malloc(static_cast<std::size_t>(capacity)));
    if (fresh == nullptr) {
        return false;
    }
    std::memcpy(fresh, b->data, static_cast<std::size_t>(b->slen));
    std::free(b->data);
    b->data = fresh;
    b->mlen = capacity;
    return true;
}

bool resize_in_place(bstring b, int capacity) {
    auto *data =
        static_cast<unsigned char *>(std::realloc(b->data, static_cast<std::size_t>(capacity)));
    if (data == nullptr) {
        return false;
    }
    b->data = data;
    b->mlen = capacity;
    return true;
}

bool grow_buffer(bstring b, int capacity, int least) {
    const bool mostly_unused = 7 * static_cast<std::int64_t>(b->mlen) >= 8 * std::int64_t{b->slen};
    if (mostly_unused && move_to_fresh_buffer(b, capacity)) {
        return true;
    }
    return resize_in_place(b, capacity) || resize_in_place(b, least);
}

// Makes room for a text of length bytes and its terminator. A length of INT_MAX leaves no room for
// the terminator.
bool make_room(bstring b, std::int64_t length) {
    return length < INT_MAX && bgrow(b, static_cast<int>(length) + 1) == BSTR_OK;
}

// So that a second release through a stale handle is likely to be refused. Volatile, because the
// compiler would eliminate stores to memory that is about to be freed.
void mark_dead(bstring b) {
    volatile tagbstring *dead = b;
    dead->slen = -1;
    dead->mlen = -1;
    dead->data = nullptr;
}

bool shares_storage(const_bstring target, const_bstring other) {
    const std::less<> before;
    return !before(other->data, target->data) && before(other->data, target->data + target->mlen);
}

// other, or a private copy of it (kept in `copy`) if writing target would change it; null if there
// is no memory for the copy.
const_bstring apart_from(const_bstring target, const_bstring other, bstr_owner &copy) {
    if (!shares_storage(target, other)) {
        return other;
    }
    copy.reset(bstrcpy(other));
    return copy.get();
}

int append(bstring b, const_bstring tail) {
    return binsert(b, is_writable(b) ? b->slen : 0, tail, ' ');
}

int count_matches(const_bstring b, const_bstring find, int pos) {
    int count = 0;
    for (pos = binstr(b, pos, find); pos != BSTR_ERR; pos = binstr(b, pos, find)) {
        ++count;
        pos += find->slen;
    }
    return count;
}

// Replaces the first count matches from pos on; the buffer must have room for the result. If the
// text grows, it is first moved to the end of the buffer, then copied forward piece by piece, so
// the read position always stays ahead of the write position.
void replace_matches(bstring b, const_bstring find, const_bstring repl, int pos, int count,
                     int length) {
    const int old_length = b->slen;
    const int shift = std::max(length - old_length, 0);
    std::memmove(b->data + shift, b->data, static_cast<std::size_t>(old_length));
    const tagbstring source = {-1, old_length, b->data + shift};
    unsigned char *write = b->data;
    int read = 0;
    const auto copy_up_to = [&](int end) {
        const auto size = static_cast<std::size_t>(end - read);
        std::memmove(write, source.data + read, size);
        write += size;
        read = end;
    };
    for (int from = pos; count > 0; --count) {
        const int match = binstr(&source, from, find);
        copy_up_to(match);
        std::memcpy(write, repl->data, static_cast<std::size_t>(repl->slen));
        write += repl->slen;
        read = from = match + find->slen;
    }
    copy_up_to(old_length);
    set_length(b, length);
}

bool can_search(const_bstring b1, int pos, const_bstring b2) {
    return is_readable(b1) && is_readable(b2) && pos >= 0 && pos <= b1->slen;
}

bstring new_format_scratch(const char *fmt, int &n) {
    const std::size_t twice = 2 * std::strlen(fmt);
    n = static_cast<int>(std::clamp<std::size_t>(twice, 16, INT_MAX / 2));
    bstring scratch = new_record(n + 2);
    if (scratch == nullptr) {
        n = 1;
        scratch = new_record(n + 2);
    }
    return scratch;
}

// The size of the next attempt; 0 when it would be too large for a record.
int next_format_size(int n, int reported) {
    if (reported > n) {
        return reported < INT_MAX - 2 ? reported : 0;
    }
    return n < (INT_MAX - 2) / 2 ? 2 * n : 0;
}

// The first attempt allows twice the format's length; if the result is longer, its size is then
// known, and the second attempt has room for it.
__attribute__((format(printf, 1, 0))) bstring format_text(const char *fmt, std::va_list arguments) {
    int n = 0;
    bstr_owner scratch(new_format_scratch(fmt, n));
    while (scratch) {
        std::va_list attempt;
        va_copy(attempt, arguments);
        char *text = reinterpret_cast<char *>(scratch->data);
        // The analyzer does not track va_copy in a loop.
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
        const int reported = std::vsnprintf(text, static_cast<std::size_t>(n) + 1, fmt, attempt);
        va_end(attempt);
        text[n] = 0;
        scratch->slen = static_cast<int>(std::strlen(text));
        if (scratch->slen < n || scratch->slen == reported) {
            return scratch.release();
        }
        n = next_format_size(n, reported);
        if (n == 0 || bgrow(scratch.get(), n + 2) != BSTR_OK) {
            return nullptr;
        }
    }
    return nullptr;
}

} // namespace

const char *bstr_text(const_bstring b) {
    return is_readable(b) ? reinterpret_cast<const char *>(b->data) : "";
}

bstring bfromcstr(const char *s) {
    if (s == nullptr) {
        return nullptr;
    }
    const std::size_t length = std::strlen(s);
    if (length >= INT_MAX) {
        return nullptr;
    }
    const int len = static_cast<int>(length);
    return new_copy(s, len, snap_up_size(len == 0 ? 2 : len + 1));
}

bstring blk2bstr(const void *blk, int len) {
    if (blk == nullptr || len < 0 || len == INT_MAX) {
        return nullptr;
    }
    return new_copy(blk, len, snap_up_size(len + 1));
}

bstring bstrcpy(const_bstring b) {
    if (!is_readable(b) || b->slen == INT_MAX) {
        return nullptr;
    }
    bstring copy = new_copy(b->data, b->slen, snap_up_size(b->slen + 1));
    return copy != nullptr ? copy : new_copy(b->data, b->slen, b->slen + 1);
}

bstring bmidstr(const_bstring b, int left, int len) {
    if (!is_readable(b)) {
        return nullptr;
    }
    const std::int64_t start = std::max(left, 0);
    const std::int64_t wanted = left < 0 ? std::int64_t{len} + left : len;
    const std::int64_t length = std::min(wanted, b->slen - start);
    if (length <= 0) {
        return bfromcstr("");
    }
    return blk2bstr(b->data + start, static_cast<int>(length));
}

bstring bformat(const char *fmt, ...) {
    if (fmt == nullptr) {
        return nullptr;
    }
    std::va_list arguments;
    va_start(arguments, fmt);
    bstring b = format_text(fmt, arguments);
    va_end(arguments);
    return b;
}

int bdestroy(bstring b) {
    if (!is_writable(b)) {
        return BSTR_ERR;
    }
    std::free(b->data);
    mark_dead(b);
    std::free(b);
    return BSTR_OK;
}

int bgrow(bstring b, int n) {
    if (!is_writable(b) || n < 1) {
        return BSTR_ERR;
    }
    if (n < b->mlen) {
        return BSTR_OK;
    }
    const int capacity = snap_up_size(n);
    if (capacity <= b->mlen) {
        return BSTR_OK;
    }
    if (!grow_buffer(b, capacity, n)) {
        return BSTR_ERR;
    }
    b->data[b->slen] = 0;
    return BSTR_OK;
}

int bconchar(bstring b, char c) {
    if (!is_writable(b) || !make_room(b, std::int64_t{b->slen} + 1)) {
        return BSTR_ERR;
    }
    b->data[b->slen] = static_cast<unsigned char>(c);
    set_length(b, b->slen + 1);
    return BSTR_OK;
}

int binsert(bstring b1, int pos, const_bstring b2, unsigned char fill) {
    if (!is_writable(b1) || !is_readable(b2) || pos < 0) {
        return BSTR_ERR;
    }
    bstr_owner copy;
    const_bstring inserted = apart_from(b1, b2, copy);
    const std::int64_t length = std::int64_t{std::max(b1->slen, pos)} + b2->slen;
    if (inserted == nullptr || !make_room(b1, length)) {
        return BSTR_ERR;
    }
    const int tail = std::max(b1->slen - pos, 0);
    const int gap = std::max(pos - b1->slen, 0);
    unsigned char *at = b1->data + pos;
    std::memset(b1->data + b1->slen, fill, static_cast<std::size_t>(gap));
    std::memmove(at + inserted->slen, at, static_cast<std::size_t>(tail));
    std::memcpy(at, inserted->data, static_cast<std::size_t>(inserted->slen));
    set_length(b1, static_cast<int>(length));
    return BSTR_OK;
}

int bfindreplace(bstring b, const_bstring find, const_bstring repl, int pos) {
    if (!is_writable(b) || !is_readable(find) || !is_readable(repl) || find->slen == 0 || pos < 0) {
        return BSTR_ERR;
    }
    bstr_owner find_copy;
    bstr_owner repl_copy;
    find = apart_from(b, find, find_copy);
    repl = apart_from(b, repl, repl_copy);
    if (find == nullptr || repl == nullptr) {
        return BSTR_ERR;
    }
    const int count = count_matches(b, find, pos);
    if (count == 0) {
        return BSTR_OK;
    }
    const std::int64_t length =
        b->slen + std::int64_t{count} * (std::int64_t{repl->slen} - find->slen);
    if (!make_room(b, std::max<std::int64_t>(length, b->slen))) {
        return BSTR_ERR;
    }
    replace_matches(b, find, repl, pos, count, static_cast<int>(length));
    return BSTR_OK;
}

int bformata(bstring b, const char *fmt, ...) {
    if (!is_writable(b) || fmt == nullptr) {
        return BSTR_ERR;
    }
    std::va_list arguments;
    va_start(arguments, fmt);
    const bstr_owner text(format_text(fmt, arguments));
    va_end(arguments);
    return append(b, text.get());
}

int binstr(const_bstring b1, int pos, const_bstring b2) {
    if (!can_search(b1, pos, b2)) {
        return BSTR_ERR;
    }
    const auto found = view_of(b1).find(view_of(b2), static_cast<std::size_t>(pos));
    return found == std::string_view::npos ? BSTR_ERR : static_cast<int>(found);
}

int binstrcaseless(const_bstring b1, int pos, const_bstring b2) {
    if (!can_search(b1, pos, b2)) {
        return BSTR_ERR;
    }
    const bytes text = bytes_of(b1);
    const bytes wanted = bytes_of(b2);
    for (const int last = b1->slen - b2->slen; pos <= last; ++pos) {
        const bytes part = text.subspan(static_cast<std::size_t>(pos), wanted.size());
        if (std::ranges::equal(part, wanted, is_same_caseless)) {
            return pos;
        }
    }
    return BSTR_ERR;
}

int bstrchrp(const_bstring b, int c, int pos) {
    if (!is_readable(b) || pos < 0 || pos >= b->slen) {
        return BSTR_ERR;
    }
    const void *found = std::memchr(b->data + pos, static_cast<unsigned char>(c),
                                    static_cast<std::size_t>(b->slen - pos));
    if (found == nullptr) {
        return BSTR_ERR;
    }
    return static_cast<int>(static_cast<const unsigned char *>(found) - b->data);
}

int biseqcstr(const_bstring b, const char *s) {
    if (!is_readable(b) || s == nullptr) {
        return BSTR_ERR;
    }
    return view_of(b) == s ? 1 : 0;
}

int biseqcstrcaseless(const_bstring b, const char *s) {
    if (!is_readable(b) || s == nullptr) {
        return BSTR_ERR;
    }
    const std::string_view other = s;
    const auto same = [](char a, char c) {
        return is_same_caseless(static_cast<unsigned char>(a), static_cast<unsigned char>(c));
    };
    return std::ranges::equal(view_of(b), other, same) ? 1 : 0;
}

bool bstring_endswith_caseless(const_bstring subject, const char *ending) {
    const bstr_owner tail(bfromcstr(ending));
    if (!is_readable(subject) || !tail || tail->slen == 0 || tail->slen > subject->slen) {
        return false;
    }
    return binstrcaseless(subject, 0, tail.get()) == subject->slen - tail->slen;
}
