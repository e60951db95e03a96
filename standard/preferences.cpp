// SPDX-License-Identifier: Apache-2.0
//
// Reading preferences, and telling which of them were followed.
#include "standard/preferences.h"

#include "standard/request_headers.h"
#include "standard/scan.h"
#include "support/reply.h"

namespace standard {

TALSTATUS ReadPreferences(IKestIO_5* io, Preferences& preferences)
{
    std::string_view prefer;
    if (const TALSTATUS status = ReadHeader(io, "Prefer", prefer); Failed(status))
        return status;
    while (!prefer.empty()) {
        const std::string_view element = TakeElement(prefer);
        const std::string_view preference = Trimmed(element.substr(0, element.find(';')));
        if (EqualsIgnoringCase(preference, "return=minimal"))
            preferences.isMinimal = true;
        else if (EqualsIgnoringCase(preference, "depth-noroot"))
            preferences.withoutRoot = true;
    }
    std::string_view brief;
    const TALSTATUS status = ReadHeader(io, "Brief", brief);
    if (EqualsIgnoringCase(Trimmed(brief), "t"))
        preferences.isMinimal = true;
    return status;
}

void SetPreferencesApplied(IKestIO_5* io, const Preferences& followed)
{
    constexpr const char* kName = "Preference-Applied";
    if (followed.isMinimal)
        SetHeaderText(io, kName,
                      followed.withoutRoot ? "return=minimal, depth-noroot" : "return=minimal");
    else if (followed.withoutRoot)
        SetHeaderText(io, kName, "depth-noroot");
}

} // namespace standard
