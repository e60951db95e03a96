// SPDX-License-Identifier: Apache-2.0
#include "recorder.h"

#include <algorithm>

namespace harness {

std::optional<TALSTATUS> Recorder::Decide(std::string_view name)
{
    for (size_t i = 0; i < plans_.size(); ++i) {
        Plan& plan = plans_[i];
        if (plan.name != name || (plan.nth != 0 && --plan.nth != 0))
            continue;
        happened_ = true;
        ++failures_;
        const TALSTATUS status = plan.status;
        if (!plan.always)
            plans_.erase(plans_.begin() + static_cast<std::ptrdiff_t>(i));
        return status;
    }
    if (countdown_ > 0 && --countdown_ == 0) {
        happened_ = true;
        ++failures_;
        failedCall_ = name;
        return kInjected;
    }
    return std::nullopt;
}

std::optional<TALSTATUS> Recorder::Enter(std::string_view name, std::string_view arguments)
{
    if (onCall)
        onCall(name);
    const std::lock_guard lock(mutex_);
    names_.emplace_back(name);
    texts_.push_back(std::string(name) + "(" + std::string(arguments) + ")");
    return Decide(name);
}

std::optional<TALSTATUS> Recorder::EnterUnlisted(std::string_view name)
{
    const std::lock_guard lock(mutex_);
    return Decide(name);
}

void Recorder::Fail(std::string name, TALSTATUS status, int nth)
{
    const std::lock_guard lock(mutex_);
    plans_.push_back({std::move(name), status, nth, false});
}

void Recorder::FailAlways(std::string name, TALSTATUS status)
{
    const std::lock_guard lock(mutex_);
    plans_.push_back({std::move(name), status, 0, true});
}

void Recorder::FailCall(int nth)
{
    const std::lock_guard lock(mutex_);
    countdown_ = nth;
    happened_ = false;
}

bool Recorder::FailureHappened() const
{
    const std::lock_guard lock(mutex_);
    return happened_;
}

int Recorder::Failures() const
{
    const std::lock_guard lock(mutex_);
    return failures_;
}

std::string Recorder::FailedCall() const
{
    const std::lock_guard lock(mutex_);
    return failedCall_;
}

std::vector<std::string> Recorder::Calls(std::vector<std::string> prefixes) const
{
    const std::lock_guard lock(mutex_);
    std::vector<std::string> result;
    for (size_t i = 0; i < names_.size(); ++i)
        if (prefixes.empty() ||
            std::any_of(prefixes.begin(), prefixes.end(),
                        [&](const std::string& p) { return names_[i].starts_with(p); }))
            result.push_back(texts_[i]);
    return result;
}

int Recorder::Count(std::string_view name) const
{
    const std::lock_guard lock(mutex_);
    return static_cast<int>(std::count(names_.begin(), names_.end(), name));
}

void Recorder::Clear()
{
    const std::lock_guard lock(mutex_);
    names_.clear();
    texts_.clear();
    plans_.clear();
    countdown_ = 0;
    happened_ = false;
    failedCall_.clear();
}

} // namespace harness
