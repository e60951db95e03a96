// SPDX-License-Identifier: Apache-2.0
//
// The numbers of the contract: who was built apart from this header must mean the same by them.
#include <gtest/gtest.h>

#include <kest/dav.h>
#include <kest/host.h>
#include <kest/io.h>
#include <kest/status.h>
#include <kest/talpl.h>
#include <kest/types.h>

namespace {

struct Row {
    const char* name;
    UINT32 value;
    UINT32 expected;
};

constexpr Row kNumbers[] = {
    {"KestAccessAnonymous", KestAccessAnonymous, 0},
    {"KestAccessUser", KestAccessUser, 1},
    {"KestAccessAdmin", KestAccessAdmin, 2},
    {"KestAccessProxy", KestAccessProxy, 3},
    {"KestAccessUserOptional", KestAccessUserOptional, 4},
    {"TALX_REG_BINARY", TALX_REG_BINARY, 0},
    {"TALX_REG_UINT32", TALX_REG_UINT32, 1},
    {"TALX_REG_SZ", TALX_REG_SZ, 2},
    {"TALX_REG_MULTI_SZ", TALX_REG_MULTI_SZ, 3},
    {"TALX_REG_UINT64", TALX_REG_UINT64, 4},
    {"TALX_KEY_READ", TALX_KEY_READ, 0},
    {"TALX_KEY_WRITE", TALX_KEY_WRITE, 1},
    {"TALX_KEY_ALL_ACCESS", TALX_KEY_ALL_ACCESS, 2},
    {"Resource", Resource, 0},
    {"Collection", Collection, 1},
    {"Read", Read, 0},
    {"Write", Write, 1},
    {"Exclusive", Exclusive, 0},
    {"Shared", Shared, 1},
    {"kEventConfigurationChanged", kEventConfigurationChanged, 1},
    {"KestMethodGet", KestMethodGet, 0},
    {"KestMethodPut", KestMethodPut, 1},
    {"KestMethodPost", KestMethodPost, 2},
    {"KestMethodDelete", KestMethodDelete, 3},
    {"KestMethodOptions", KestMethodOptions, 5},
    {"KestMethodPropFind", KestMethodPropFind, 8},
    {"KestMethodPropPatch", KestMethodPropPatch, 9},
    {"KestMethodMkCol", KestMethodMkCol, 10},
    {"KestMethodCopy", KestMethodCopy, 11},
    {"KestMethodMove", KestMethodMove, 12},
    {"KestMethodLock", KestMethodLock, 13},
    {"KestMethodUnlock", KestMethodUnlock, 14},
    {"KestMethodHead", KestMethodHead, 27},
    {"TAL_STATUS_SUCCESS", TAL_STATUS_SUCCESS, 0},
    {"TAL_STATUS_UNSUCCESSFUL", TAL_STATUS_UNSUCCESSFUL, 0xC7BE0001},
    {"TAL_STATUS_NO_INTERFACE", TAL_STATUS_NO_INTERFACE, 0xC7BE0002},
    {"TAL_STATUS_INVALID_PARAMETER", TAL_STATUS_INVALID_PARAMETER, 0xC7BE0004},
    {"TAL_STATUS_INSUFFICIENT_RESOURCES", TAL_STATUS_INSUFFICIENT_RESOURCES, 0xC7BE0005},
    {"TAL_STATUS_ACCESS_DENIED", TAL_STATUS_ACCESS_DENIED, 0xC7BE0006},
    {"TAL_STATUS_BUFFER_TOO_SMALL", TAL_STATUS_BUFFER_TOO_SMALL, 0xC7BE0007},
    {"TAL_STATUS_END_OF_FILE", TAL_STATUS_END_OF_FILE, 0xC7BE0008},
    {"TAL_STATUS_NOT_FOUND", TAL_STATUS_NOT_FOUND, 0xC7BE000B},
    {"TAL_STATUS_OPEN_FAILED", TAL_STATUS_OPEN_FAILED, 0xC7BE000F},
    {"TAL_STATUS_INVALID_REQUEST", TAL_STATUS_INVALID_REQUEST, 0xC7BE0010},
    {"TAL_STATUS_OBJECT_EXISTS", TAL_STATUS_OBJECT_EXISTS, 0xC7BE0016},
    {"TAL_STATUS_NOT_SUPPORTED", TAL_STATUS_NOT_SUPPORTED, 0xC7BE001C},
    {"TAL_STATUS_CONFLICT", TAL_STATUS_CONFLICT, 0xC7BE0021},
    {"TAL_STATUS_NAME_TOO_LONG", TAL_STATUS_NAME_TOO_LONG, 0xC7BE0026},
    {"TAL_STATUS_INFO_END_OF_FILE", TAL_STATUS_INFO_END_OF_FILE, 0x47BE0008},
};

TEST(Values, AreTheContracts)
{
    for (const Row& row : kNumbers)
        EXPECT_EQ(row.value, row.expected) << row.name;
}

} // namespace
