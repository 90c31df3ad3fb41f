#include "reader.h"

#include "happening.h"

#include <algorithm>

namespace virtual_time {

namespace {

constexpr std::size_t longest_shown = 5000;
constexpr std::size_t context = 60;

std::size_t start_of_difference(const std::string &a, const std::string &b) {
    return static_cast<std::size_t>(std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first -
                                    a.begin());
}

// Long documents mostly agree.
std::string around_difference(const std::string &text, std::size_t difference) {
    constexpr std::size_t head = 8; // the act
    const std::size_t start = difference > context + head ? difference - context : 0;
    const std::string end = text.size() > start + 2 * context ? "…" : "";
    return (start > 0 ? text.substr(0, head) + "…" : "") + text.substr(start, 2 * context) + end;
}

} // namespace

void reader::begin(const trace &acts, bool is_interrupted) {
    acts_ = &acts;
    position_ = printed_ = 0;
    is_interrupted_ = is_interrupted;
}

void reader::finish() {
    pass_on();
    if (position_ < acts_->size()) {
        fail("nothing more");
    }
}

void reader::pass_on() {
    while (position_ < acts_->size() && printed_ == 0) {
        const entry &current = (*acts_)[position_];
        if (current.what == act::notified) {
            ++position_;
            hear(current);
        } else if (current.what == act::lost) {
            ++position_;
            lose_television();
        } else {
            return;
        }
    }
}

const entry &reader::next() {
    pass_on();
    if (position_ == acts_->size()) {
        if (is_interrupted_) {
            throw interrupted();
        }
        fail("more");
    }
    return (*acts_)[position_];
}

const entry &reader::take(act what) {
    const entry &current = next();
    if (current.what != what || printed_ != 0) {
        fail(describe({what, 0, 0, 0, 0, "..."}));
    }
    ++position_;
    return current;
}

const entry &reader::take(act what, std::string_view text) {
    const entry &current = next();
    if (current.what != what || current.text != text || printed_ != 0) {
        fail(describe({what, 0, 0, 0, 0, std::string(text)}));
    }
    ++position_;
    return current;
}

void reader::print(std::string_view text) {
    const entry &current = next();
    if (current.what != act::printed || current.text.compare(printed_, text.size(), text) != 0) {
        fail("print " + printable(std::string(text), longest_shown));
    }
    printed_ += text.size();
    if (printed_ == current.text.size()) {
        ++position_;
        printed_ = 0;
    }
}

std::int64_t reader::wall() {
    return next().wall;
}

bool reader::comes(act what) {
    return next().what == what;
}

void reader::fail(const std::string &expected) const {
    std::string found = "nothing more";
    if (position_ < acts_->size()) {
        const entry &current = (*acts_)[position_];
        found = describe(current);
        if (printed_ > 0) {
            found = "print " + printable(current.text.substr(printed_), longest_shown);
        }
    }
    const std::size_t same = start_of_difference(expected, found);
    throw violation("expected " + around_difference(expected, same) + "\n      found    " +
                    around_difference(found, same));
}

} // namespace virtual_time
