// SPDX-License-Identifier: Apache-2.0
//
// Paths of a walk.
#include "standard/tree_path.h"

namespace standard {

namespace {

constexpr size_t kMostUnits = 32766; // what a counted string can name, and a terminator
constexpr size_t kBytesPerUnit = 3;  // a surrogate pair takes four for two
constexpr size_t kPieceUnits = 1024; // converted at once; a name has at most 255 bytes

} // namespace

TALSTATUS TreePath::Set(const UNICODE_STRING& path)
{
    size_t units = path.Length / sizeof(WCHAR);
    while (units != 0 && path.Buffer[units - 1] == u'/')
        --units;
    wide_.Cut(0);
    utf8_.Cut(0);
    converted_ = 0;
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
    if (!wide_.Append(path.Buffer, units) || !utf8_.Append(text.get(), bytes))
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    converted_ = utf8_.size();
    return TAL_STATUS_SUCCESS;
}

bool TreePath::Enter(std::string_view name)
{
    const size_t before = utf8_.size();
    if (utf8_.Put("/") && utf8_.Put(name))
        return true;
    utf8_.Cut(before);
    return false;
}

void TreePath::Leave(const Place& place)
{
    utf8_.Cut(place.utf8);
    if (converted_ > place.utf8) { // the place was taken before this was converted
        wide_.Cut(place.wide);
        converted_ = place.converted;
    }
}

UNICODE_STRING* TreePath::Wide()
{
    if (utf8_.empty()) {
        given_ = {sizeof(WCHAR), sizeof root_, root_};
        return &given_;
    }
    while (converted_ < utf8_.size()) {
        // Up to the next "/", so that no character is cut.
        const std::string_view rest = utf8_.Text().substr(converted_);
        const std::string_view piece = rest.substr(0, rest.find('/', 1));
        WCHAR units[kPieceUnits];
        UINT32 count = kPieceUnits;
        if (piece.size() > kPieceUnits ||
            Code(pITalpl->TalxMultiByteToWideChar(kCodePageUtf8, piece.data(),
                                                  static_cast<UINT32>(piece.size()), units,
                                                  &count)) != kCodeSuccess ||
            wide_.size() + count > kMostUnits || !wide_.Append(units, count))
            return nullptr;
        converted_ += piece.size();
    }
    const WCHAR end = 0; // behind the text, for whoever wants one
    if (!wide_.Append(end))
        return nullptr;
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
