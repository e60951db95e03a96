// SPDX-License-Identifier: Apache-2.0
//
// A request of every method.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fixture.h"

namespace standard_tests {

using Make = std::function<Request(const std::string&)>;

// Each method as it is asked for when it is meant to work, of any path.
inline std::vector<std::pair<std::string, Make>> AllMethods()
{
    const std::string update = "<D:propertyupdate xmlns:D=\"DAV:\"><D:set><D:prop><a/></D:prop>"
                               "</D:set></D:propertyupdate>";
    const std::string lock = "<D:lockinfo xmlns:D=\"DAV:\"><D:lockscope><D:shared/></D:lockscope>"
                             "<D:locktype><D:write/></D:locktype></D:lockinfo>";
    const std::string form = "application/x-www-form-urlencoded";
    return {
        {"OPTIONS", [](auto& path) { return Request(KestMethodOptions, path); }},
        {"GET", [](auto& path) { return Request(KestMethodGet, path); }},
        {"HEAD", [](auto& path) { return Request(KestMethodHead, path); }},
        {"POST",
         [=](auto& path) {
             return Request(KestMethodPost, path).Header("Content-Type", form).Body({"Sort=0"});
         }},
        {"PUT", [](auto& path) { return Request(KestMethodPut, path).Body({"x"}); }},
        {"PATCH",
         [](auto& path) {
             return Request(KestMethodPatch, path)
                 .Header("Content-Type", "application/x-sabredav-partialupdate")
                 .Header("X-Update-Range", "append")
                 .Body({"x"});
         }},
        {"PROPFIND",
         [](auto& path) { return Request(KestMethodPropFind, path).Header("Depth", "0"); }},
        {"PROPPATCH",
         [=](auto& path) { return Request(KestMethodPropPatch, path).Body({update}); }},
        {"MKCOL", [](auto& path) { return Request(KestMethodMkCol, path); }},
        {"COPY",
         [](auto& path) {
             return Request(KestMethodCopy, path)
                 .To("http://server.example:8080/Ferro/gen3/copied");
         }},
        {"MOVE", [](auto& path) { return Request(KestMethodMove, path).To("/Ferro/gen3/moved"); }},
        {"LOCK", [=](auto& path) { return Request(KestMethodLock, path).Body({lock}); }},
        {"UNLOCK",
         [](auto& path) {
             return Request(KestMethodUnlock, path).Header("Lock-Token", "<opaquelocktoken:a>");
         }},
        {"DELETE", [](auto& path) { return Request(KestMethodDelete, path); }},
    };
}

} // namespace standard_tests
