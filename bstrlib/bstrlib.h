#pragma once

#include <algorithm>
#include <cstddef>

/// Byte strings: counted, growable, and always followed by a zero byte, so their data can be passed
/// directly to system calls. They may contain zero bytes themselves.
///
/// Every operation that returns a `bstring` returns a new one, which the caller releases with
/// `bdestroy`; the caller keeps ownership of its arguments. A null handle is accepted everywhere
/// and yields the error value: BSTR_ERR from an operation that returns int, null from one that
/// returns a `bstring`. Nothing here locks: a record belongs to one thread at a time.

struct tagbstring {
    int mlen;            ///< capacity of data in bytes; below 1: a constant record
    int slen;            ///< length in bytes without the terminating zero; -1: a dead record
    unsigned char *data; ///< data[slen] is 0
};
using bstring = tagbstring *;
using const_bstring = const tagbstring *;

constexpr int BSTR_OK = 0;
constexpr int BSTR_ERR = -1;

/// The bytes of a literal and their terminating zero.
template <std::size_t size> struct bstr_literal {
    consteval bstr_literal(const char (&text)[size]) {
        std::copy_n(text, size, data);
    }
    unsigned char data[size];
};

/// "text"_bstr: a constant record. It can be read like any other, but not grown, written or released:
/// those operations refuse a capacity below 1.
template <bstr_literal literal> consteval tagbstring operator""_bstr() {
    return {-1, static_cast<int>(sizeof literal.data) - 1,
            const_cast<unsigned char *>(literal.data)};
}

/// The zero-terminated text of b (up to its first zero byte); "" when b has none.
const char *bstr_text(const_bstring b);

// New records.

/// A copy of the zero-terminated s.
bstring bfromcstr(const char *s);
/// A copy of len bytes from blk, zero bytes included; null when len is negative.
bstring blk2bstr(const void *blk, int len);
/// A copy of b, which may be constant.
bstring bstrcpy(const_bstring b);
/// The bytes of b from left for len bytes, clipped to b: a negative left shortens len by as much
/// and starts at 0. When nothing remains the result is an empty record, not null.
bstring bmidstr(const_bstring b, int left, int len);
/// The formatted text, of any length.
bstring bformat(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Writing. Each refuses a constant, dead or otherwise invalid target and then leaves it unchanged.

/// Releases b and its data. Releasing null is harmless.
int bdestroy(bstring b);
/// Ensures room for n bytes in total, terminator included; never shrinks. The capacity becomes a
/// power of two above n, at least 8.
int bgrow(bstring b, int n);
/// Appends the byte c.
int bconchar(bstring b, char c);
/// Inserts b2 at pos; when pos lies beyond the end of b1, the gap is filled with fill. b2 may share
/// storage with b1.
int binsert(bstring b1, int pos, const_bstring b2, unsigned char fill);
/// Replaces every occurrence of find at or after pos, from left to right; inserted text is not
/// searched again. find must not be empty. find and repl may share storage with b.
int bfindreplace(bstring b, const_bstring find, const_bstring repl, int pos);
/// Appends the formatted text.
int bformata(bstring b, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

// Searching: a position, or BSTR_ERR when there is none.

/// The first b2 in b1 at or after pos, which may be 0 to the length of b1. An empty b2 is found at
/// pos.
int binstr(const_bstring b1, int pos, const_bstring b2);
/// The same, comparing bytes after tolower.
int binstrcaseless(const_bstring b1, int pos, const_bstring b2);
/// The first byte equal to c (8 bits) at or after pos, which must be below the length.
int bstrchrp(const_bstring b, int c, int pos);

// Comparing: 1 equal, 0 different, BSTR_ERR. Beware of the error value: it is neither 1 nor false.

/// Whether b is exactly the zero-terminated s. A b with an embedded zero byte never matches.
int biseqcstr(const_bstring b, const char *s);
/// The same, comparing bytes after tolower.
int biseqcstrcaseless(const_bstring b, const char *s);

/// Whether subject ends with ending, ignoring case. Only the first occurrence of ending is
/// considered: "a.wav.wav" does not end with ".wav" by this test.
bool bstring_endswith_caseless(const_bstring subject, const char *ending);
