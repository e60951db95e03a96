// SPDX-License-Identifier: Apache-2.0
//
// The lines of both formats, which differ in the names of counters, in numbers and at the end.
#include "host/metrics/exposition.h"

#include <charconv>
#include <utility>

namespace kestd {

namespace {

std::string TextOf(double value)
{
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    return {text.data(), end};
}

// What a bucket is called: a number that is seen to be no integer (OpenMetrics asks for it).
std::string BoundOf(double value)
{
    std::string text = TextOf(value);
    if (text.find_first_of(".e") == std::string::npos)
        text += ".0";
    return text;
}

void AppendLabelValue(std::string& out, std::string_view value)
{
    for (const char c : value)
        if (c == '\n')
            out += "\\n";
        else if (c == '"' || c == '\\')
            (out += '\\') += c;
        else
            out += c;
}

} // namespace

void Exposition::Begin(std::string_view name, std::string_view type, std::string_view help)
{
    family_ = name;
    suffix_ = type == "counter" ? "_total" : "";
    const std::string told = isOpen_ ? family_ : family_ + std::string(suffix_);
    text_.append("# HELP ").append(told).append(" ").append(help).append("\n");
    text_.append("# TYPE ").append(told).append(" ").append(type).append("\n");
}

void Exposition::Counter(std::string_view name, std::string_view help)
{
    Begin(name, "counter", help);
}

void Exposition::Gauge(std::string_view name, std::string_view help)
{
    Begin(name, "gauge", help);
}

void Exposition::Histogram(std::string_view name, std::string_view help)
{
    Begin(name, "histogram", help);
}

void Exposition::Line(std::string_view suffix, Labels labels, const Label* last,
                      std::string_view value)
{
    text_.append(family_).append(suffix);
    char before = '{';
    const auto put = [&](const Label& label) {
        (text_ += std::exchange(before, ',')).append(label.name).append("=\"");
        AppendLabelValue(text_, label.value);
        text_ += '"';
    };
    for (const Label& label : labels)
        put(label);
    if (last)
        put(*last);
    if (before == ',')
        text_ += '}';
    text_.append(" ").append(value).append("\n");
}

void Exposition::Add(Labels labels, uint64_t value)
{
    Line(suffix_, labels, nullptr, std::to_string(value));
}

void Exposition::Add(Labels labels, double value)
{
    Line(suffix_, labels, nullptr, TextOf(value));
}

void Exposition::Add(Labels labels, std::span<const double> bounds,
                     std::span<const uint64_t> counts, double sum)
{
    uint64_t count = 0;
    for (size_t i = 0; i < counts.size(); ++i) {
        count += counts[i];
        const std::string name = i < bounds.size() ? BoundOf(bounds[i]) : "+Inf";
        const Label bound{"le", name};
        Line("_bucket", labels, &bound, std::to_string(count));
    }
    Line("_sum", labels, nullptr, TextOf(sum));
    Line("_count", labels, nullptr, std::to_string(count));
}

std::string Exposition::Take()
{
    if (isOpen_)
        text_ += "# EOF\n";
    return std::move(text_);
}

} // namespace kestd
