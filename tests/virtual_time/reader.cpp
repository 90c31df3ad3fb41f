#include "reader.h"

#include "happening.h"

namespace virtual_time {

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
        fail("print " + printable(std::string(text), 400));
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
            found = "print " + printable(current.text.substr(printed_), 400);
        }
    }
    throw violation("expected: " + expected + "\n  found:    " + found);
}

} // namespace virtual_time
