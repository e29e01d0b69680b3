// XML handles on a failing system: each allocation and each call into the system is made to fail in turn. Every failure
// is reported as its code, the outputs stay as they were, the document stays whole, and nothing leaks.
#include <ZKQ_general.h>
#include <errno.h>

#include <algorithm>
#include <functional>

#include "../support/temp_dir.h"
#include "../support/xml_handle.h"
#include "fault.h"

namespace {

using support::Flat;
using support::ReadFile;
using support::TempDir;
using support::WriteFile;
using support::XmlHandle;

constexpr int kNoMemory = -9;
constexpr int kExternalError = -2;
constexpr char kDocument[] = "<r><a k=\"v\">1</a><b><c x=\"y\">2</c></b></r>";

char g_sentinel;

/// A change of a document, with what it looks like before, after, and where it may be left when it fails.
struct Change {
    const char* name;
    std::function<int(void*)> run;
    std::vector<std::string> left; ///< the last one is the result of success

    friend void PrintTo(const Change& row, std::ostream* out) { *out << row.name; }
};

class XmlChangeFault : public testing::TestWithParam<Change> {};

TEST_P(XmlChangeFault, EveryFailedAllocationIsReported)
{
    const Change& change = GetParam();
    int hits = 0;
    for (const std::string& function : fault::Functions()) {
        for (int call = 1;; ++call) {
            XmlHandle handle(kDocument);
            fault::Arm(function, call, {ENOMEM, false});
            const int result = change.run(handle);
            const bool hit = fault::Disarm();
            const std::string text = Flat(handle.Finish());
            if (!hit) {
                EXPECT_EQ(result, 0);
                EXPECT_EQ(text, change.left.back());
                break;
            }
            ++hits;
            EXPECT_TRUE(result == ENOMEM || result == kNoMemory) << function << " call " << call << ": " << result;
            EXPECT_NE(std::find(change.left.begin(), change.left.end(), text), change.left.end())
                << function << " call " << call << ": " << text;
        }
    }
    EXPECT_GT(hits, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Changes, XmlChangeFault,
    testing::Values(Change{"find",
                           [](void* h) {
                               void* node = &g_sentinel;
                               const int result = WQXXMLH_GetNodeFromPath(h, "/r/a[k=v&k=\"v\"]", &node);
                               EXPECT_EQ(node == &g_sentinel, result != 0);
                               return result;
                           },
                           {kDocument}},
                    Change{"find_with_adding",
                           [](void* h) {
                               void* node = &g_sentinel;
                               const int result = WQXXMLH_Misc_GetNodeFromPath_AutoAdd(h, "/r/n[p=q&s=t]/m", &node);
                               EXPECT_EQ(node == &g_sentinel, result != 0);
                               return result;
                           },
                           {kDocument, "<r><a k=\"v\">1</a><b><c x=\"y\">2</c></b><n></n></r>",
                            "<r><a k=\"v\">1</a><b><c x=\"y\">2</c></b><n p=\"q\"></n></r>",
                            "<r><a k=\"v\">1</a><b><c x=\"y\">2</c></b><n p=\"q\" s=\"t\"></n></r>",
                            "<r><a k=\"v\">1</a><b><c x=\"y\">2</c></b><n p=\"q\" s=\"t\"><m></m></n></r>"}},
                    Change{"add_value",
                           [](void* h) { return WQXXMLH_AddElementValue(h, "/r/b", "n", "v"); },
                           {kDocument, "<r><a k=\"v\">1</a><b><c x=\"y\">2</c><n>v</n></b></r>"}},
                    Change{"add_attribute",
                           [](void* h) { return WQXXMLH_AddElementAttribute(h, "/r/b", "n", "v"); },
                           {kDocument, "<r><a k=\"v\">1</a><b n=\"v\"><c x=\"y\">2</c></b></r>"}},
                    Change{"change_value",
                           [](void* h) { return WQXXMLH_ChangeElementValue(h, "/r/a", "a rather long new text"); },
                           {kDocument, "<r><a k=\"v\">a rather long new text</a><b><c x=\"y\">2</c></b></r>"}},
                    Change{"rename",
                           [](void* h) { return WQXXMLH_ChangeElementName(h, "/r/a", "another"); },
                           {kDocument, "<r><another k=\"v\">1</another><b><c x=\"y\">2</c></b></r>"}},
                    Change{"change_attribute",
                           [](void* h) { return WQXXMLH_ChangeElementAttribute(h, "/r/a", "k", "another"); },
                           {kDocument, "<r><a k=\"another\">1</a><b><c x=\"y\">2</c></b></r>"}},
                    Change{"delete",
                           [](void* h) { return WQXXMLH_DeleteElement(h, "/r/b"); },
                           {kDocument, "<r><a k=\"v\">1</a></r>"}},
                    Change{"copy",
                           [](void* h) { return WQXXMLH_Copy(h, "/r/b", h, "/r/a"); },
                           {kDocument, // what was copied stays
                            "<r><a k=\"v\">1<b></b></a><b><c x=\"y\">2</c></b></r>",
                            "<r><a k=\"v\">1<b><c>2</c></b></a><b><c x=\"y\">2</c></b></r>",
                            "<r><a k=\"v\">1<b><c x=\"y\">2</c></b></a><b><c x=\"y\">2</c></b></r>"}},
                    Change{"walk",
                           [](void* h) {
                               void* walk = &g_sentinel;
                               void* inner = &g_sentinel;
                               void* node = nullptr;
                               int result = WQXXMLH_BeginIterate(h, "/r", &walk);
                               if (result != 0) {
                                   EXPECT_EQ(walk, &g_sentinel);
                                   return result;
                               }
                               EXPECT_EQ(WQXXMLH_Iterate(walk, &node), 0);
                               result = WQXXMLH_BeginIterate2(walk, &inner);
                               EXPECT_EQ(inner == &g_sentinel, result != 0);
                               if (result == 0) {
                                   EXPECT_EQ(WQXXMLH_EndIterate(inner), 0);
                               }
                               EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
                               return result;
                           },
                           {kDocument}}),
    [](const auto& row) { return row.param.name; });

/// An opening of a document; true if it succeeded.
struct Opening {
    const char* name;
    std::function<int(const TempDir&, void**)> run;

    friend void PrintTo(const Opening& row, std::ostream* out) { *out << row.name; }
};

class XmlOpenFault : public testing::TestWithParam<Opening> {};

TEST_P(XmlOpenFault, IsReportedOrReadsLess)
{
    int hits = 0;
    for (const std::string& function : fault::Functions()) {
        for (int call = 1;; ++call) {
            const TempDir dir;
            WriteFile(dir.File("d.xml"), kDocument);
            void* handle = &g_sentinel;
            fault::Arm(function, call, {ENOMEM, false});
            const int result = GetParam().run(dir, &handle);
            const bool hit = fault::Disarm();
            EXPECT_EQ(handle == &g_sentinel, result != 0) << function << " call " << call;
            if (result == 0)
                WQXXMLH_Close(handle);
            if (!hit) {
                EXPECT_EQ(result, 0);
                break;
            }
            ++hits;
            EXPECT_TRUE(result == 0 || result == ENOMEM || result == kExternalError)
                << function << " call " << call << ": " << result;
        }
    }
    EXPECT_GT(hits, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Openings, XmlOpenFault,
    testing::Values(
        Opening{"to_read", [](const TempDir& d, void** h) { return WQXXMLH_Open(d.File("d.xml").c_str(), 0, h); }},
        Opening{"to_write", [](const TempDir& d, void** h) { return WQXXMLH_Open(d.File("d.xml").c_str(), 1, h); }},
        Opening{"anew", [](const TempDir& d, void** h) { return WQXXMLH_Open(d.File("n.xml").c_str(), 1, h); }},
        Opening{"text", [](const TempDir&, void** h) { return WQXXMLH_Open2(kDocument, 0, h); }}),
    [](const auto& row) { return row.param.name; });

TEST(XmlOpenFailure, ToReadAFileThatCannotBeReadLeavesItsReason)
{
    const TempDir dir;
    WriteFile(dir.File("d.xml"), kDocument);
    fault::Arm("open", 1, {EMFILE, false});
    void* handle = &g_sentinel;
    EXPECT_EQ(WQXXMLH_Open(dir.File("d.xml").c_str(), 0, &handle), kExternalError);
    EXPECT_TRUE(fault::Disarm());
    EXPECT_STREQ(WQXXMLH_Misc_GetExternalError(), strerror(EMFILE));
    EXPECT_EQ(handle, &g_sentinel);
}

TEST(XmlOpenFailure, TellsOfMemoryForATextAsTheExternalError)
{
    WQXXMLH_Misc_SetExternalError("before");
    void* handle = &g_sentinel;
    fault::Arm("calloc", 1, {ENOMEM, false});
    EXPECT_EQ(WQXXMLH_Open2(kDocument, 0, &handle), ENOMEM);
    EXPECT_TRUE(fault::Disarm());
    EXPECT_STRNE(WQXXMLH_Misc_GetExternalError(), "before");
    EXPECT_EQ(handle, &g_sentinel);
}

TEST(XmlCloseFault, ReleasesTheHandleWhateverFails)
{
    for (const std::string& function : fault::Functions()) {
        for (int call = 1;; ++call) {
            const TempDir dir;
            WriteFile(dir.File("d.xml"), kDocument);
            XmlHandle handle = XmlHandle::Of(dir.File("d.xml"));
            EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/a", "2"), 0);
            char* xml = &g_sentinel;
            fault::Arm(function, call, {ENOSPC, false});
            WQXXMLH_Close2(handle.Release(), &xml);
            const bool hit = fault::Disarm();
            EXPECT_NE(xml, &g_sentinel) << function << " call " << call;
            const std::string text = xml == nullptr ? "" : xml;
            WQXXMLH_FreeString(xml);
            EXPECT_TRUE(text.empty() || Flat(text) == "<r><a k=\"v\">2</a><b><c x=\"y\">2</c></b></r>") << text;
            if (!hit) {
                EXPECT_EQ(ReadFile(dir.File("d.xml")), text);
                EXPECT_FALSE(text.empty());
                break;
            }
        }
    }
}

} // namespace
