#pragma once

#include "bstrlib/bstrlib.h"

#include <memory>

struct bstr_release {
    void operator()(bstring b) const {
        bdestroy(b);
    }
};

/// Owns a temporary byte string and releases it.
using bstr_owner = std::unique_ptr<tagbstring, bstr_release>;
