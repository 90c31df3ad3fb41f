// Byte strings: sequences of their operations, each compared with the same on a std::string.

#include "bstrlib/bstr_owner.h"
#include "bstrlib/bstrlib.h"

#include "fuzz_target.h"

#include <array>
#include <cctype>
#include <cstring>

namespace {

constexpr std::size_t slots = 4;
constexpr std::size_t longest = 20'000; // so that no sequence takes long

struct slot {
    bstr_owner record;
    std::string model;
};

struct scene {
    std::array<slot, slots> all;
    fuzz_input input;
    tagbstring part{}; // a view into one of the records

    explicit scene(fuzz_input from) : input(from) {
        for (slot &each : all) {
            each.record.reset(bfromcstr(""));
        }
    }
    slot &any() {
        return all[input.byte() % slots];
    }
    // Small ones, those around zero, and now and then any.
    int position() {
        const int chosen = input.byte();
        return chosen < 250 ? chosen - 2 : static_cast<int>(input.number32());
    }
};

std::string lower(std::string text) {
    for (char &c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string_view view(const_bstring b) {
    return {reinterpret_cast<const char *>(b->data), static_cast<std::size_t>(b->slen)};
}

void expect(const slot &each) {
    const const_bstring b = each.record.get();
    REQUIRE(b != nullptr);
    REQUIRE(b->slen >= 0 && b->slen < b->mlen);
    REQUIRE(b->data[b->slen] == 0);
    REQUIRE_SAME(view(b), each.model);
}

// An operand: a record, the same record as the target, part of a record, or a constant.
struct operand {
    const_bstring record;
    std::string model;
};

operand take_operand(scene &s) {
    static tagbstring constant = "ab"_bstr;
    const int kind = s.input.byte() % 4;
    if (kind == 0) {
        return {&constant, "ab"};
    }
    const slot &from = s.any();
    if (kind == 1) {
        const int start = std::min<int>(s.input.byte(), from.record->slen);
        const int size = std::min<int>(s.input.byte(), from.record->slen - start);
        s.part = {-1, size, from.record->data + start};
        return {&s.part,
                from.model.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(size))};
    }
    return {from.record.get(), from.model};
}

void replace_with(slot &target, bstring made, const std::string &model) {
    REQUIRE(made != nullptr);
    target.record.reset(made);
    target.model = model;
}

void make_new(scene &s) {
    slot &target = s.any();
    const std::string text = s.input.short_text();
    const std::string upto_zero = text.c_str();
    const slot &other = s.any();
    switch (s.input.byte() % 5) {
    case 0:
        return replace_with(target, bfromcstr(text.c_str()), upto_zero);
    case 1:
        return replace_with(target, blk2bstr(text.data(), static_cast<int>(text.size())), text);
    case 2:
        return replace_with(target, bstrcpy(other.record.get()), std::string(other.model));
    case 3:
        return replace_with(target, bformat("<%s|%d>", text.c_str(), 7), "<" + upto_zero + "|7>");
    default:
        REQUIRE(blk2bstr(text.data(), -1 - s.input.byte()) == nullptr);
    }
}

void take_middle(scene &s) {
    slot &target = s.any();
    const slot &from = s.any();
    const std::int64_t left = s.position();
    const std::int64_t size = s.position();
    const std::int64_t end = std::min<std::int64_t>(left + size, std::ssize(from.model));
    const std::int64_t start = std::max<std::int64_t>(left, 0);
    const std::string model = end > start ? from.model.substr(static_cast<std::size_t>(start),
                                                              static_cast<std::size_t>(end - start))
                                          : "";
    replace_with(target, bmidstr(from.record.get(), static_cast<int>(left), static_cast<int>(size)),
                 model);
}

void grow(scene &s) {
    slot &target = s.any();
    const int size = s.input.number16() - 2;
    const int before = target.record->mlen;
    REQUIRE(bgrow(target.record.get(), size) == (size < 1 ? BSTR_ERR : BSTR_OK));
    const int after = target.record->mlen;
    REQUIRE(after >= before && after >= size);
    REQUIRE(after == before || (after > size && after >= 8 && (after & (after - 1)) == 0));
}

void insert(scene &s) {
    slot &target = s.any();
    const int position = s.input.byte() - 1;
    const auto fill = s.input.byte();
    const operand other = take_operand(s);
    const int result = binsert(target.record.get(), position, other.record, fill);
    REQUIRE(result == (position < 0 ? BSTR_ERR : BSTR_OK));
    if (position >= 0) {
        const auto place = static_cast<std::size_t>(position);
        target.model.resize(std::max(target.model.size(), place), static_cast<char>(fill));
        target.model.insert(place, other.model);
    }
}

std::string replaced(std::string text, const std::string &find, const std::string &by,
                     std::size_t from) {
    for (auto at = text.find(find, from); at != std::string::npos;
         at = text.find(find, at + by.size())) {
        text.replace(at, find.size(), by);
    }
    return text;
}

void find_and_replace(scene &s) {
    slot &target = s.any();
    const int position = s.position();
    const operand find = take_operand(s);
    const tagbstring kept = s.part;
    const bool is_part = find.record == &s.part;
    const operand by = take_operand(s);
    const bool is_fine = position >= 0 && !find.model.empty();
    const int result =
        bfindreplace(target.record.get(), is_part ? &kept : find.record, by.record, position);
    REQUIRE(result == (is_fine ? BSTR_OK : BSTR_ERR));
    if (is_fine) {
        target.model =
            replaced(target.model, find.model, by.model, static_cast<std::size_t>(position));
    }
}

void append(scene &s) {
    slot &target = s.any();
    const auto c = static_cast<char>(s.input.byte());
    if (s.input.byte() % 2 == 0) {
        REQUIRE(bconchar(target.record.get(), c) == BSTR_OK);
        target.model += c;
    } else {
        const std::string text = s.input.short_text();
        REQUIRE(bformata(target.record.get(), "%s%d", text.c_str(), c) == BSTR_OK);
        target.model += text.c_str() + std::to_string(c);
    }
}

int to_position(std::size_t found) {
    return found == std::string::npos ? BSTR_ERR : static_cast<int>(found);
}

void search(scene &s) {
    const slot &in = s.any();
    const int position = s.position();
    const operand what = take_operand(s);
    const auto from = static_cast<std::size_t>(position);
    const bool is_inside = position >= 0 && position <= std::ssize(in.model);
    REQUIRE(binstr(in.record.get(), position, what.record) ==
            (is_inside ? to_position(in.model.find(what.model, from)) : BSTR_ERR));
    REQUIRE(binstrcaseless(in.record.get(), position, what.record) ==
            (is_inside ? to_position(lower(in.model).find(lower(what.model), from)) : BSTR_ERR));
    const int c = s.input.number16() - 300;
    REQUIRE(bstrchrp(in.record.get(), c, position) ==
            (is_inside ? to_position(in.model.find(static_cast<char>(c), from)) : BSTR_ERR));
}

void compare(scene &s) {
    const slot &one = s.any();
    const std::string other = s.any().model.c_str();
    REQUIRE(biseqcstr(one.record.get(), other.c_str()) == (one.model == other ? 1 : 0));
    REQUIRE(biseqcstrcaseless(one.record.get(), other.c_str()) ==
            (lower(one.model) == lower(other) ? 1 : 0));
    const std::string text = lower(one.model);
    const std::string end = lower(other);
    const bool is_end =
        !end.empty() && text.ends_with(end) && text.find(end) == text.size() - end.size();
    REQUIRE(bstring_endswith_caseless(one.record.get(), other.c_str()) == is_end);
    REQUIRE(std::string(bstr_text(one.record.get())) == one.model.c_str());
}

// A record that must not be written: constant, dead, or too long for its capacity. Or none.
void refuse(scene &s) {
    char text[] = "text";
    tagbstring records[] = {{-1, 4, nullptr}, {0, 4, nullptr}, {8, -1, nullptr}, {3, 4, nullptr}};
    tagbstring &chosen = records[s.input.byte() % 4];
    chosen.data = reinterpret_cast<unsigned char *>(text);
    const tagbstring before = chosen;
    const operand other = take_operand(s);
    for (tagbstring *target : {&chosen, static_cast<tagbstring *>(nullptr)}) {
        REQUIRE(bgrow(target, s.position()) == BSTR_ERR);
        REQUIRE(bconchar(target, 'x') == BSTR_ERR);
        REQUIRE(binsert(target, s.position(), other.record, 'x') == BSTR_ERR);
        REQUIRE(bfindreplace(target, other.record, other.record, s.position()) == BSTR_ERR);
        REQUIRE(bformata(target, "%d", 1) == BSTR_ERR);
        REQUIRE(bdestroy(target) == BSTR_ERR);
    }
    REQUIRE(std::strcmp(text, "text") == 0);
    REQUIRE(std::memcmp(&chosen, &before, sizeof before) == 0);
}

void accept_none(scene &s) {
    slot &each = s.any();
    bstring b = each.record.get();
    const int position = s.position();
    REQUIRE(bfromcstr(nullptr) == nullptr && blk2bstr(nullptr, 1) == nullptr);
    REQUIRE(bstrcpy(nullptr) == nullptr && bmidstr(nullptr, position, position) == nullptr);
    REQUIRE(binsert(b, position, nullptr, 'x') == BSTR_ERR);
    REQUIRE(bfindreplace(b, nullptr, b, position) == BSTR_ERR);
    REQUIRE(bfindreplace(b, b, nullptr, position) == BSTR_ERR);
    REQUIRE(binstr(b, position, nullptr) == BSTR_ERR && binstr(nullptr, position, b) == BSTR_ERR);
    REQUIRE(binstrcaseless(b, position, nullptr) == BSTR_ERR);
    REQUIRE(bstrchrp(nullptr, position, position) == BSTR_ERR);
    REQUIRE(biseqcstr(b, nullptr) == BSTR_ERR && biseqcstr(nullptr, "") == BSTR_ERR);
    REQUIRE(biseqcstrcaseless(b, nullptr) == BSTR_ERR);
    REQUIRE(!bstring_endswith_caseless(nullptr, "x") && !bstring_endswith_caseless(b, nullptr));
}

constexpr void (*operations[])(scene &) = {make_new, take_middle, grow,    insert, find_and_replace,
                                           append,   search,      compare, refuse, accept_none};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    scene s(fuzz_input(data, size));
    while (!s.input.is_used_up()) {
        operations[s.input.byte() % std::size(operations)](s);
        for (slot &each : s.all) {
            expect(each);
            if (each.model.size() > longest) {
                replace_with(each, bfromcstr(""), "");
            }
        }
    }
    return 0;
}
