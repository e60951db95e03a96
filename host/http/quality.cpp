// SPDX-License-Identifier: Apache-2.0
//
// Reads weights (RFC 9110 section 12.4.2).
#include "host/http/quality.h"

#include "base/ascii.h"

namespace kestd {

namespace {

// "0", "1", or one of them with up to three digits behind a point; never above 1.
bool ParseWeight(std::string_view text, unsigned& weight) noexcept
{
    if (text.empty() || text.size() > 5 || (text[0] != '0' && text[0] != '1') ||
        (text.size() > 1 && text[1] != '.'))
        return false;
    unsigned value = text[0] == '1' ? 1000 : 0;
    unsigned place = 100;
    for (size_t i = 2; i < text.size(); ++i, place /= 10) {
        if (!base::IsDigit(text[i]))
            return false;
        value += static_cast<unsigned>(text[i] - '0') * place;
    }
    weight = value;
    return value <= 1000;
}

} // namespace

bool NextWeighted(std::string_view& list, WeightedElement& element) noexcept
{
    std::string_view text;
    if (!base::NextElement(list, text))
        return false;
    const size_t end = std::min(text.find(';'), text.size());
    element = {base::Trimmed(text.substr(0, end)), text.substr(end), 1000};
    std::string_view rest = element.parameters;
    while (!rest.empty()) {
        rest.remove_prefix(1);
        const size_t next = std::min(rest.find(';'), rest.size());
        const std::string_view parameter = base::Trimmed(rest.substr(0, next));
        rest.remove_prefix(next);
        if (parameter.size() >= 2 && base::Lower(parameter[0]) == 'q' && parameter[1] == '=')
            if (!ParseWeight(parameter.substr(2), element.weight))
                element.weight = 0;
    }
    return true;
}

} // namespace kestd
