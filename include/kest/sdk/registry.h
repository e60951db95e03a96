// SPDX-License-Identifier: Apache-2.0
//
// Reading settings: the values of one registry key, through the platform layer.
#pragma once

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kest/status.h>
#include <kest/talpl.h>
#include <kest/types.h>

namespace kest {

// What became of reading a value.
enum class ReadResult {
    Read,
    Missing,    // the key or the value is not set
    OtherType,  // it is set, and is something else
    Malformed,  // a text that is no well-formed UTF-16
    Unreadable, // the platform layer failed, or it is larger than 2 MiB
};

// An open key. Of the operations, those that give anything but Read leave `out` as it is; all may
// throw std::bad_alloc. For one thread at a time.
class RegistryKey {
  public:
    // `path` is the full path of a key, which need not exist. The platform layer outlives this.
    RegistryKey(ITalpl& platform, const WCHAR* path) : platform_(platform), record_(64)
    {
        HANDLE key = nullptr;
        const TALSTATUS status = platform.TalxOpenKey(path, TALX_KEY_READ, &key);
        if (!Failed(status))
            key_ = key;
        else if (Code(status) != kCodeNotFound)
            withoutKey_ = ReadResult::Unreadable;
    }
    ~RegistryKey()
    {
        if (key_)
            (void)platform_.TalxCloseKey(key_); // it was open
    }
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    explicit operator bool() const noexcept { return key_ != nullptr; }

    // Whether the value is set, whatever it is.
    [[nodiscard]] ReadResult Find(const WCHAR* name)
    {
        return Fetch([&](UINT32 room, UINT32* needed) {
            return platform_.TalxQueryValueKey(key_, name, record_.data(), room, needed);
        });
    }

    // A text, as UTF-8 and without its terminator.
    [[nodiscard]] ReadResult Text(const WCHAR* name, std::string& out)
    {
        if (const ReadResult found = Find(name, TALX_REG_SZ); found != ReadResult::Read)
            return found;
        std::u16string_view text = Units();
        while (text.ends_with(u'\0'))
            text.remove_suffix(1);
        std::optional<std::string> narrow = Narrow(text);
        if (!narrow)
            return ReadResult::Malformed;
        out = std::move(*narrow);
        return ReadResult::Read;
    }

    // A list of texts, as UTF-8.
    [[nodiscard]] ReadResult Texts(const WCHAR* name, std::vector<std::string>& out)
    {
        if (const ReadResult found = Find(name, TALX_REG_MULTI_SZ); found != ReadResult::Read)
            return found;
        std::vector<std::string> all;
        std::u16string_view rest = Units();
        while (!rest.empty() && rest.front() != u'\0') {
            const size_t end = std::min(rest.find(u'\0'), rest.size());
            std::optional<std::string> narrow = Narrow(rest.substr(0, end));
            if (!narrow)
                return ReadResult::Malformed;
            all.push_back(std::move(*narrow));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        out = std::move(all);
        return ReadResult::Read;
    }

    // A number of 32 or 64 bits; for the narrow form a larger one is of another type.
    [[nodiscard]] ReadResult Number(const WCHAR* name, UINT64& out)
    {
        if (const ReadResult found = Find(name); found != ReadResult::Read)
            return found;
        if (Info().ValueType == TALX_REG_UINT32 && Info().ValueLength == sizeof(UINT32))
            out = Value<UINT32>();
        else if (Info().ValueType == TALX_REG_UINT64 && Info().ValueLength == sizeof(UINT64))
            out = Value<UINT64>();
        else
            return ReadResult::OtherType;
        return ReadResult::Read;
    }
    [[nodiscard]] ReadResult Number(const WCHAR* name, UINT32& out)
    {
        UINT64 wide = 0;
        if (const ReadResult read = Number(name, wide); read != ReadResult::Read)
            return read;
        if (wide > UINT32_MAX)
            return ReadResult::OtherType;
        out = static_cast<UINT32>(wide);
        return ReadResult::Read;
    }

    // True or false; 1 or 0.
    [[nodiscard]] ReadResult Flag(const WCHAR* name, bool& out)
    {
        UINT32 number = 0;
        if (const ReadResult read = Number(name, number); read != ReadResult::Read)
            return read;
        if (number > 1)
            return ReadResult::OtherType;
        out = number == 1;
        return ReadResult::Read;
    }

    // What a value is made of, whatever its type (TALX_REG_…).
    [[nodiscard]] ReadResult Bytes(const WCHAR* name, UINT32& type, std::string& out)
    {
        if (const ReadResult found = Find(name); found != ReadResult::Read)
            return found;
        out.assign(Data(), Info().ValueLength);
        type = Info().ValueType;
        return ReadResult::Read;
    }

    // The name of the value at `index`, counted from 0 in the order of the file; Missing past the
    // last one.
    [[nodiscard]] ReadResult NameAt(UINT32 index, std::u16string& name)
    {
        const ReadResult found = Fetch([&](UINT32 room, UINT32* needed) {
            return platform_.TalxEnumerateValueKey(key_, index, record_.data(), room, needed);
        });
        if (found != ReadResult::Read)
            return found;
        name.assign(Info().KeyValueName, Info().KeyValueNameLength / sizeof(WCHAR));
        return ReadResult::Read;
    }

    // Likewise of the key right below this one.
    [[nodiscard]] ReadResult KeyAt(UINT32 index, std::u16string& name)
    {
        const ReadResult found = Fetch([&](UINT32 room, UINT32* needed) {
            return platform_.TalxEnumerateKey(key_, index, record_.data(), room, needed);
        });
        if (found != ReadResult::Read)
            return found;
        const auto& info = *reinterpret_cast<const TALX_KEY_INFORMATION*>(record_.data());
        name.assign(info.KeyName, info.KeyNameLength / sizeof(WCHAR));
        return ReadResult::Read;
    }

  private:
    static constexpr UINT32 kLargest = 2 * 1024 * 1024; // bytes; more than the registry holds

    // Fills the record by `ask`, which is told how many bytes there are and tells how many it
    // needs.
    template <class Ask> ReadResult Fetch(Ask ask)
    {
        if (!key_)
            return withoutKey_;
        for (;;) {
            const auto room = static_cast<UINT32>(record_.size() * sizeof(UINT64));
            UINT32 needed = 0;
            const TALSTATUS status = ask(room, &needed);
            if (!Failed(status))
                return ReadResult::Read;
            if (Code(status) == kCodeNotFound || Code(status) == kCodeNoMoreEntries)
                return ReadResult::Missing;
            if (Code(status) != kCodeBufferTooSmall || needed <= room || needed > kLargest)
                return ReadResult::Unreadable;
            record_.resize(needed / sizeof(UINT64) + 1);
        }
    }

    ReadResult Find(const WCHAR* name, UINT32 type)
    {
        const ReadResult found = Find(name);
        return found == ReadResult::Read && Info().ValueType != type ? ReadResult::OtherType
                                                                     : found;
    }

    const TALX_KEY_VALUE_INFORMATION& Info() const
    {
        return *reinterpret_cast<const TALX_KEY_VALUE_INFORMATION*>(record_.data());
    }
    const char* Data() const
    {
        return reinterpret_cast<const char*>(record_.data()) + Info().ValueOffset;
    }
    std::u16string_view Units() const
    {
        return {reinterpret_cast<const WCHAR*>(Data()), Info().ValueLength / sizeof(WCHAR)};
    }
    template <class T> T Value() const
    {
        T value;
        std::memcpy(&value, Data(), sizeof value);
        return value;
    }

    std::optional<std::string> Narrow(std::u16string_view text) const
    {
        std::string out(3 * text.size(), '\0'); // what one unit can become
        auto bytes = static_cast<UINT32>(out.size());
        if (Failed(platform_.TalxWideCharToMultiByte(
                kCodePageUtf8, text.data(), static_cast<UINT32>(text.size()), out.data(), &bytes)))
            return std::nullopt;
        out.resize(bytes);
        return out;
    }

    ITalpl& platform_;
    HANDLE key_ = nullptr;
    ReadResult withoutKey_ = ReadResult::Missing; // Unreadable: it could not be opened
    std::vector<UINT64> record_;                  // aligned for the record
};

} // namespace kest
