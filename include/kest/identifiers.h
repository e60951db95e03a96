// SPDX-License-Identifier: Apache-2.0
//
// Every class, interface, attribute and event identifier of the framework. The values are part of
// the binary contract and never change; a new version of something gets a new identifier.
#pragma once

#include <kest/types.h>

inline constexpr GUID IID_IUnknown = { // 00000000-0000-0000-c000-000000000046
    0x00000000,
    0x0000,
    0x0000,
    {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr GUID IID_IClassFactory = { // 00000001-0000-0000-c000-000000000046
    0x00000001,
    0x0000,
    0x0000,
    {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// Classes, modules, attributes, events.
inline constexpr GUID CLSID_KestDavHandler =
    { // b75879e6-ed91-474e-8738-628b16a63c3d: the WebDAV module's request handler
        0xB75879E6,
        0xED91,
        0x474E,
        {0x87, 0x38, 0x62, 0x8B, 0x16, 0xA6, 0x3C, 0x3D}};
inline constexpr GUID KESTDAV_MODULE_ID =
    { // a0329472-e163-4b3c-9153-f61fd7bfa1af: the WebDAV module, as it reports itself in ModuleInit
        0xA0329472,
        0xE163,
        0x4B3C,
        {0x91, 0x53, 0xF6, 0x1F, 0xD7, 0xBF, 0xA1, 0xAF}};
inline constexpr GUID CLSID_HadranTalpl = { // 8f9d0ca3-8fb8-4fc2-bab2-5a0de78a49af: platform layer
    0x8F9D0CA3,
    0x8FB8,
    0x4FC2,
    {0xBA, 0xB2, 0x5A, 0x0D, 0xE7, 0x8A, 0x49, 0xAF}};
inline constexpr GUID CLSID_KestSrv =
    { // 687ffb9b-54ab-4f3f-8049-b590738b066a: host server: IKestConfig, IKestSession
        0x687FFB9B,
        0x54AB,
        0x4F3F,
        {0x80, 0x49, 0xB5, 0x90, 0x73, 0x8B, 0x06, 0x6A}};
inline constexpr GUID CLSID_KestUtil = { // ba23d991-3ec2-425a-aa67-88aa17d21a41: host utilities
    0xBA23D991,
    0x3EC2,
    0x425A,
    {0xAA, 0x67, 0x88, 0xAA, 0x17, 0xD2, 0x1A, 0x41}};
inline constexpr GUID CLSID_EventMgr = { // c550c155-86e1-42a6-b11d-13d02881a121: host event manager
    0xC550C155,
    0x86E1,
    0x42A6,
    {0xB1, 0x1D, 0x13, 0xD0, 0x28, 0x81, 0xA1, 0x21}};
inline constexpr GUID CLSID_SecurityAttributeManager =
    { // bc145a04-b7c7-4271-9e95-50fe52a5ab74: session attribute service
        0xBC145A04,
        0xB7C7,
        0x4271,
        {0x9E, 0x95, 0x50, 0xFE, 0x52, 0xA5, 0xAB, 0x74}};
inline constexpr GUID CLSID_ObjectManagerDataStore =
    { // 0bf47b18-b946-4843-92b7-72b9e47a538c: per-session object store
        0x0BF47B18,
        0xB946,
        0x4843,
        {0x92, 0xB7, 0x72, 0xB9, 0xE4, 0x7A, 0x53, 0x8C}};
inline constexpr GUID CLSID_KestDigest = { // 69da5909-f3fc-4c89-807f-1be63416f43d: digests
    0x69DA5909,
    0xF3FC,
    0x4C89,
    {0x80, 0x7F, 0x1B, 0xE6, 0x34, 0x16, 0xF4, 0x3D}};
inline constexpr GUID CLSID_KestCallContext =
    { // 651309d6-bc96-4bec-b342-d2a5ea0ef4dd: the running call
        0x651309D6,
        0xBC96,
        0x4BEC,
        {0xB3, 0x42, 0xD2, 0xA5, 0xEA, 0x0E, 0xF4, 0xDD}};
inline constexpr GUID CLSID_Directory_1 =
    { // 6ccc27a9-8557-4670-aa54-4a43c04a866c: directory service
        0x6CCC27A9,
        0x8557,
        0x4670,
        {0xAA, 0x54, 0x4A, 0x43, 0xC0, 0x4A, 0x86, 0x6C}};
inline constexpr GUID CLSID_FileStore =
    { // b3ae2bf6-28bb-4dfc-8cb2-5ae85e2b16a6: storage provider over directories
        0xB3AE2BF6,
        0x28BB,
        0x4DFC,
        {0x8C, 0xB2, 0x5A, 0xE8, 0x5E, 0x2B, 0x16, 0xA6}};
inline constexpr GUID Global_Event_Class =
    { // 7d7a6d77-2f53-46fa-ad0c-99857730d685: process-wide events, see kEventConfigurationChanged
        0x7D7A6D77,
        0x2F53,
        0x46FA,
        {0xAD, 0x0C, 0x99, 0x85, 0x77, 0x30, 0xD6, 0x85}};
inline constexpr GUID KESTDAV_SESSION_ATTRIBUTE =
    { // cbbc52ac-0962-495b-927b-b29d78a7cd77: the WebDAV module's session attribute
        0xCBBC52AC,
        0x0962,
        0x495B,
        {0x92, 0x7B, 0xB2, 0x9D, 0x78, 0xA7, 0xCD, 0x77}};

// Interfaces.
inline constexpr GUID IID_IHadranTalpl_1 = { // 98791e2c-caf0-41a6-8bea-c7e493cfc57f
    0x98791E2C,
    0xCAF0,
    0x41A6,
    {0x8B, 0xEA, 0xC7, 0xE4, 0x93, 0xCF, 0xC5, 0x7F}};
inline constexpr GUID IID_TalplFaultInjection_1 = { // 15c4824e-ef39-456a-8c42-6b658e100782
    0x15C4824E,
    0xEF39,
    0x456A,
    {0x8C, 0x42, 0x6B, 0x65, 0x8E, 0x10, 0x07, 0x82}};
inline constexpr GUID IID_KestReq_2 = { // 89e5a4e8-0915-48f3-a72c-4463fc029437
    0x89E5A4E8,
    0x0915,
    0x48F3,
    {0xA7, 0x2C, 0x44, 0x63, 0xFC, 0x02, 0x94, 0x37}};
inline constexpr GUID IID_KestIO_3 = { // c308268c-5684-49ae-8841-46fbe71af784
    0xC308268C,
    0x5684,
    0x49AE,
    {0x88, 0x41, 0x46, 0xFB, 0xE7, 0x1A, 0xF7, 0x84}};
inline constexpr GUID IID_KestIO_5 = { // 9cdc798d-2891-4e51-9eab-00d85ede46bf
    0x9CDC798D,
    0x2891,
    0x4E51,
    {0x9E, 0xAB, 0x00, 0xD8, 0x5E, 0xDE, 0x46, 0xBF}};
inline constexpr GUID IID_KestConfig_1 = { // d5e1f827-0766-4c1a-ae95-a1e71ba528e6
    0xD5E1F827,
    0x0766,
    0x4C1A,
    {0xAE, 0x95, 0xA1, 0xE7, 0x1B, 0xA5, 0x28, 0xE6}};
inline constexpr GUID IID_KestSession_1 = { // a5324008-a896-4348-9c68-b3a20ea25d70
    0xA5324008,
    0xA896,
    0x4348,
    {0x9C, 0x68, 0xB3, 0xA2, 0x0E, 0xA2, 0x5D, 0x70}};
inline constexpr GUID IID_KestUtil_1 = { // dbef2baf-561b-4b4b-a72c-92050e60c1ea
    0xDBEF2BAF,
    0x561B,
    0x4B4B,
    {0xA7, 0x2C, 0x92, 0x05, 0x0E, 0x60, 0xC1, 0xEA}};
inline constexpr GUID IID_Event_1 = { // 8f8ded99-bfab-42c2-a208-b5c7eee07150
    0x8F8DED99,
    0xBFAB,
    0x42C2,
    {0xA2, 0x08, 0xB5, 0xC7, 0xEE, 0xE0, 0x71, 0x50}};
inline constexpr GUID IID_EventHandler_1 = { // b751f743-5e78-4330-8f1d-f9830b045928
    0xB751F743,
    0x5E78,
    0x4330,
    {0x8F, 0x1D, 0xF9, 0x83, 0x0B, 0x04, 0x59, 0x28}};
inline constexpr GUID IID_IPassiveContextAttribute_1 = { // 943c4792-5994-442d-8554-b56893bfed65
    0x943C4792,
    0x5994,
    0x442D,
    {0x85, 0x54, 0xB5, 0x68, 0x93, 0xBF, 0xED, 0x65}};
inline constexpr GUID IID_ISCObjectManager_1 = { // 119d7086-1847-49fd-8fda-8e5a89eb4893
    0x119D7086,
    0x1847,
    0x49FD,
    {0x8F, 0xDA, 0x8E, 0x5A, 0x89, 0xEB, 0x48, 0x93}};
inline constexpr GUID IID_KestDigest_1 = { // 29f7fed2-18c7-4c33-b6c7-05d2c5fde206
    0x29F7FED2,
    0x18C7,
    0x4C33,
    {0xB6, 0xC7, 0x05, 0xD2, 0xC5, 0xFD, 0xE2, 0x06}};
inline constexpr GUID IID_KestSendFile_1 = { // b8385915-b68e-4866-9a15-a2f746c5b058
    0xB8385915,
    0xB68E,
    0x4866,
    {0x9A, 0x15, 0xA2, 0xF7, 0x46, 0xC5, 0xB0, 0x58}};
inline constexpr GUID IID_KestCallContext_1 = { // 2912455c-49bd-4727-877e-3653af49016e
    0x2912455C,
    0x49BD,
    0x4727,
    {0x87, 0x7E, 0x36, 0x53, 0xAF, 0x49, 0x01, 0x6E}};
inline constexpr GUID IID_KestAccess_1 = { // 5cad71d4-43ae-42ec-92b4-f9319bc07047
    0x5CAD71D4,
    0x43AE,
    0x42EC,
    {0x92, 0xB4, 0xF9, 0x31, 0x9B, 0xC0, 0x70, 0x47}};
inline constexpr GUID IID_IDirectory_1 = { // 119478b0-2074-4816-bd94-0abe0261975b
    0x119478B0,
    0x2074,
    0x4816,
    {0xBD, 0x94, 0x0A, 0xBE, 0x02, 0x61, 0x97, 0x5B}};
inline constexpr GUID IID_IDirectoryObject_1 = { // 42ac4365-2d8b-4dec-affb-2a1f1ff39a54
    0x42AC4365,
    0x2D8B,
    0x4DEC,
    {0xAF, 0xFB, 0x2A, 0x1F, 0x1F, 0xF3, 0x9A, 0x54}};
inline constexpr GUID IID_IDmReadAttributeResults_1 = { // eb064e89-13d4-4a8d-b913-c9ee80988741
    0xEB064E89,
    0x13D4,
    0x4A8D,
    {0xB9, 0x13, 0xC9, 0xEE, 0x80, 0x98, 0x87, 0x41}};
inline constexpr GUID IID_KestDAV_1 = { // f035c4ea-7549-4dc7-970e-a38b035dc7a0
    0xF035C4EA,
    0x7549,
    0x4DC7,
    {0x97, 0x0E, 0xA3, 0x8B, 0x03, 0x5D, 0xC7, 0xA0}};
inline constexpr GUID IID_KestDAV_2 = { // 190fc512-1965-4c39-af0c-c39494f86b93
    0x190FC512,
    0x1965,
    0x4C39,
    {0xAF, 0x0C, 0xC3, 0x94, 0x94, 0xF8, 0x6B, 0x93}};
inline constexpr GUID IID_KestResource_1 = { // 2ee9220a-adc1-4ac0-8ae3-ceab3bb7621d
    0x2EE9220A,
    0xADC1,
    0x4AC0,
    {0x8A, 0xE3, 0xCE, 0xAB, 0x3B, 0xB7, 0x62, 0x1D}};
inline constexpr GUID IID_KestResource_2 = { // 239bbc6a-b54c-4b1a-b836-7d90e490a49f
    0x239BBC6A,
    0xB54C,
    0x4B1A,
    {0xB8, 0x36, 0x7D, 0x90, 0xE4, 0x90, 0xA4, 0x9F}};
inline constexpr GUID IID_KestCollection_1 = { // 0896ccdd-a740-4398-b739-73ae92621cc8
    0x0896CCDD,
    0xA740,
    0x4398,
    {0xB7, 0x39, 0x73, 0xAE, 0x92, 0x62, 0x1C, 0xC8}};
inline constexpr GUID IID_KestCollection_2 = { // 50c36ff1-448a-4def-a759-3bed8aa83826
    0x50C36FF1,
    0x448A,
    0x4DEF,
    {0xA7, 0x59, 0x3B, 0xED, 0x8A, 0xA8, 0x38, 0x26}};
inline constexpr GUID IID_KestDAV_3 = { // 3968049a-34db-47a6-a2cb-1e10f60a397b
    0x3968049A,
    0x34DB,
    0x47A6,
    {0xA2, 0xCB, 0x1E, 0x10, 0xF6, 0x0A, 0x39, 0x7B}};
inline constexpr GUID IID_KestResource_3 = { // a3860cc3-13a0-4698-940d-342eb1c41b12
    0xA3860CC3,
    0x13A0,
    0x4698,
    {0x94, 0x0D, 0x34, 0x2E, 0xB1, 0xC4, 0x1B, 0x12}};
inline constexpr GUID IID_KestContentFile_3 = { // 719642d8-fe5d-4608-8782-72b2b6c450b7
    0x719642D8,
    0xFE5D,
    0x4608,
    {0x87, 0x82, 0x72, 0xB2, 0xB6, 0xC4, 0x50, 0xB7}};
inline constexpr GUID IID_KestCollection_3 = { // ddfeb1a5-cda5-47d7-8e53-11985edabeaf
    0xDDFEB1A5,
    0xCDA5,
    0x47D7,
    {0x8E, 0x53, 0x11, 0x98, 0x5E, 0xDA, 0xBE, 0xAF}};
inline constexpr GUID IID_KestFailures_3 = { // c7c6efa9-f38b-489f-beca-bf978d59522d
    0xC7C6EFA9,
    0xF38B,
    0x489F,
    {0xBE, 0xCA, 0xBF, 0x97, 0x8D, 0x59, 0x52, 0x2D}};
inline constexpr GUID IID_KestUploads_3 = { // 052394f7-4639-4b10-b629-25169f166ed2
    0x052394F7,
    0x4639,
    0x4B10,
    {0xB6, 0x29, 0x25, 0x16, 0x9F, 0x16, 0x6E, 0xD2}};
inline constexpr GUID IID_KestInterimReply_1 = { // ef3ab78c-09a0-4944-87f6-4cd22a6356dc
    0xEF3AB78C,
    0x09A0,
    0x4944,
    {0x87, 0xF6, 0x4C, 0xD2, 0x2A, 0x63, 0x56, 0xDC}};

// The identifier that belongs to an interface, so that no call can pair the wrong two.
template <class I> struct IidOf;

struct IUnknown;
struct IClassFactory;
struct ITalpl;
struct ITalplFaultInjection;
struct IKestReq_2;
struct IKestIO_3;
struct IKestIO_5;
struct IKestConfig;
struct IKestSession;
struct IKestUtil;
struct IEvent;
struct IEventHandler;
struct ISA;
struct ISCOM;
struct IKestCallContext;
struct IKestAccess;
struct IKestDigest;
struct IKestSendFile;
struct IDirectory;
struct IDirectoryObject;
struct IReadAttrResults;
struct IKestDAV;
struct IKestDAV2;
struct IKestDAVResource;
struct IKestDAVResource2;
struct IKestDAVCollection;
struct IKestDAVCollection2;
struct IKestDAV3;
struct IKestDAVResource3;
struct IKestDAVContentFile3;
struct IKestDAVCollection3;
struct IKestDAVFailures3;
struct IKestDAVUploads3;
struct IKestInterimReply;

template <> struct IidOf<IUnknown> {
    static constexpr const GUID& value = IID_IUnknown;
};
template <> struct IidOf<IClassFactory> {
    static constexpr const GUID& value = IID_IClassFactory;
};
template <> struct IidOf<ITalpl> {
    static constexpr const GUID& value = IID_IHadranTalpl_1;
};
template <> struct IidOf<ITalplFaultInjection> {
    static constexpr const GUID& value = IID_TalplFaultInjection_1;
};
template <> struct IidOf<IKestReq_2> {
    static constexpr const GUID& value = IID_KestReq_2;
};
template <> struct IidOf<IKestIO_3> {
    static constexpr const GUID& value = IID_KestIO_3;
};
template <> struct IidOf<IKestIO_5> {
    static constexpr const GUID& value = IID_KestIO_5;
};
template <> struct IidOf<IKestConfig> {
    static constexpr const GUID& value = IID_KestConfig_1;
};
template <> struct IidOf<IKestSession> {
    static constexpr const GUID& value = IID_KestSession_1;
};
template <> struct IidOf<IKestUtil> {
    static constexpr const GUID& value = IID_KestUtil_1;
};
template <> struct IidOf<IEvent> {
    static constexpr const GUID& value = IID_Event_1;
};
template <> struct IidOf<IEventHandler> {
    static constexpr const GUID& value = IID_EventHandler_1;
};
template <> struct IidOf<ISA> {
    static constexpr const GUID& value = IID_IPassiveContextAttribute_1;
};
template <> struct IidOf<ISCOM> {
    static constexpr const GUID& value = IID_ISCObjectManager_1;
};
template <> struct IidOf<IKestCallContext> {
    static constexpr const GUID& value = IID_KestCallContext_1;
};
template <> struct IidOf<IKestAccess> {
    static constexpr const GUID& value = IID_KestAccess_1;
};
template <> struct IidOf<IKestDigest> {
    static constexpr const GUID& value = IID_KestDigest_1;
};
template <> struct IidOf<IKestSendFile> {
    static constexpr const GUID& value = IID_KestSendFile_1;
};
template <> struct IidOf<IDirectory> {
    static constexpr const GUID& value = IID_IDirectory_1;
};
template <> struct IidOf<IDirectoryObject> {
    static constexpr const GUID& value = IID_IDirectoryObject_1;
};
template <> struct IidOf<IReadAttrResults> {
    static constexpr const GUID& value = IID_IDmReadAttributeResults_1;
};
template <> struct IidOf<IKestDAV> {
    static constexpr const GUID& value = IID_KestDAV_1;
};
template <> struct IidOf<IKestDAV2> {
    static constexpr const GUID& value = IID_KestDAV_2;
};
template <> struct IidOf<IKestDAVResource> {
    static constexpr const GUID& value = IID_KestResource_1;
};
template <> struct IidOf<IKestDAVResource2> {
    static constexpr const GUID& value = IID_KestResource_2;
};
template <> struct IidOf<IKestDAVCollection> {
    static constexpr const GUID& value = IID_KestCollection_1;
};
template <> struct IidOf<IKestDAVCollection2> {
    static constexpr const GUID& value = IID_KestCollection_2;
};
template <> struct IidOf<IKestDAV3> {
    static constexpr const GUID& value = IID_KestDAV_3;
};
template <> struct IidOf<IKestDAVResource3> {
    static constexpr const GUID& value = IID_KestResource_3;
};
template <> struct IidOf<IKestDAVContentFile3> {
    static constexpr const GUID& value = IID_KestContentFile_3;
};
template <> struct IidOf<IKestDAVCollection3> {
    static constexpr const GUID& value = IID_KestCollection_3;
};
template <> struct IidOf<IKestDAVFailures3> {
    static constexpr const GUID& value = IID_KestFailures_3;
};
template <> struct IidOf<IKestDAVUploads3> {
    static constexpr const GUID& value = IID_KestUploads_3;
};
template <> struct IidOf<IKestInterimReply> {
    static constexpr const GUID& value = IID_KestInterimReply_1;
};
