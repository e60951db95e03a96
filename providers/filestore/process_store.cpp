// SPDX-License-Identifier: Apache-2.0
//
// The store of this process, made from the registry.
#include "providers/filestore/process_store.h"

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/host_name.h"
#include "providers/filestore/platform.h"
#include "providers/filestore/posixfs.h"
#include "providers/filestore/purger.h"
#include "providers/filestore/sqlitemeta.h"

namespace filestore {

namespace {

constexpr WCHAR kStoreKey[] = u"Kest\\Configuration\\FileStore";
constexpr WCHAR kVolumesKey[] = u"Kest\\Configuration\\FileStore\\Volumes";

Store::Options ReadOptions()
{
    Store::Options options;
    options.now = SystemTime;
    std::string sync;
    if (ReadText(kStoreKey, u"Sync", &sync)) {
        if (sync == "none")
            options.sync = SyncLevel::None;
        else if (sync == "full")
            options.sync = SyncLevel::Full;
        else if (sync != "data")
            Log(kLogError, "'Sync' is \"" + sync +
                               "\"; expected \"none\", \"data\" or \"full\". Using \"data\"");
    }
    (void)ReadNumber(kStoreKey, u"Keep Deleted", &options.keepDeletedDays); // else the default
    (void)ReadNumber(kStoreKey, u"Upload Time", &options.uploadSeconds);    // likewise
    UINT32 keepFreeMiB = 256;
    UINT32 reserveKiB = 1024;
    (void)ReadNumber(kStoreKey, u"Keep Free", &keepFreeMiB);
    (void)ReadNumber(kStoreKey, u"Reserve", &reserveKiB);
    options.keepFreeBytes = UINT64{keepFreeMiB} << 20;
    options.reserveBytes = UINT64{reserveKiB} << 10;
    std::string address;
    if (ReadText(kStoreKey, u"Server Address", &address) &&
        !base::ParseIpv4Address(address, options.serverAddress))
        Log(kLogError,
            "'Server Address' is \"" + address + "\"; expected an IPv4 address. Using 127.0.0.1");
    return options;
}

std::vector<std::unique_ptr<Volume>> OpenVolumes(const Store::Options& options)
{
    std::vector<std::unique_ptr<Volume>> volumes;
    for (NamedText& setting : ReadTexts(kVolumesKey)) {
        if (!IsServableName(setting.name)) {
            Log(kLogError, "volume '" + setting.name + "' cannot be served: not a usable name");
            continue;
        }
        int error = 0;
        std::unique_ptr<FileSystem> fs = OpenPosixFileSystem(setting.value.c_str(), &error);
        if (!fs) {
            Log(kLogError, "volume '" + setting.name + "' cannot be served: '" + setting.value +
                               "': " + std::strerror(error));
            continue;
        }
        volumes.push_back(std::make_unique<Volume>(std::move(setting.name), std::move(fs),
                                                   options.sync, OpenSqliteMetadata));
    }
    return volumes;
}

} // namespace

Store& ProcessStore()
{
    // Never destroyed: opened objects may be released while the process ends.
    static Store* const store = [] {
        const Store::Options options = ReadOptions();
        Store* const made = new Store(OpenVolumes(options), options);
        made->SetPurger(std::make_unique<Purger>(*made));
        return made;
    }();
    // The thread ends before what it uses of the process does.
    static const struct Stop {
        ~Stop()
        {
            store->SetPurger(nullptr);
            for (const auto& volume : store->Volumes())
                if (volume->Meta())
                    volume->Meta()->Checkpoint();
        }
    } stop;
    return *store;
}

} // namespace filestore
