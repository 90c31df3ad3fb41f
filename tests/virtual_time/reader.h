#pragma once

#include "trace.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace virtual_time {

/// The service did something else than the model says.
struct violation : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The unit was reset in the middle of a step: there is no more to compare.
struct interrupted {};

/// Reads what the service did in one step, act by act. What comes from outside in between, on the
/// thread of the CEC service, is passed on.
class reader {
  public:
    virtual ~reader() = default;

  protected:
    void begin(const trace &acts, bool is_interrupted);
    /// The step must contain nothing more.
    void finish();

    /// The next act, which must be this one.
    const entry &take(act what, std::string_view text);
    const entry &take(act what);
    /// The next thing printed.
    void print(std::string_view text);
    /// The wall clock at the next act.
    std::int64_t wall();
    /// The next act is of this kind.
    bool comes(act what);

    virtual void hear(const entry &notification) = 0;
    virtual void lose_television() = 0;

  private:
    const entry &next();
    void pass_on();
    [[noreturn]] void fail(const std::string &expected) const;

    const trace *acts_ = nullptr;
    std::size_t position_ = 0;
    std::size_t printed_ = 0; // of the current act
    bool is_interrupted_ = false;
};

} // namespace virtual_time
