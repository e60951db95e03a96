// SPDX-License-Identifier: Apache-2.0
//
// Locking two names in one order.
#include "providers/filestore/name_guard.h"

#include <functional>

namespace filestore {

NameGuard::NameGuard(std::mutex& name, std::mutex& other)
    : first_(std::less<>()(&name, &other) ? name : other),
      second_(std::less<>()(&name, &other) ? other : name)
{
    first_.lock(); // in one order, so that two guards do not wait for each other
    if (&second_ != &first_)
        second_.lock();
}

NameGuard::~NameGuard()
{
    if (&second_ != &first_)
        second_.unlock();
    first_.unlock();
}

} // namespace filestore
