// Documents bound to files and texts: what is read, when something is written, and what is left alone.
#include <ZKQ_general.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <vector>

#include "support/error_text.h"
#include "support/heap.h"
#include "support/paths.h"
#include "support/temp_dir.h"
#include "support/working_dir.h"
#include "support/xml_handle.h"

namespace {

using support::ReadFile;
using support::TempDir;
using support::WriteFile;
using support::XmlHandle;

constexpr int kBadHandle = 9;
constexpr int kBadPath = 20;
constexpr int kExternalError = -2;
constexpr int kTooLong = -9;

char g_sentinel;

/// What opening a file gives; a handle that a failure has touched is a failure of the test.
int OpenResult(const char* file, int mode)
{
    void* handle = &g_sentinel;
    const int error = WQXXMLH_Open(file, mode, &handle);
    if (error == 0) {
        WQXXMLH_Close(handle);
    } else {
        EXPECT_EQ(handle, &g_sentinel) << file;
    }
    return error;
}

int OpenTextResult(const char* text, int mode)
{
    void* handle = &g_sentinel;
    const int error = WQXXMLH_Open2(text, mode, &handle);
    if (error == 0) {
        WQXXMLH_Close(handle);
    } else {
        EXPECT_EQ(handle, &g_sentinel) << text;
    }
    return error;
}

TEST(XmlHandleOpen, RefusesBadArguments)
{
    for (const int mode : {0, 1, -1}) {
        EXPECT_EQ(OpenResult(nullptr, mode), EINVAL);
        EXPECT_EQ(OpenResult("", mode), EINVAL);
        EXPECT_EQ(WQXXMLH_Open("file.xml", mode, nullptr), EINVAL);
        EXPECT_FALSE(support::Exists("file.xml"));
        EXPECT_EQ(WQXXMLH_Open(nullptr, mode, nullptr), EINVAL);
    }
}

TEST(XmlHandleOpen, TakesNamesUpTo299Bytes)
{
    const TempDir dir;
    const support::WorkingDir working(dir.Path());
    std::string longest = std::string("./") + std::string(200, 'd');
    mkdir(longest.c_str(), 0777);
    longest += "/" + std::string(299 - longest.size() - 1, 'f');
    ASSERT_EQ(longest.size(), 299u);
    EXPECT_EQ(OpenResult(longest.c_str(), 0), kExternalError);
    EXPECT_EQ(OpenResult(longest.c_str(), 1), 0);
    EXPECT_TRUE(support::Exists(longest));
    {
        const XmlHandle handle = XmlHandle::Of(longest);
        EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "a", "1"), 0);
    }
    EXPECT_EQ(ReadFile(longest), "<r>\n  <a>1</a>\n</r>\n");
    for (const int mode : {0, 1}) {
        EXPECT_EQ(OpenResult((longest + "f").c_str(), mode), ENOMEM);
        EXPECT_EQ(OpenResult(std::string(100000, 'f').c_str(), mode), ENOMEM);
    }
    EXPECT_FALSE(support::Exists(longest + "f"));
}

TEST(XmlHandleOpen, ToReadNeedsAReadableFile)
{
    const TempDir dir;
    EXPECT_EQ(OpenResult(dir.File("none.xml").c_str(), 0), kExternalError);
    EXPECT_STREQ(WQXXMLH_Misc_GetExternalError(), strerror(ENOENT));
    EXPECT_EQ(support::ErrorText(), strerror(ENOENT));
    EXPECT_FALSE(support::Exists(dir.File("none.xml")));
    char text[256];
    EXPECT_STREQ(WQXXMLH_GetErrorInfo(kExternalError, text), strerror(ENOENT));

    WQXXMLH_Misc_SetExternalError("before");
    EXPECT_EQ(OpenResult(dir.Path().c_str(), 0), kExternalError);
    EXPECT_EQ(support::ErrorText(), WQXXMLH_Misc_GetExternalError());
    EXPECT_STRNE(WQXXMLH_Misc_GetExternalError(), "before");

    WriteFile(dir.File("file"), "x");
    EXPECT_EQ(OpenResult(dir.File("file/none.xml").c_str(), 0), kExternalError);
}

TEST(XmlHandleOpen, ToReadRefusesAnEmptyFile)
{
    const TempDir dir;
    WriteFile(dir.File("empty.xml"), "");
    EXPECT_EQ(OpenResult(dir.File("empty.xml").c_str(), 0), EINVAL);
    WriteFile(dir.File("nul.xml"), std::string("\0<r/>", 5));
    EXPECT_EQ(OpenResult(dir.File("nul.xml").c_str(), 0), EINVAL) << "the text ends at its NUL";
}

TEST(XmlHandleOpen, OtherBytesAreAnEmptyDocument)
{
    const TempDir dir;
    for (const std::string content : {"   \n", "no markup", "<!DOCTYPE r><r/>", "\x1f\x8b\x08", "<", "</r>"}) {
        WriteFile(dir.File("f"), content);
        for (const int mode : {0, 1}) {
            XmlHandle handle = XmlHandle::Of(dir.File("f"), mode);
            EXPECT_EQ(handle.Value("/r"), "(2)") << content;
            handle.Close();
            EXPECT_EQ(ReadFile(dir.File("f")), content);
        }
        XmlHandle handle = XmlHandle::Of(dir.File("f"));
        EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "a", "1"), 0);
        EXPECT_EQ(ReadFile(dir.File("f")), content);
        handle.Close();
        EXPECT_EQ(ReadFile(dir.File("f")), "<r>\n  <a>1</a>\n</r>\n") << content;
    }
}

TEST(XmlHandleOpen, ToWriteMakesAMissingFileAtOnce)
{
    const TempDir dir;
    const support::Umask mask(027);
    XmlHandle handle = XmlHandle::Of(dir.File("new.xml"));
    EXPECT_TRUE(support::Exists(dir.File("new.xml")));
    EXPECT_EQ(ReadFile(dir.File("new.xml")), "");
    EXPECT_EQ(support::Mode(dir.File("new.xml")), 0640u);
    EXPECT_EQ(handle.Value("/cfg"), "(2)");
    handle.Close();
    EXPECT_EQ(ReadFile(dir.File("new.xml")), "");

    handle = XmlHandle::Of(dir.File("new.xml"));
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/cfg/x", "n", "v"), 0);
    EXPECT_EQ(ReadFile(dir.File("new.xml")), "") << "only closing writes";
    handle.Close();
    EXPECT_EQ(ReadFile(dir.File("new.xml")), "<cfg>\n  <x>\n    <n>v</n>\n  </x>\n</cfg>\n");
}

TEST(XmlHandleOpen, ToWriteTellsWhyAFileCannotBeMade)
{
    const TempDir dir;
    WriteFile(dir.File("file"), "x");
    EXPECT_EQ(OpenResult(dir.File("no/such/dir.xml").c_str(), 1), ENOENT);
    EXPECT_EQ(OpenResult(dir.File("file/new.xml").c_str(), 1), ENOTDIR);
    EXPECT_EQ(OpenResult(dir.Path().c_str(), 1), EISDIR);
    EXPECT_EQ(ReadFile(dir.File("file")), "x");
}

/// Another user's eyes for a while.
class AsNobody {
public:
    AsNobody() : isRoot_(geteuid() == 0)
    {
        constexpr uid_t nobody = 65534;
        if (isRoot_) {
            EXPECT_EQ(seteuid(nobody), 0);
        }
    }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;
    ~AsNobody()
    {
        if (isRoot_) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }

private:
    bool isRoot_;
};

TEST(XmlHandleOpen, ToWriteEmptiesWhatCannotBeRead)
{
    const TempDir dir;
    const support::WorkingDir working(dir.Path()); // which another user may not be able to reach by its path
    chmod(".", 0755);
    WriteFile("dark.xml", "<r>secret</r>");
    WriteFile("closed.xml", "<r>secret</r>");
    if (geteuid() == 0) {
        ASSERT_EQ(chown("dark.xml", 65534, 65534), 0);
    }
    chmod("dark.xml", 0200);
    chmod("closed.xml", 0);
    {
        const AsNobody nobody;
        EXPECT_EQ(OpenResult("dark.xml", 0), kExternalError);
        EXPECT_STREQ(WQXXMLH_Misc_GetExternalError(), strerror(EACCES));
        EXPECT_EQ(OpenResult("closed.xml", 1), EACCES);
        EXPECT_EQ(OpenResult("dark.xml", 1), 0);
    }
    chmod("dark.xml", 0644);
    chmod("closed.xml", 0644);
    EXPECT_EQ(ReadFile("dark.xml"), "");
    EXPECT_EQ(ReadFile("closed.xml"), "<r>secret</r>");
}

/// What a call does to the document of a handle.
struct Call {
    const char* name;
    std::function<int(void*)> run;
    int result;
};

constexpr char kDocument[] = "<r><a k=\"v\">1</a><b/></r>"; // which writing would indent

/// Closes a file's document after a call; true if the file was written.
bool IsWrittenAfter(const TempDir& dir, const Call& call, int mode)
{
    const std::string file = dir.File("d.xml");
    WriteFile(file, kDocument);
    const struct timespec old[2] = {{1000, 0}, {1000, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, file.c_str(), old, 0), 0);
    XmlHandle handle = XmlHandle::Of(file, mode);
    EXPECT_EQ(call.run(handle), call.result) << call.name;
    EXPECT_EQ(ReadFile(file), kDocument) << call.name;
    handle.Close();
    struct stat status = {};
    stat(file.c_str(), &status);
    EXPECT_EQ(ReadFile(file) == kDocument, status.st_mtime == 1000) << call.name;
    return status.st_mtime != 1000;
}

TEST(XmlHandleClose, LeavesTheFileOfAnUnchangedDocument)
{
    const TempDir dir;
    const Call calls[] = {
        {"nothing", [](void*) { return 0; }, 0},
        {"find",
         [](void* h) {
             void* node;
             return WQXXMLH_GetNodeFromPath(h, "/r/a", &node);
         },
         0},
        {"find with adding, nothing missing",
         [](void* h) {
             void* node;
             return WQXXMLH_Misc_GetNodeFromPath_AutoAdd(h, "/r/a[k=v]", &node);
         },
         0},
        {"find with adding, bad path",
         [](void* h) {
             void* node;
             return WQXXMLH_Misc_GetNodeFromPath_AutoAdd(h, "/r/n[x]", &node);
         },
         kBadPath},
        {"value",
         [](void* h) {
             char* value;
             return WQXXMLH_GetElementValue(h, "/r/a", &value);
         },
         0},
        {"attribute",
         [](void* h) {
             char* value;
             return WQXXMLH_GetElementAttribute(h, "/r/a", "k", &value);
         },
         0},
        {"walk",
         [](void* h) {
             void* walk = nullptr;
             void* node;
             return WQXXMLH_BeginIterate(h, "/r", &walk) + WQXXMLH_Iterate(walk, &node) + WQXXMLH_EndIterate(walk);
         },
         0},
        {"declaration", [](void* h) { return WQXXMLH_SetDeclaration(h, "1.0", "UTF-8", "yes"); }, 0},
        {"add, bad name there", [](void* h) { return WQXXMLH_AddElementValue(h, "/r/a", "<", "1"); }, EINVAL},
        {"add, empty name", [](void* h) { return WQXXMLH_AddElementValue(h, "/r/a", "", "1"); }, EINVAL},
        {"add attribute, no name", [](void* h) { return WQXXMLH_AddElementAttribute(h, "/r", nullptr, ""); }, EINVAL},
        {"change missing value", [](void* h) { return WQXXMLH_ChangeElementValue(h, "/r/n", "1"); }, kBadPath},
        {"change without text", [](void* h) { return WQXXMLH_ChangeElementValue(h, "/r", "1"); }, EINVAL},
        {"rename, bad name", [](void* h) { return WQXXMLH_ChangeElementName(h, "/r", "a b"); }, EINVAL},
        {"change missing attribute", [](void* h) { return WQXXMLH_ChangeElementAttribute(h, "/r/a", "x", "1"); },
         ENOENT},
        {"delete what is missing", [](void* h) { return WQXXMLH_DeleteElement(h, "/r/n"); }, kBadPath},
        {"copy from nowhere", [](void* h) { return WQXXMLH_Copy(h, "/r/n", h, "/r"); }, kBadPath},
        {"copy to nowhere", [](void* h) { return WQXXMLH_Copy(h, "/r/a", h, "/r/n"); }, kBadPath},
        {"copy out of it",
         [](void* h) {
             const XmlHandle other("<o/>");
             return WQXXMLH_Copy(h, "/r/a", other, "/o");
         },
         0},
        {"change through an element",
         [](void* h) {
             void* node;
             return WQXXMLH_GetNodeFromPath(h, "/r/a", &node) + WQXXMLH_ChangeElementValue(node, "/a", "2");
         },
         0},
    };
    for (const Call& call : calls)
        for (const int mode : {0, 1})
            EXPECT_FALSE(IsWrittenAfter(dir, call, mode)) << call.name;
}

TEST(XmlHandleClose, WritesAChangedDocumentWhateverTheMode)
{
    const TempDir dir;
    const Call calls[] = {
        {"add", [](void* h) { return WQXXMLH_AddElementValue(h, "/r", "c", "1"); }, 0},
        {"add on the way, then fail", [](void* h) { return WQXXMLH_AddElementValue(h, "/r/n", "<", "1"); }, EINVAL},
        {"add on the way, then a bad segment", [](void* h) { return WQXXMLH_AddElementValue(h, "/r/n/m[x]", "c", ""); },
         kBadPath},
        {"find with adding",
         [](void* h) {
             void* node;
             return WQXXMLH_Misc_GetNodeFromPath_AutoAdd(h, "/r/n", &node);
         },
         0},
        {"add attribute", [](void* h) { return WQXXMLH_AddElementAttribute(h, "/r", "n", "1"); }, 0},
        {"change value", [](void* h) { return WQXXMLH_ChangeElementValue(h, "/r/a", "2"); }, 0},
        {"change to the same", [](void* h) { return WQXXMLH_ChangeElementValue(h, "/r/a", "1"); }, 0},
        {"rename", [](void* h) { return WQXXMLH_ChangeElementName(h, "/r", "s"); }, 0},
        {"change attribute", [](void* h) { return WQXXMLH_ChangeElementAttribute(h, "/r/a", "K", "w"); }, 0},
        {"delete", [](void* h) { return WQXXMLH_DeleteElement(h, "/r/a"); }, 0},
        {"copy", [](void* h) { return WQXXMLH_Copy(h, "/r/a", h, "/r/b"); }, 0},
    };
    for (const Call& call : calls)
        for (const int mode : {0, 1, 7})
            EXPECT_TRUE(IsWrittenAfter(dir, call, mode)) << call.name;
}

TEST(XmlHandleClose, WritesARootThatWasOnlyMade)
{
    const TempDir dir;
    for (const int result : {0, EINVAL}) {
        const std::string file = dir.File(std::to_string(result));
        XmlHandle handle = XmlHandle::Of(file);
        void* node = nullptr;
        EXPECT_EQ(WQXXMLH_Misc_GetNodeFromPath_AutoAdd(handle, result == 0 ? "/r" : "/r[@=1]", &node), result);
        handle.Close();
        EXPECT_EQ(ReadFile(file), "<r></r>\n");
    }
}

TEST(XmlHandleClose, WritesInPlaceWithTheDeclaration)
{
    const TempDir dir;
    WriteFile(dir.File("d.xml"), "<?xml version=\"1.0\"?><!----><r a='1'>t</r><!-- lost -->");
    chmod(dir.File("d.xml").c_str(), 0600);
    ASSERT_EQ(link(dir.File("d.xml").c_str(), dir.File("link.xml").c_str()), 0);
    const ino_t inode = support::Inode(dir.File("d.xml"));
    XmlHandle handle = XmlHandle::Of(dir.File("link.xml"));
    EXPECT_EQ(WQXXMLH_SetDeclaration(handle, "1.1", "GBK", nullptr), 0);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r", "<&>"), 0);
    handle.Close();
    EXPECT_EQ(ReadFile(dir.File("d.xml")), "<?xml version=\"1.1\" encoding=\"GBK\"?>\n<r a=\"1\"><&></r>\n");
    EXPECT_EQ(support::Inode(dir.File("d.xml")), inode);
    EXPECT_EQ(support::Mode(dir.File("d.xml")), 0600u);
}

TEST(XmlHandleClose, ForgetsTheDeclarationThatWasRead)
{
    const TempDir dir;
    WriteFile(dir.File("d.xml"), "<?xml version=\"1.0\" encoding=\"UTF-8\"?><r>1</r>");
    XmlHandle handle = XmlHandle::Of(dir.File("d.xml"));
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r", "2"), 0);
    handle.Close();
    EXPECT_EQ(ReadFile(dir.File("d.xml")), "<r>2</r>\n");
}

TEST(XmlHandleClose, KeepsQuietAboutAFileThatCannotBeWritten)
{
    const TempDir dir;
    mkdir(dir.File("sub").c_str(), 0777);
    XmlHandle handle = XmlHandle::Of(dir.File("sub/d.xml"));
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "a", "1"), 0);
    std::filesystem::remove_all(dir.File("sub"));
    EXPECT_EQ(handle.Finish(), "<r>\n  <a>1</a>\n</r>\n");
    EXPECT_FALSE(support::Exists(dir.File("sub")));
}

TEST(XmlHandleClose, AfterTheLastElementIsGoneNothingRemains)
{
    const TempDir dir;
    WriteFile(dir.File("d.xml"), "<r>1</r>");
    XmlHandle handle = XmlHandle::Of(dir.File("d.xml"));
    EXPECT_EQ(WQXXMLH_DeleteElement(handle, "/r"), 0);
    handle.Close();
    EXPECT_EQ(ReadFile(dir.File("d.xml")), "");
}

TEST(XmlHandleClose2, HandsOutTheTextAndWritesTheFile)
{
    const TempDir dir;
    WriteFile(dir.File("d.xml"), "<r><a/><!-- c --></r>");
    XmlHandle handle = XmlHandle::Of(dir.File("d.xml"));
    EXPECT_EQ(WQXXMLH_SetDeclaration(handle, "1.0", nullptr, "no"), 0);
    EXPECT_EQ(WQXXMLH_AddElementAttribute(handle, "/r", "k", nullptr), 0);
    const std::string head = "<?xml version=\"1.0\" standalone=\"no\"?>\n<r k=\"\">\n  <a></a>\n";
    EXPECT_EQ(handle.Finish(), head + "</r>\n");
    EXPECT_EQ(ReadFile(dir.File("d.xml")), head + "  <!-- c -->\n</r>\n");

    handle = XmlHandle::Of(dir.File("d.xml"));
    WriteFile(dir.File("d.xml"), "other");
    EXPECT_EQ(handle.Finish(), "<r k=\"\">\n  <a></a>\n</r>\n");
    EXPECT_EQ(ReadFile(dir.File("d.xml")), "other") << "an unchanged document is not written";
}

TEST(XmlHandleClose2, TakesNullForTheText)
{
    const TempDir dir;
    void* handle = nullptr;
    ASSERT_EQ(WQXXMLH_Open(dir.File("d.xml").c_str(), 1, &handle), 0);
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "a", nullptr), 0);
    WQXXMLH_Close2(handle, nullptr);
    EXPECT_EQ(ReadFile(dir.File("d.xml")), "<r>\n  <a></a>\n</r>\n");
    WQXXMLH_FreeString(nullptr);
}

TEST(XmlHandleClose2, OfAnEmptyDocumentIsTheDeclaration)
{
    void* handle = nullptr;
    char* xml = nullptr;
    ASSERT_EQ(WQXXMLH_Open2(nullptr, 1, &handle), 0);
    EXPECT_EQ(WQXXMLH_SetDeclaration(handle, "1.0", nullptr, nullptr), 0);
    WQXXMLH_Close2(handle, &xml);
    EXPECT_STREQ(xml, "<?xml version=\"1.0\"?>\n");
    WQXXMLH_FreeString(xml);
    EXPECT_EQ(XmlHandle(" ").Finish(), "");
}

TEST(XmlHandleTempFile, IsWrittenNowWithADeclarationOfItsOwn)
{
    const TempDir dir;
    const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
    WriteFile(dir.File("d.xml"), "<r>1</r>");
    XmlHandle handle = XmlHandle::Of(dir.File("d.xml"), 0);
    EXPECT_EQ(WQXXMLH_SetDeclaration(handle, "9", "9", "9"), 0);
    WQXXMLH_RecordTempFile(handle);
    EXPECT_EQ(ReadFile(dir.File("d.xml")), head + "<r>1</r>\n");
    handle.Close();
    EXPECT_EQ(ReadFile(dir.File("d.xml")), head + "<r>1</r>\n") << "it counts as no change";

    handle = XmlHandle::Of(dir.File("d.xml"), 0);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r", "2"), 0);
    WQXXMLH_RecordTempFile(handle);
    EXPECT_EQ(ReadFile(dir.File("d.xml")), head + "<r>2</r>\n");
    handle.Close();
    EXPECT_EQ(ReadFile(dir.File("d.xml")), "<r>2</r>\n") << "the change is written again";

    const support::WorkingDir working(dir.Path());
    XmlHandle text("<r/>");
    WQXXMLH_RecordTempFile(text);
    EXPECT_EQ(text.Finish(), "<r></r>\n");
    EXPECT_EQ(support::FilesWithPrefix(".", "").size(), 1u);
}

TEST(XmlHandleOpenText, Arguments)
{
    EXPECT_EQ(OpenTextResult(nullptr, 0), EINVAL);
    EXPECT_EQ(OpenTextResult("", 0), EINVAL);
    EXPECT_EQ(WQXXMLH_Open2("<r/>", 0, nullptr), EINVAL);
    EXPECT_EQ(WQXXMLH_Open2(nullptr, 0, nullptr), EINVAL);
    for (const int mode : {1, -1, 2}) {
        EXPECT_EQ(WQXXMLH_Open2("<r/>", mode, nullptr), EINVAL);
        EXPECT_EQ(WQXXMLH_Open2(nullptr, mode, nullptr), EINVAL);
        EXPECT_EQ(OpenTextResult(nullptr, mode), 0);
        EXPECT_EQ(OpenTextResult("", mode), 0);
    }
    for (const char* text : {"<r/>", " ", "x", "<!-- c --><r/>", "<r><r><r>"})
        for (const int mode : {0, 1})
            EXPECT_EQ(OpenTextResult(text, mode), 0) << text;
}

TEST(XmlHandleOpenText, IsReadOnceAndBoundToNoFile)
{
    const TempDir dir;
    const support::WorkingDir working(dir.Path());
    XmlHandle handle("<r>1</r>", 0); // the text is gone by now
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r", "2"), 0);
    EXPECT_EQ(handle.Value("/r"), "2");
    handle.Close();
    EXPECT_TRUE(support::FilesWithPrefix(".", "").empty());
}

TEST(XmlHandleDeclaration, TakesTextsBelow32Bytes)
{
    const std::string most(31, 'm');
    const std::string over(32, 'o');
    XmlHandle handle("<r/>");
    EXPECT_EQ(WQXXMLH_SetDeclaration(handle, most.c_str(), most.c_str(), most.c_str()), 0);
    EXPECT_EQ(WQXXMLH_SetDeclaration(handle, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(handle.Finish(),
              "<?xml version=\"" + most + "\" encoding=\"" + most + "\" standalone=\"" + most + "\"?>\n<r></r>\n");

    XmlHandle second("<r/>");
    EXPECT_EQ(WQXXMLH_SetDeclaration(second, "v", over.c_str(), "s"), kTooLong);
    EXPECT_EQ(second.Finish(), "<?xml version=\"v\"?>\n<r></r>\n") << "what stood before it is stored";
    XmlHandle first("<r/>");
    EXPECT_EQ(WQXXMLH_SetDeclaration(first, over.c_str(), "e", "s"), kTooLong);
    EXPECT_EQ(first.Finish(), "<r></r>\n");
    XmlHandle third("<r/>");
    EXPECT_EQ(WQXXMLH_SetDeclaration(third, "v", nullptr, std::string(100000, 'o').c_str()), kTooLong);
    EXPECT_EQ(third.Finish(), "<?xml version=\"v\"?>\n<r></r>\n");
}

TEST(XmlHandleDeclaration, CanBeSetAgainAndHoldsAnyText)
{
    XmlHandle handle("<r/>");
    EXPECT_EQ(WQXXMLH_SetDeclaration(handle, "1.0", "a long first value", "yes"), 0);
    EXPECT_EQ(WQXXMLH_SetDeclaration(handle, "", "%s%n", nullptr), 0);
    EXPECT_EQ(handle.Finish(), "<?xml encoding=\"%s%n\" standalone=\"yes\"?>\n<r></r>\n");
}

TEST(XmlHandles, AreCheckedByTheirMark)
{
    XmlHandle handle("<r><a/></r>");
    void* node = handle.Node("/r");
    void* walk = nullptr;
    ASSERT_EQ(WQXXMLH_BeginIterate(handle, "/r", &walk), 0);
    alignas(16) char zeros[600] = {};
    for (void* bad : {static_cast<void*>(nullptr), node, walk, static_cast<void*>(zeros)}) {
        EXPECT_EQ(WQXXMLH_SetDeclaration(bad, "1.0", nullptr, nullptr), kBadHandle);
        WQXXMLH_Close(bad);
        char* xml = &g_sentinel;
        WQXXMLH_Close2(bad, &xml);
        EXPECT_EQ(xml, &g_sentinel);
        WQXXMLH_RecordTempFile(bad);
    }
    EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
    EXPECT_EQ(handle.Finish(), "<r>\n  <a></a>\n</r>\n");
}

TEST(XmlHandleOption, ChoosesHowTextsAreRead)
{
    const char* const text = "<r>  &lt;a  b&gt;  </r>";
    EXPECT_EQ(XmlHandle(text).Value("/r"), "&lt;a  b&gt;  ");
    EXPECT_EQ(WQXXMLH_SetXMLOption(0), 0);
    EXPECT_EQ(XmlHandle(text).Value("/r"), "<a b>");
    for (const int plain : {1, -1, 256}) {
        EXPECT_EQ(WQXXMLH_SetXMLOption(0), 0);
        EXPECT_EQ(WQXXMLH_SetXMLOption(plain), 0);
        EXPECT_EQ(XmlHandle(text).Value("/r"), "&lt;a  b&gt;  ") << plain;
    }
}

TEST(XmlHandleErrors, HaveTexts)
{
    char text[256];
    for (const int code : {0, ENOENT, 9, ENOMEM, 20, EINVAL}) {
        EXPECT_EQ(WQXXMLH_GetErrorInfo(code, text), text);
        EXPECT_STREQ(text, strerror(code));
    }
    WQXXMLH_Misc_SetExternalError("outside");
    EXPECT_STREQ(WQXXMLH_GetErrorInfo(kExternalError, text), "outside");
    EXPECT_EQ(WQXXMLH_GetErrorInfo(kExternalError, nullptr), WQXXMLH_Misc_GetExternalError());
    EXPECT_STREQ(WQXXMLH_Misc_GetExternalError(), "outside");
    EXPECT_EQ(WQXXMLH_GetErrorInfo(EINVAL, nullptr), WQXXMLH_Misc_GetExternalError()) << "they share a buffer";
    EXPECT_STREQ(WQXXMLH_Misc_GetExternalError(), strerror(EINVAL));
}

TEST(XmlHandleErrors, TheExternalTextIsCutTo255Bytes)
{
    WQXXMLH_Misc_SetExternalError(std::string(255, 'x').c_str());
    EXPECT_EQ(WQXXMLH_Misc_GetExternalError(), std::string(255, 'x'));
    WQXXMLH_Misc_SetExternalError((std::string(255, 'y') + "z").c_str());
    EXPECT_EQ(WQXXMLH_Misc_GetExternalError(), std::string(255, 'y'));
    WQXXMLH_Misc_SetExternalError(std::string(100000, 'w').c_str());
    EXPECT_EQ(WQXXMLH_Misc_GetExternalError(), std::string(255, 'w'));
    WQXXMLH_Misc_SetExternalError(nullptr);
    EXPECT_EQ(WQXXMLH_Misc_GetExternalError(), std::string(255, 'w'));
    WQXXMLH_Misc_SetExternalError(WQXXMLH_Misc_GetExternalError());
    EXPECT_EQ(WQXXMLH_Misc_GetExternalError(), std::string(255, 'w'));
    WQXXMLH_Misc_SetExternalError("%s%n 12345678901234567890");
    WQXXMLH_Misc_SetExternalError(WQXXMLH_Misc_GetExternalError() + 3);
    EXPECT_STREQ(WQXXMLH_Misc_GetExternalError(), "n 12345678901234567890") << "also a part of itself";
    WQXXMLH_Misc_SetExternalError("");
    EXPECT_STREQ(WQXXMLH_Misc_GetExternalError(), "");
}

TEST(XmlHandleErrors, SystemErrorIsErrno)
{
    for (const int number : {0, ENOSPC, 12345}) {
        errno = number;
        EXPECT_EQ(WQXXMLH_GetSystemError(), number);
        EXPECT_EQ(errno, number);
    }
}

TEST(XmlHandleErrors, PointersAreNotTested)
{
    for (const int forReading : {0, 1, 2})
        for (const int length : {-1, 0, 100})
            EXPECT_EQ(General_Misc_IsBadPtr(forReading, nullptr, length), 0);
}

TEST(XmlHandles, LeaveTheErrorTextOfTheLibraryAlone)
{
    support::MarkErrorText();
    XmlHandle handle("<r/>");
    handle.Value("/none");
    EXPECT_EQ(WQXXMLH_Open(nullptr, 0, nullptr), EINVAL);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(XmlHandles, GiveBackWhatTheyTook)
{
    const TempDir dir;
    const std::string file = dir.File("d.xml");
    WriteFile(file, kDocument);
    WriteFile(dir.File("empty.xml"), "");
    support::ExpectNothingLeaks([&] {
        void* handle = nullptr;
        WQXXMLH_Open(file.c_str(), 0, &handle);
        void* node = nullptr;
        WQXXMLH_Misc_GetNodeFromPath_AutoAdd(handle, "/r/x[a=1&b=2]/y[c=\"3\"]", &node);
        WQXXMLH_Close(handle);
        WQXXMLH_Open(dir.File("empty.xml").c_str(), 0, &handle);
        WQXXMLH_Open(dir.File("none.xml").c_str(), 0, &handle);
        WQXXMLH_Open(dir.Path().c_str(), 1, &handle);
        WQXXMLH_Open2("", 0, &handle);
        WQXXMLH_Open2("<r><a", 1, &handle);
        WQXXMLH_DeleteElement(handle, "/r");
        WQXXMLH_Close(handle);
    });
}

} // namespace
