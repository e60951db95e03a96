// SPDX-License-Identifier: Apache-2.0
//
// What opened objects of scripted providers of the third generation share.
#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "provider3.h"
#include "referenced.h"
#include "text.h"

namespace harness {

// Counted by its provider as long as it lives; its calls are noted as "NAME.KIND.Op".
template <class I> class Opened3 : public Referenced<I> {
  public:
    Opened3(Provider& provider, std::string kind) : owner_(provider), kind_(std::move(kind))
    {
        const std::lock_guard lock(owner_.Mutex());
        owner_.Count(1);
    }
    ~Opened3() override
    {
        const std::lock_guard lock(owner_.Mutex());
        owner_.Count(-1);
    }

  protected:
    std::optional<TALSTATUS> Note(const char* operation, const std::string& arguments)
    {
        return owner_.Log().Enter(owner_.Name(kind_.c_str()) + operation, arguments);
    }

    Provider& owner_;

  private:
    const std::string kind_;
};

} // namespace harness
