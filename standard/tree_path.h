// SPDX-License-Identifier: Apache-2.0
//
// A provider path that a walk extends and cuts back, in both encodings.
#pragma once

#include "support/growing.h"

namespace standard {

class TreePath {
  public:
    // Begins with a provider path; an empty one is the root "/". Code 16 when it is not UTF-16,
    // code 5 when memory is short.
    [[nodiscard]] TALSTATUS Set(const UNICODE_STRING& path);
    // Goes down to a member. False when memory is short: it is as it was then.
    [[nodiscard]] bool Enter(std::string_view name);
    // Goes back to where this was taken.
    struct Place {
        size_t wide;
        size_t converted;
        size_t utf8;
    };
    Place Here() const { return {wide_.size(), converted_, utf8_.size()}; }
    void Leave(const Place& place);

    // Both valid until the path changes. "/" for the root. The wide one is made when it is asked
    // for, as most members of a listing need none: null when memory is short, or the path is too
    // long to be named.
    std::string_view Text() const { return utf8_.empty() ? std::string_view("/") : utf8_.Text(); }
    [[nodiscard]] UNICODE_STRING* Wide();
    // The last component; empty for the root.
    std::string_view Name() const;

  private:
    GrowingText utf8_;         // without the root's "/"
    GrowingArray<WCHAR> wide_; // of the first converted_ bytes
    size_t converted_ = 0;
    UNICODE_STRING given_{};
    WCHAR root_[2] = {u'/', 0};
};

} // namespace standard
