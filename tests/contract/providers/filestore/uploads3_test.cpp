// SPDX-License-Identifier: Apache-2.0
//
// Uploads that go on when their connection has broken, through the library.
#include "tests/contract/providers/filestore/third.h"

#include <atomic>
#include <thread>

using namespace filestore_test;

namespace {

class FileStoreUploads3 : public ThirdTest {
  protected:
    void SetUp() override
    {
        ThirdTest::SetUp();
        uploads_ = TearOff<IKestDAVUploads3>(third_);
        ASSERT_TRUE(uploads_);
    }

    struct Upload : DAV_UPLOAD {
        Upload() : DAV_UPLOAD{} { Size = sizeof(DAV_UPLOAD); }
        std::string NameText() const { return {Name, NameLength}; }
    };

    TALSTATUS Begin(std::string_view path, Upload* upload, const Given& given = Given(),
                    UINT64 length = kUploadLengthUnknown, std::string_view terms = "terms")
    {
        Wstr wide(path);
        const DAV_TEXT text = Text(terms);
        return uploads_->Begin(session_, &wide, length, &text, &given, nullptr, upload);
    }
    std::string Begun(std::string_view path, UINT64 length = kUploadLengthUnknown)
    {
        Upload upload;
        EXPECT_EQ(0u, Begin(path, &upload, Given(), length));
        return upload.NameText();
    }
    TALSTATUS Find(std::string_view path, const std::string& name, Upload* upload,
                   std::string* terms = nullptr)
    {
        Wstr wide(path);
        const DAV_TEXT text = Text(name);
        char room[kMostUploadTerms];
        UINT32 size = sizeof room;
        const TALSTATUS status =
            uploads_->Find(session_, &wide, &text, &size, terms ? room : nullptr, upload);
        if (terms && !Failed(status))
            terms->assign(room, size);
        return status;
    }
    UINT64 Offset(std::string_view path, const std::string& name)
    {
        Upload upload;
        return Failed(Find(path, name, &upload)) ? ~UINT64{0} : upload.Offset;
    }
    TALSTATUS Continue(std::string_view path, const std::string& name, UINT64 offset,
                       Ref<IKestDAVResource3>* content, UINT64 length = kUploadLengthUnknown,
                       const Given& given = Given())
    {
        Wstr wide(path);
        const DAV_TEXT text = Text(name);
        IKestDAVResource3* opened = nullptr;
        const TALSTATUS status =
            uploads_->Continue(session_, &wide, &text, offset, length, &given, &opened);
        *content = Ref<IKestDAVResource3>::Adopt(opened);
        return status;
    }
    TALSTATUS Append(std::string_view path, const std::string& name, UINT64 offset,
                     std::string_view text)
    {
        Ref<IKestDAVResource3> content;
        const TALSTATUS status = Continue(path, name, offset, &content);
        return Failed(status)
                   ? status
                   : content->Write(offset, static_cast<UINT32>(text.size()), text.data());
    }
    TALSTATUS Publish(std::string_view path, const std::string& name, UINT64 offset,
                      const Given& given = Given(), Told* told = nullptr)
    {
        Ref<IKestDAVResource3> content;
        Change change;
        const TALSTATUS status =
            Continue(path, name, offset, &content, kUploadLengthUnknown, given);
        return Failed(status) ? status : content->Publish(0, 0, told, &change);
    }
    TALSTATUS Cancel(std::string_view path, const std::string& name)
    {
        Wstr wide(path);
        const DAV_TEXT text = Text(name);
        return uploads_->Cancel(session_, &wide, &text);
    }

    Ref<IKestDAVUploads3> uploads_;
};

TEST_F(FileStoreUploads3, AreAFaceOfTheNamespace)
{
    EXPECT_TRUE(TearOff<IKestDAV3>(uploads_));
    EXPECT_TRUE(TearOff<IKestDAV2>(uploads_));
}

TEST_F(FileStoreUploads3, KeepWhatCameAndPublishAllOfIt)
{
    Upload upload;
    ASSERT_EQ(0u, Begin("/docs/a", &upload, Given(), 9, "the terms"));
    const std::string name = upload.NameText();
    EXPECT_EQ(32u, name.size());
    EXPECT_EQ(0u, upload.Offset);
    EXPECT_EQ(9u, upload.Length);
    EXPECT_EQ(86400u, upload.Lifetime);
    EXPECT_LT(1u << 20, upload.MostBytes);
    ASSERT_EQ(0u, Append("/docs/a", name, 0, "one "));
    ASSERT_EQ(0u, Append("/docs/a", name, 4, "two"));
    std::string terms;
    ASSERT_EQ(0u, Find("/docs/a", name, &upload, &terms));
    EXPECT_EQ(7u, upload.Offset);
    EXPECT_EQ(9u, upload.Length);
    EXPECT_EQ(0u, upload.Flags);
    EXPECT_EQ("the terms", terms);
    EXPECT_FALSE(std::filesystem::exists(Docs() / "a"));
    EXPECT_EQ(kCodeInvalidRequest, Code(Publish("/docs/a", name, 7))) << "not all is here";
    EXPECT_EQ(kCodeInvalidRequest, Code(Append("/docs/a", name, 7, "345"))) << "too much";
    ASSERT_EQ(0u, Append("/docs/a", name, 7, "!?"));
    ASSERT_EQ(0u, Publish("/docs/a", name, 9));
    EXPECT_EQ("one two!?", ReadFile(Docs() / "a"));
    ASSERT_EQ(0u, Find("/docs/a", name, &upload));
    EXPECT_EQ(kUploadComplete, upload.Flags);
    EXPECT_EQ(9u, upload.Offset);
    EXPECT_EQ(kCodeConflict, Code(Append("/docs/a", name, 9, "x")));
    ASSERT_EQ(0u, Cancel("/docs/a", name));
    EXPECT_EQ("one two!?", ReadFile(Docs() / "a"));
}

TEST_F(FileStoreUploads3, AreNothingToAnybodyElse)
{
    ScriptedRequest request;
    request.user = "ann";
    const RunningRequest running(request);
    const std::string name = Begun("/docs/a");
    ASSERT_EQ(0u, Append("/docs/a", name, 0, "hers"));
    request.user = "bob";
    Upload upload;
    EXPECT_EQ(kCodeNotFound, Code(Find("/docs/a", name, &upload)));
    EXPECT_EQ(kCodeNotFound, Code(Append("/docs/a", name, 4, "x")));
    EXPECT_EQ(kCodeNotFound, Code(Cancel("/docs/a", name)));
    request.user = "ann";
    EXPECT_EQ(4u, Offset("/docs/a", name));
    EXPECT_EQ(kCodeNotFound, Code(Find("/docs/b", name, &upload))) << "another target";
    EXPECT_EQ(kCodeNotFound, Code(Find("/other/a", name, &upload))) << "another volume";
    for (const std::string& bad : {std::string(), name + "0", name.substr(1), std::string(32, '/'),
                                   std::string("../tmp/") + name.substr(7), std::string(32, 'F')})
        EXPECT_EQ(kCodeNotFound, Code(Find("/docs/a", bad, &upload))) << bad;
}

TEST_F(FileStoreUploads3, AreTakenByTheLatestRequest)
{
    const std::string name = Begun("/docs/a");
    Ref<IKestDAVResource3> first, second;
    ASSERT_EQ(0u, Continue("/docs/a", name, 0, &first));
    ASSERT_EQ(0u, first->Write(0, 3, "one"));
    EXPECT_EQ(3u, Offset("/docs/a", name)) << "of a request that still adds to it";
    EXPECT_EQ(kCodeConflict, Code(first->Write(3, 3, "two")));
    ASSERT_EQ(0u, Continue("/docs/a", name, 3, &second));
    ASSERT_EQ(0u, second->Write(3, 3, "TWO"));
    Change change;
    EXPECT_EQ(kCodeConflict, Code(first->Publish(0, 0, nullptr, &change)));
    first = {};
    EXPECT_EQ(0u, second->Publish(0, 0, nullptr, &change));
    EXPECT_EQ("oneTWO", ReadFile(Docs() / "a"));
}

TEST_F(FileStoreUploads3, TakeContentAtTheEndAlone)
{
    const std::string name = Begun("/docs/a");
    Ref<IKestDAVResource3> content;
    Upload upload;
    ASSERT_EQ(0u, Continue("/docs/a", name, 0, &content));
    EXPECT_EQ(kCodeInvalidParameter, Code(content->Write(1, 1, "x")));
    ASSERT_EQ(0u, content->Write(0, 5, "hello"));
    EXPECT_EQ(kCodeInvalidParameter, Code(content->Write(4, 1, "x")));
    char buffer[8];
    UINT32 read = 0;
    ASSERT_EQ(0u, content->Read(1, 8, buffer, &read));
    EXPECT_EQ("ello", std::string(buffer, read));
    EXPECT_EQ(kCodeInvalidParameter, Code(content->SetLength(6)));
    ASSERT_EQ(0u, content->SetLength(2));
    content = {};
    EXPECT_EQ(2u, Offset("/docs/a", name));
    ASSERT_EQ(0u, Continue("/docs/a", name, 2, &content));
    EXPECT_EQ(kCodeInvalidParameter, Code(content->SetLength(1))) << "of an earlier request";
    Wstr path("/docs/a");
    EXPECT_EQ(kCodeInvalidParameter,
              Code(content->Open(session_, &path, kOpenRead, -1, nullptr, nullptr, nullptr)));
    EXPECT_EQ(kCodeConflict, Code(Append("/docs/a", name, 1, "x")));
    EXPECT_EQ(kCodeConflict, Code(Append("/docs/a", name, 3, "x")));
}

TEST_F(FileStoreUploads3, AreJudgedWhenTheyBeginAndWhenTheyArePublished)
{
    ASSERT_EQ(0u, Store("/docs/a", "old"));
    Upload upload;
    EXPECT_EQ(kCodePreconditionFailed, Code(Begin("/docs/a", &upload, Given().NoneMatch("*"))));
    EXPECT_EQ(kCodeConflict, Code(Begin("/docs/none/a", &upload)));
    EXPECT_EQ(kCodeAccessDenied, Code(Begin("/nowhere", &upload)));
    EXPECT_EQ(kCodeInvalidRequest, Code(Begin("/docs/a\x01", &upload)));
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    EXPECT_EQ(kCodeMethodNotAllowed, Code(Begin("/docs/d", &upload)));
    EXPECT_EQ(kCodeStorageFull, Code(Begin("/docs/a", &upload, Given(), UINT64{1} << 60)));
    const std::string name = Begun("/docs/a");
    ASSERT_EQ(0u, Append("/docs/a", name, 0, "new"));
    const std::string tag = Tag("/docs/a");
    ASSERT_EQ(0u, Store("/docs/a", "changed"));
    EXPECT_EQ(kCodePreconditionFailed, Code(Publish("/docs/a", name, 3, Given().Match(tag))));
    Lock held;
    ASSERT_EQ(0u, TakeLock("/docs/a", 0, &held));
    EXPECT_EQ(kCodeLocked, Code(Begin("/docs/a", &upload)));
    Told told;
    EXPECT_EQ(kCodeLocked, Code(Publish("/docs/a", name, 3, Given(), &told)));
    EXPECT_EQ(1u, told.paths.count("/docs/a"));
    EXPECT_EQ("changed", ReadFile(Docs() / "a"));
    EXPECT_EQ(3u, Offset("/docs/a", name)) << "still there";
    ASSERT_EQ(0u, Publish("/docs/a", name, 3, Given().Token(held.token)));
    EXPECT_EQ("new", ReadFile(Docs() / "a"));
    EXPECT_EQ(0u, Unlock("/docs/a", held.token));
}

TEST_F(FileStoreUploads3, RecordALengthThatIsToldLater)
{
    const std::string name = Begun("/docs/a");
    Ref<IKestDAVResource3> content;
    Upload upload;
    ASSERT_EQ(0u, Append("/docs/a", name, 0, "12345"));
    EXPECT_EQ(kCodeInvalidRequest, Code(Continue("/docs/a", name, 5, &content, 4)));
    ASSERT_EQ(0u, Continue("/docs/a", name, 5, &content, 8));
    content = {};
    ASSERT_EQ(0u, Find("/docs/a", name, &upload));
    EXPECT_EQ(8u, upload.Length);
    EXPECT_EQ(kCodeInvalidRequest, Code(Continue("/docs/a", name, 5, &content, 9)));
}

TEST_F(FileStoreUploads3, RefuseArgumentsThatMakeNoSense)
{
    Wstr path("/docs/a");
    Upload upload;
    const DAV_TEXT terms = Text("x"), tooLong = {"x", kMostUploadTerms + 1};
    Ref<IKestDAVResource3> content;
    EXPECT_EQ(kCodeInvalidParameter,
              Code(uploads_->Begin(session_, &path, 0, nullptr, nullptr, nullptr, &upload)));
    EXPECT_EQ(kCodeInvalidParameter,
              Code(uploads_->Begin(session_, &path, 0, &tooLong, nullptr, nullptr, &upload)));
    EXPECT_EQ(kCodeInvalidParameter,
              Code(uploads_->Begin(session_, &path, 0, &terms, nullptr, nullptr, nullptr)));
    EXPECT_EQ(kCodeInvalidParameter, Code(uploads_->GetLimits(session_, &path, nullptr)));
    const std::string name = Begun("/docs/a");
    const DAV_TEXT text = Text(name);
    char room[2];
    UINT32 size = sizeof room;
    EXPECT_EQ(kCodeBufferTooSmall,
              Code(uploads_->Find(session_, &path, &text, &size, room, &upload)));
    EXPECT_EQ(kCodeInvalidParameter,
              Code(uploads_->Continue(session_, &path, &text, 0, 0, nullptr, nullptr)));
    EXPECT_EQ(kCodeNotFound, Code(uploads_->Cancel(session_, &path, nullptr)));
}

TEST_F(FileStoreUploads3, OfManyThatContinueAtOnceOneDoes)
{
    const std::string name = Begun("/docs/a");
    std::atomic<int> succeeded{0};
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&, i] {
                const std::string text(100'000, static_cast<char>('a' + i));
                if (!Failed(Append("/docs/a", name, 0, text)))
                    ++succeeded;
            });
    }
    EXPECT_EQ(100'000u, Offset("/docs/a", name));
    ASSERT_EQ(0u, Publish("/docs/a", name, 100'000));
    const std::string content = ReadFile(Docs() / "a");
    EXPECT_EQ(std::string(100'000, content[0]), content);
    EXPECT_EQ(1, succeeded);
}

} // namespace
