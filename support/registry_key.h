// SPDX-License-Identifier: Apache-2.0
//
// Reading settings in the module: an open registry key, and the records of its values.
#pragma once

#include <cstring>

#include "support/globals.h"
#include <kest/status.h>
#include <kest/talpl.h>

// Open as long as it lives.
class RegistryKey {
  public:
    RegistryKey() = default;
    ~RegistryKey()
    {
        if (key_)
            (void)pITalpl->TalxCloseKey(key_); // it was open
    }
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    // `path` is a full path. Once.
    [[nodiscard]] TALSTATUS Open(const WCHAR* path)
    {
        return pITalpl->TalxOpenKey(path, TALX_KEY_READ, &key_);
    }
    HANDLE Get() const { return key_; }

  private:
    HANDLE key_ = nullptr;
};

// The data of a value's record that was read into `size` bytes, and its length in bytes; null when
// the record says that it lies outside.
inline const char* ValueData(const char* record, UINT32 size, UINT32& length)
{
    TALX_KEY_VALUE_INFORMATION info;
    std::memcpy(&info, record, sizeof info);
    length = info.ValueLength;
    if (info.ValueOffset > size || length > size - info.ValueOffset)
        return nullptr;
    return record + info.ValueOffset;
}
