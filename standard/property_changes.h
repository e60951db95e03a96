// SPDX-License-Identifier: Apache-2.0
//
// What a request wants of properties: the "set" and "remove" elements of PROPPATCH (RFC 4918
// section 9.2) and of extended MKCOL (RFC 5689), as the records that providers carry out.
#pragma once

#include <kest/dav/records_3.h>

#include "standard/reply_writer.h"
#include "standard/xml_elements.h"

namespace standard {

class PropertyChanges {
  public:
    PropertyChanges() = default;
    PropertyChanges(const PropertyChanges&) = delete;
    PropertyChanges& operator=(const PropertyChanges&) = delete;

    // Reads a body whose document element is `root` of DAV:. Fails with code 16 for a malformed
    // one, with code 35 for more than kMostPropertyChanges, with code 5 when memory is short.
    [[nodiscard]] TALSTATUS Read(std::string_view body, std::string_view root);

    // The records, in document order, valid as long as this. Each one's Status is success, or says
    // why no provider need be asked: code 6 for a protected property, code 28 for a type of
    // collection that is not made here, code 33 for a value that cannot be taken.
    DAV_PROPERTY_CHANGE* Records() { return records_.data(); }
    UINT32 Count() const { return static_cast<UINT32>(records_.size()); }
    bool HasFailures() const;

    // Writes a propstat for each outcome: what has failed by itself, and for all others
    // `otherwise`, 200 or 424. Each property is named once, however often it was changed: by its
    // first failure, if one of its changes failed. Needs no memory.
    void PutOutcome(ReplyWriter& out, HTTPSTATUS otherwise);

  private:
    friend class PropertyChangesReader;
    struct Item {
        size_t at; // in texts_: namespace, local name, value
        UINT32 spaceLength;
        UINT32 localLength;
        UINT32 valueLength;
        UINT32 kind;
        UINT64 number;
        TALSTATUS status;
    };
    [[nodiscard]] bool MakeRecords();
    [[nodiscard]] bool FindRepeated();
    void ChooseTold();
    bool IsTold(size_t at) const { return told_[first_[at]] == at; }
    void PutPropStat(ReplyWriter& out, HTTPSTATUS http, TALSTATUS status, bool ofSuccess) const;

    GrowingArray<Item> items_;
    GrowingText texts_;
    GrowingArray<DAV_PROPERTY_CHANGE> records_;
    GrowingArray<UINT32> first_; // of each record: the first one of the same property
    GrowingArray<UINT32> told_;  // of each first record: the one by which its property is told
};

} // namespace standard
