// SPDX-License-Identifier: Apache-2.0
//
// Paths of a walk.
#include "standard/tree_path.h"

namespace standard {

namespace {

constexpr size_t kMostUnits = 32766; // what a counted string can name, and a terminator
constexpr UINT32 kMostNameUnits = 1024;
constexpr size_t kBytesPerUnit = 3; // a surrogate pair takes four for two

} // namespace

TALSTATUS TreePath::Set(const UNICODE_STRING& path)
{
    size_t units = path.Length / sizeof(WCHAR);
    while (units != 0 && path.Buffer[units - 1] == u'/')
        --units;
    wide_.Cut(0);
    utf8_.Cut(0);
    if (units == 0)
        return TAL_STATUS_SUCCESS;
    const Paged<char> text = AllocPaged<char>(units * kBytesPerUnit + 1);
    auto bytes = static_cast<UINT32>(units * kBytesPerUnit);
    if (!text)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    if (Code(pITalpl->TalxWideCharToMultiByte(kCodePageUtf8, path.Buffer,
                                              static_cast<UINT32>(units), text.get(), &bytes)) !=
        kCodeSuccess)
        return TAL_STATUS_INVALID_REQUEST;
    return wide_.Append(path.Buffer, units) && utf8_.Append(text.get(), bytes)
               ? TAL_STATUS_SUCCESS
               : TAL_STATUS_INSUFFICIENT_RESOURCES;
}

bool TreePath::Enter(std::string_view name)
{
    WCHAR wide[kMostNameUnits];
    UINT32 units = kMostNameUnits;
    if (name.size() > kMostNameUnits ||
        Code(pITalpl->TalxMultiByteToWideChar(kCodePageUtf8, name.data(),
                                              static_cast<UINT32>(name.size()), wide, &units)) !=
            kCodeSuccess ||
        wide_.size() + 1 + units > kMostUnits)
        return false;
    const Place before = Here();
    const WCHAR slash = u'/';
    if (wide_.Append(slash) && wide_.Append(wide, units) && utf8_.Put("/") && utf8_.Put(name))
        return true;
    Leave(before);
    return false;
}

UNICODE_STRING* TreePath::Wide()
{
    if (wide_.empty()) {
        given_ = {sizeof(WCHAR), sizeof root_, root_};
        return &given_;
    }
    const WCHAR end = 0; // behind the text, for whoever wants one
    if (wide_.Append(end))
        wide_.Cut(wide_.size() - 1);
    const auto bytes = static_cast<UINT16>(wide_.size() * sizeof(WCHAR));
    given_ = {bytes, bytes, wide_.data()};
    return &given_;
}

std::string_view TreePath::Name() const
{
    const std::string_view text = utf8_.Text();
    const size_t slash = text.rfind('/');
    return slash == std::string_view::npos ? text : text.substr(slash + 1);
}

} // namespace standard
