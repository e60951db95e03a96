// SPDX-License-Identifier: Apache-2.0
//
// The changes of properties that a caller asks for, in records of its own age.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include <kest/dav.h>

#include "providers/filestore/failures.h"
#include "providers/filestore/patch.h"
#include "providers/filestore/tear_off.h"

namespace filestore {

// A caller's list of changes of whatever age; their statuses go back at the end.
class ChangeList {
  public:
    ChangeList(UINT32 count, DAV_PROPERTY_CHANGE* given) : given_(given)
    {
        if (count && (!given || count > kMostPropertyChanges ||
                      given->Size < offsetof(DAV_PROPERTY_CHANGE, Status) + sizeof given->Status))
            return;
        isValid_ = true;
        list_.resize(count);
        for (UINT32 i = 0; i < count; ++i)
            (void)ReadRecord(Given(i), &list_[i]);
    }
    ~ChangeList()
    {
        for (UINT32 i = 0; i < list_.size(); ++i)
            Given(i)->Status = list_[i].Status;
    }
    ChangeList(const ChangeList&) = delete;
    ChangeList& operator=(const ChangeList&) = delete;

    // Code 4 for a list that cannot be one, else as JudgeChanges.
    TALSTATUS Judge() { return isValid_ ? JudgeChanges(list_) : Failure(kCodeInvalidParameter); }
    std::span<DAV_PROPERTY_CHANGE> List() { return list_; }

  private:
    DAV_PROPERTY_CHANGE* Given(UINT32 index) const
    {
        return reinterpret_cast<DAV_PROPERTY_CHANGE*>(reinterpret_cast<char*>(given_) +
                                                      size_t{index} * given_->Size);
    }
    DAV_PROPERTY_CHANGE* const given_;
    bool isValid_ = false;
    std::vector<DAV_PROPERTY_CHANGE> list_;
};

} // namespace filestore
