// SPDX-License-Identifier: Apache-2.0
//
// The layout of every record of the contract, pinned: whoever builds one side with other packing or
// alignment does not compile. One source file of each library includes it.
#pragma once

#include <kest/dav/records.h>
#include <kest/dav/records_3.h>
#include <kest/host/attributes.h>
#include <kest/host/call_context.h>
#include <kest/host/interim_reply.h>
#include <kest/talpl.h>
#include <kest/types.h>

static_assert(sizeof(WCHAR) == 2);
static_assert(sizeof(STRING) == 16 && offsetof(STRING, MaximumLength) == 2 &&
              offsetof(STRING, Buffer) == 8);
static_assert(sizeof(UNICODE_STRING) == 16 && offsetof(UNICODE_STRING, MaximumLength) == 2 &&
              offsetof(UNICODE_STRING, Buffer) == 8);
static_assert(sizeof(GUID) == 16 && offsetof(GUID, Data2) == 4 && offsetof(GUID, Data3) == 6 &&
              offsetof(GUID, Data4) == 8);
static_assert(sizeof(SCHANDLE) == 16 && offsetof(SCHANDLE, hId) == 8);
static_assert(sizeof(LIST_ENTRY) == 16 && offsetof(LIST_ENTRY, Blink) == 8);
static_assert(sizeof(KEST_LOCATION_ACCESS) == 4);

static_assert(sizeof(TALX_KEY_INFORMATION) == 24 &&
              offsetof(TALX_KEY_INFORMATION, LastWriteTime) == 0 &&
              offsetof(TALX_KEY_INFORMATION, Reserved) == 8 &&
              offsetof(TALX_KEY_INFORMATION, KeyNameLength) == 12 &&
              offsetof(TALX_KEY_INFORMATION, KeyName) == 16);
static_assert(sizeof(TALX_KEY_VALUE_INFORMATION) == 24 &&
              offsetof(TALX_KEY_VALUE_INFORMATION, Reserved) == 0 &&
              offsetof(TALX_KEY_VALUE_INFORMATION, ValueType) == 4 &&
              offsetof(TALX_KEY_VALUE_INFORMATION, ValueOffset) == 8 &&
              offsetof(TALX_KEY_VALUE_INFORMATION, ValueLength) == 12 &&
              offsetof(TALX_KEY_VALUE_INFORMATION, KeyValueNameLength) == 16 &&
              offsetof(TALX_KEY_VALUE_INFORMATION, KeyValueName) == 20);
static_assert(sizeof(TALPL_STATISTICS) == 48);

static_assert(sizeof(KEST_CONDITIONS) == 48 && offsetof(KEST_CONDITIONS, NoneMatch) == 16 &&
              offsetof(KEST_CONDITIONS, UnmodifiedSince) == 32 &&
              offsetof(KEST_CONDITIONS, MayReplace) == 40);
static_assert(sizeof(KEST_HEADER_LINE) == 32 && offsetof(KEST_HEADER_LINE, Value) == 16);
static_assert(sizeof(Attribute) == 24 && offsetof(Attribute, pData) == 16);

static_assert(sizeof(DAV_LOCK_2) == 296 && offsetof(DAV_LOCK_2, NextEntryOffset) == 0 &&
              offsetof(DAV_LOCK_2, Type) == 4 && offsetof(DAV_LOCK_2, Scope) == 8 &&
              offsetof(DAV_LOCK_2, Depth) == 12 && offsetof(DAV_LOCK_2, Timeout) == 16 &&
              offsetof(DAV_LOCK_2, OwnerLength) == 24 && offsetof(DAV_LOCK_2, Owner) == 28 &&
              offsetof(DAV_LOCK_2, TokenLength) == 288 && offsetof(DAV_LOCK_2, Token) == 292);
static_assert(sizeof(DAV_NAMED_PROPERTY) == 20 &&
              offsetof(DAV_NAMED_PROPERTY, NextEntryOffset) == 0 &&
              offsetof(DAV_NAMED_PROPERTY, NameLength) == 4 &&
              offsetof(DAV_NAMED_PROPERTY, NameOffset) == 8 &&
              offsetof(DAV_NAMED_PROPERTY, ValueLength) == 12 &&
              offsetof(DAV_NAMED_PROPERTY, Value) == 16);
static_assert(sizeof(DAV_ETAG) == 16);
static_assert(sizeof(DAV_MULTI_STATUS) == 16 && offsetof(DAV_MULTI_STATUS, NextEntryOffset) == 0 &&
              offsetof(DAV_MULTI_STATUS, status) == 4 &&
              offsetof(DAV_MULTI_STATUS, ObjectLength) == 8 &&
              offsetof(DAV_MULTI_STATUS, Object) == 12);
static_assert(sizeof(DAV_COMMON_ENUM) == 64 && offsetof(DAV_COMMON_ENUM, NextEntryOffset) == 0 &&
              offsetof(DAV_COMMON_ENUM, Type) == 4 && offsetof(DAV_COMMON_ENUM, Attributes) == 8 &&
              offsetof(DAV_COMMON_ENUM, CreationDate) == 16 &&
              offsetof(DAV_COMMON_ENUM, ModificationDate) == 24 &&
              offsetof(DAV_COMMON_ENUM, ResourceSize) == 32 &&
              offsetof(DAV_COMMON_ENUM, State) == 40 &&
              offsetof(DAV_COMMON_ENUM, URILength) == 44 && offsetof(DAV_COMMON_ENUM, pURI) == 48 &&
              offsetof(DAV_COMMON_ENUM, DisplayNameLength) == 56 &&
              offsetof(DAV_COMMON_ENUM, DisplayName) == 60);
static_assert(sizeof(DAV_DELETED_ENTRY) == 88 && offsetof(DAV_DELETED_ENTRY, FileID) == 0 &&
              offsetof(DAV_DELETED_ENTRY, DeleteTime) == 8 &&
              offsetof(DAV_DELETED_ENTRY, DeletorID) == 16 &&
              offsetof(DAV_DELETED_ENTRY, Enum) == 24);
static_assert(sizeof(DAV_LOCK_PLACE) == 16 && offsetof(DAV_LOCK_PLACE, Volume) == 0 &&
              offsetof(DAV_LOCK_PLACE, Lock) == 8);
static_assert(sizeof(DAV_LOCK_INFO) == 40 && offsetof(DAV_LOCK_INFO, Timeout) == 0 &&
              offsetof(DAV_LOCK_INFO, Scope) == 8 && offsetof(DAV_LOCK_INFO, Type) == 12 &&
              offsetof(DAV_LOCK_INFO, Depth) == 16 && offsetof(DAV_LOCK_INFO, TokenLength) == 20 &&
              offsetof(DAV_LOCK_INFO, PathLength) == 24 &&
              offsetof(DAV_LOCK_INFO, CreatorLength) == 28 &&
              offsetof(DAV_LOCK_INFO, OwnerLength) == 32 && offsetof(DAV_LOCK_INFO, Text) == 36);
static_assert(sizeof(DAV_REVERSE_LOOKUP) == 56 && offsetof(DAV_REVERSE_LOOKUP, Header) == 0 &&
              offsetof(DAV_REVERSE_LOOKUP, SockaddrLen) == 16 &&
              offsetof(DAV_REVERSE_LOOKUP, Sockaddr) == 20 &&
              offsetof(DAV_REVERSE_LOOKUP, DirPath) == 52);

static_assert(sizeof(DAV_TEXT) == 16 && offsetof(DAV_TEXT, Length) == 8);
static_assert(sizeof(DAV_TAG) == 64 && offsetof(DAV_TAG, Text) == 4);
static_assert(sizeof(DAV_OBJECT_INFO) == 104 && offsetof(DAV_OBJECT_INFO, Type) == 4 &&
              offsetof(DAV_OBJECT_INFO, Attributes) == 8 &&
              offsetof(DAV_OBJECT_INFO, Flags) == 12 &&
              offsetof(DAV_OBJECT_INFO, ResourceSize) == 16 &&
              offsetof(DAV_OBJECT_INFO, CreationDate) == 24 &&
              offsetof(DAV_OBJECT_INFO, ModificationDate) == 32 &&
              offsetof(DAV_OBJECT_INFO, Tag) == 40);
static_assert(sizeof(DAV_MEMBER) == 120 && offsetof(DAV_MEMBER, NameLength) == 4 &&
              offsetof(DAV_MEMBER, Info) == 8 && offsetof(DAV_MEMBER, Name) == 112);
static_assert(sizeof(DAV_IF_CONDITION) == 24 && offsetof(DAV_IF_CONDITION, Negated) == 4 &&
              offsetof(DAV_IF_CONDITION, Value) == 8);
static_assert(sizeof(DAV_IF_LIST) == 32 && offsetof(DAV_IF_LIST, Conditions) == 16 &&
              offsetof(DAV_IF_LIST, Count) == 24);
static_assert(sizeof(DAV_PRECONDITIONS) == 72 && offsetof(DAV_PRECONDITIONS, IfCount) == 4 &&
              offsetof(DAV_PRECONDITIONS, TokenCount) == 8 &&
              offsetof(DAV_PRECONDITIONS, If) == 16 && offsetof(DAV_PRECONDITIONS, Tokens) == 24 &&
              offsetof(DAV_PRECONDITIONS, Match) == 32 &&
              offsetof(DAV_PRECONDITIONS, NoneMatch) == 48 &&
              offsetof(DAV_PRECONDITIONS, UnmodifiedSince) == 64);
static_assert(sizeof(DAV_CHANGE) == 112 && offsetof(DAV_CHANGE, Outcome) == 4 &&
              offsetof(DAV_CHANGE, Info) == 8);
static_assert(sizeof(DAV_PROPERTY) == 24 && offsetof(DAV_PROPERTY, NamespaceLength) == 4 &&
              offsetof(DAV_PROPERTY, NameLength) == 8 &&
              offsetof(DAV_PROPERTY, ValueLength) == 12 && offsetof(DAV_PROPERTY, Text) == 16);
static_assert(sizeof(DAV_PROPERTY_CHANGE) == 72 && offsetof(DAV_PROPERTY_CHANGE, Kind) == 4 &&
              offsetof(DAV_PROPERTY_CHANGE, Namespace) == 8 &&
              offsetof(DAV_PROPERTY_CHANGE, Name) == 24 &&
              offsetof(DAV_PROPERTY_CHANGE, Value) == 40 &&
              offsetof(DAV_PROPERTY_CHANGE, Number) == 56 &&
              offsetof(DAV_PROPERTY_CHANGE, Status) == 64);
static_assert(sizeof(DAV_LOCK_REQUEST) == 40 && offsetof(DAV_LOCK_REQUEST, Scope) == 4 &&
              offsetof(DAV_LOCK_REQUEST, Type) == 8 && offsetof(DAV_LOCK_REQUEST, Depth) == 12 &&
              offsetof(DAV_LOCK_REQUEST, Timeout) == 16 && offsetof(DAV_LOCK_REQUEST, Owner) == 24);
static_assert(sizeof(DAV_LOCK_INFO_3) == 40 && offsetof(DAV_LOCK_INFO_3, Scope) == 4 &&
              offsetof(DAV_LOCK_INFO_3, Type) == 8 && offsetof(DAV_LOCK_INFO_3, Depth) == 12 &&
              offsetof(DAV_LOCK_INFO_3, Timeout) == 16 &&
              offsetof(DAV_LOCK_INFO_3, TokenLength) == 24 &&
              offsetof(DAV_LOCK_INFO_3, OwnerLength) == 28 &&
              offsetof(DAV_LOCK_INFO_3, RootLength) == 32 && offsetof(DAV_LOCK_INFO_3, Text) == 36);
static_assert(sizeof(DAV_QUOTA) == 24 && offsetof(DAV_QUOTA, Used) == 8 &&
              offsetof(DAV_QUOTA, Available) == 16);
static_assert(sizeof(DAV_UPLOAD) == 104 && offsetof(DAV_UPLOAD, Flags) == 4 &&
              offsetof(DAV_UPLOAD, Offset) == 8 && offsetof(DAV_UPLOAD, Length) == 16 &&
              offsetof(DAV_UPLOAD, MostBytes) == 24 && offsetof(DAV_UPLOAD, Lifetime) == 32 &&
              offsetof(DAV_UPLOAD, NameLength) == 40 && offsetof(DAV_UPLOAD, Name) == 44);
