// SPDX-License-Identifier: Apache-2.0
//
// Writes metrics as text: in the format of Prometheus (0.0.4) or in that of OpenMetrics (1.0.0).
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

namespace kestd {

enum class MetricsFormat { Prometheus, OpenMetrics };

// Families one after the other, each with its samples. All operations throw std::bad_alloc.
class Exposition {
  public:
    struct Label {
        std::string_view name;
        std::string_view value; // any UTF-8
    };
    using Labels = std::initializer_list<Label>;

    explicit Exposition(MetricsFormat format) : isOpen_(format == MetricsFormat::OpenMetrics) {}

    // Begin a family. Names of counters are given without "_total". `help` is one line.
    void Counter(std::string_view name, std::string_view help);
    void Gauge(std::string_view name, std::string_view help);
    void Histogram(std::string_view name, std::string_view help);

    // A sample of the family that was begun last: of a counter or gauge.
    void Add(Labels labels, uint64_t value);
    void Add(Labels labels, double value);
    // Of a histogram: `bounds` in its unit, with `counts` of what lay between them, one more than
    // there are bounds; the last is of what lay above.
    void Add(Labels labels, std::span<const double> bounds, std::span<const uint64_t> counts,
             double sum);

    // The whole text; nothing can be added any more.
    std::string Take();

  private:
    void Begin(std::string_view name, std::string_view type, std::string_view help);
    void Line(std::string_view suffix, Labels labels, const Label* last, std::string_view value);

    const bool isOpen_;
    std::string text_;
    std::string family_;
    std::string_view suffix_; // of the family's plain samples
};

} // namespace kestd
