// Walks over the elements below an element.
#include <ZKQ_general.h>
#include <errno.h>

#include <vector>

#include "support/heap.h"
#include "support/xml_handle.h"

namespace {

using support::Flat;
using support::XmlHandle;

constexpr int kBadHandle = 9;
constexpr int kBadPath = 20;

char g_sentinel;

constexpr char kDocument[] = "<r>x<a k='1'>one</a><!-- c -->y<b><c>1</c><d/></b><![CDATA[z]]><a>two</a>w</r>";

std::string NameOf(void* node)
{
    char* name = nullptr;
    EXPECT_EQ(WQXXMLH_Iterate_GetElement(node, &name), 0);
    return name;
}

/// The names that a walk hands out until its end.
std::vector<std::string> Rest(void* walk)
{
    std::vector<std::string> names;
    void* node = nullptr;
    int error;
    while ((error = WQXXMLH_Iterate(walk, &node)) == 0)
        names.push_back(NameOf(node));
    EXPECT_EQ(error, ENOENT);
    return names;
}

using Names = std::vector<std::string>;

TEST(XmlIterate, HandsOutTheElementsInOrder)
{
    const XmlHandle handle(kDocument, 0);
    struct Row {
        const char* path;
        Names names;
    };
    for (const auto& [path, names] :
         {Row{"/r", {"a", "b", "a"}}, Row{"/R/b/", {"c", "d"}}, Row{"/r/b/c", {}}, Row{"/r/a[k=1]", {}}}) {
        void* walk = nullptr;
        ASSERT_EQ(WQXXMLH_BeginIterate(handle, path, &walk), 0) << path;
        EXPECT_EQ(Rest(walk), names) << path;
        EXPECT_EQ(Rest(walk), Names()) << "the end stays the end";
        EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
    }
}

TEST(XmlIterate, LeavesTheResultAloneAtTheEnd)
{
    const XmlHandle handle("<r/>", 0);
    void* walk = nullptr;
    void* node = &g_sentinel;
    ASSERT_EQ(WQXXMLH_BeginIterate(handle, "/r", &walk), 0);
    EXPECT_EQ(WQXXMLH_Iterate(walk, &node), ENOENT);
    EXPECT_EQ(node, &g_sentinel);
    EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
}

TEST(XmlIterate, BeginsWhereAPathLeads)
{
    const XmlHandle handle(kDocument, 0);
    void* walk = &g_sentinel;
    EXPECT_EQ(WQXXMLH_BeginIterate(handle, "/r/none", &walk), kBadPath);
    EXPECT_EQ(WQXXMLH_BeginIterate(handle, "/r/a[k=2]", &walk), ENOENT);
    EXPECT_EQ(WQXXMLH_BeginIterate(handle, "r", &walk), kBadPath);
    EXPECT_EQ(WQXXMLH_BeginIterate(handle, "/", &walk), kBadPath);
    EXPECT_EQ(WQXXMLH_BeginIterate(handle, nullptr, &walk), kBadHandle);
    EXPECT_EQ(WQXXMLH_BeginIterate(nullptr, "/r", &walk), kBadHandle);
    EXPECT_EQ(WQXXMLH_BeginIterate(XmlHandle(" "), "/r", &walk), ENOENT);
    EXPECT_EQ(walk, &g_sentinel);
    EXPECT_EQ(WQXXMLH_BeginIterate(handle, "/r", nullptr), EINVAL);
    EXPECT_EQ(WQXXMLH_BeginIterate(nullptr, "/r", nullptr), EINVAL);

    ASSERT_EQ(WQXXMLH_BeginIterate(handle.Node("/r/b"), "/b", &walk), 0) << "at an element as well";
    EXPECT_EQ(Rest(walk), (Names{"c", "d"}));
    EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
}

TEST(XmlIterate, BeginsAtAnElement)
{
    const XmlHandle handle(kDocument, 0);
    void* walk = &g_sentinel;
    EXPECT_EQ(WQXXMLH_BeginIterateEx(nullptr, &walk), kBadHandle);
    EXPECT_EQ(WQXXMLH_BeginIterateEx(handle, &walk), kBadHandle) << "a document is no element";
    EXPECT_EQ(walk, &g_sentinel);
    EXPECT_EQ(WQXXMLH_BeginIterateEx(handle.Node("/r"), nullptr), EINVAL);
    ASSERT_EQ(WQXXMLH_BeginIterateEx(handle.Node("/r"), &walk), 0);
    EXPECT_EQ(Rest(walk), (Names{"a", "b", "a"}));
    EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
    ASSERT_EQ(WQXXMLH_BeginIterateEx(handle.Node("/r/b/d"), &walk), 0);
    EXPECT_EQ(Rest(walk), Names());
    EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
}

TEST(XmlIterate, BeginsBelowTheElementHandedOutLast)
{
    const XmlHandle handle(kDocument, 0);
    void* outer = nullptr;
    void* inner = &g_sentinel;
    void* node = nullptr;
    ASSERT_EQ(WQXXMLH_BeginIterate(handle, "/r", &outer), 0);
    EXPECT_EQ(WQXXMLH_BeginIterate2(outer, &inner), EINVAL) << "nothing has been handed out";
    EXPECT_EQ(WQXXMLH_BeginIterate2(nullptr, &inner), kBadHandle);
    EXPECT_EQ(WQXXMLH_BeginIterate2(handle, &inner), kBadHandle);
    EXPECT_EQ(WQXXMLH_BeginIterate2(handle.Node("/r"), &inner), kBadHandle);
    EXPECT_EQ(inner, &g_sentinel);
    EXPECT_EQ(WQXXMLH_BeginIterate2(outer, nullptr), EINVAL);
    std::vector<Names> below;
    while (WQXXMLH_Iterate(outer, &node) == 0) {
        ASSERT_EQ(WQXXMLH_BeginIterate2(outer, &inner), 0);
        below.push_back(Rest(inner));
        EXPECT_EQ(WQXXMLH_EndIterate(inner), 0);
    }
    EXPECT_EQ(below, (std::vector<Names>{{}, {"c", "d"}, {}}));
    ASSERT_EQ(WQXXMLH_BeginIterate2(outer, &inner), 0) << "the last one stays the current one";
    EXPECT_EQ(WQXXMLH_Iterate(inner, &node), ENOENT);
    EXPECT_EQ(WQXXMLH_BeginIterate2(inner, &node), EINVAL) << "this walk never had one";
    EXPECT_EQ(WQXXMLH_EndIterate(inner), 0);
    EXPECT_EQ(WQXXMLH_EndIterate(outer), 0);
}

TEST(XmlIterate, ChecksItsHandles)
{
    const XmlHandle handle(kDocument, 0);
    void* walk = nullptr;
    void* node = &g_sentinel;
    ASSERT_EQ(WQXXMLH_BeginIterate(handle, "/r", &walk), 0);
    EXPECT_EQ(WQXXMLH_Iterate(nullptr, &node), kBadHandle);
    EXPECT_EQ(WQXXMLH_Iterate(handle, &node), kBadHandle);
    EXPECT_EQ(WQXXMLH_Iterate(handle.Node("/r"), &node), kBadHandle);
    EXPECT_EQ(WQXXMLH_EndIterate(handle), kBadHandle);
    EXPECT_EQ(WQXXMLH_EndIterate(handle.Node("/r")), kBadHandle);
    EXPECT_EQ(WQXXMLH_EndIterate(nullptr), 0);
    EXPECT_EQ(node, &g_sentinel);
    EXPECT_EQ(WQXXMLH_Iterate(walk, nullptr), EINVAL);
    EXPECT_EQ(Rest(walk), (Names{"a", "b", "a"})) << "nothing was passed over";
    EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
}

TEST(XmlIterate, ReadsWhatItHandsOut)
{
    const XmlHandle handle("<r><a k='1'>one</a><b><c/></b><d/></r>", 0);
    void* walk = nullptr;
    void* node = nullptr;
    char* text = &g_sentinel;
    ASSERT_EQ(WQXXMLH_BeginIterate(handle, "/r", &walk), 0);
    ASSERT_EQ(WQXXMLH_Iterate(walk, &node), 0);
    EXPECT_EQ(WQXXMLH_Iterate_GetValue(node, nullptr), EINVAL);
    EXPECT_EQ(WQXXMLH_Iterate_GetValue(nullptr, &text), EINVAL);
    EXPECT_EQ(WQXXMLH_Iterate_GetAttribute(nullptr, "k", &text), EINVAL);
    EXPECT_EQ(WQXXMLH_Iterate_GetAttribute(node, nullptr, &text), EINVAL);
    EXPECT_EQ(WQXXMLH_Iterate_GetAttribute(node, "k", nullptr), EINVAL);
    EXPECT_EQ(WQXXMLH_Iterate_GetAttribute(node, "j", &text), ENOENT);
    EXPECT_EQ(WQXXMLH_Iterate_GetElement(nullptr, &text), EINVAL);
    EXPECT_EQ(WQXXMLH_Iterate_GetElement(node, nullptr), EINVAL);
    EXPECT_EQ(text, &g_sentinel);
    EXPECT_EQ(WQXXMLH_Iterate_GetValue(node, &text), 0);
    EXPECT_STREQ(text, "one");
    EXPECT_EQ(WQXXMLH_Iterate_GetAttribute(node, "K", &text), 0);
    EXPECT_STREQ(text, "1");
    EXPECT_EQ(NameOf(node), "a");
    ASSERT_EQ(WQXXMLH_Iterate(walk, &node), 0);
    EXPECT_EQ(WQXXMLH_Iterate_GetValue(node, &text), EINVAL) << "it begins with an element";
    EXPECT_EQ(WQXXMLH_Iterate_GetAttribute(node, "k", &text), ENOENT);
    ASSERT_EQ(WQXXMLH_Iterate(walk, &node), 0);
    EXPECT_EQ(WQXXMLH_Iterate_GetValue(node, &text), 0);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
}

TEST(XmlIterate, SeesElementsAddedBehind)
{
    XmlHandle handle("<r><a/><b/></r>");
    void* walk = nullptr;
    void* node = nullptr;
    ASSERT_EQ(WQXXMLH_BeginIterate(handle, "/r", &walk), 0);
    ASSERT_EQ(WQXXMLH_Iterate(walk, &node), 0);
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "c", "1"), 0);
    EXPECT_EQ(WQXXMLH_ChangeElementName(node, "/a", "z"), 0);
    EXPECT_EQ(Rest(walk), (Names{"b", "c"}));
    EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
    EXPECT_EQ(Flat(handle.Finish()), "<r><z></z><b></b><c>1</c></r>");
}

TEST(XmlIterate, ElementsWhoseReadingFailedHaveWhatWasRead)
{
    const XmlHandle handle("<r><a>1</a><b x='1' =>", 0);
    void* walk = nullptr;
    ASSERT_EQ(WQXXMLH_BeginIterate(handle, "/r", &walk), 0);
    EXPECT_EQ(Rest(walk), (Names{"a", "b"}));
    EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
}

TEST(XmlIterate, ManyElementsAndManyWalks)
{
    constexpr size_t kCount = 200000;
    std::string text = "<r>";
    for (size_t i = 0; i < kCount; ++i)
        text += "<a/>";
    const XmlHandle handle(text + "</r>", 0);
    void* walk = nullptr;
    ASSERT_EQ(WQXXMLH_BeginIterate(handle, "/r", &walk), 0);
    EXPECT_EQ(Rest(walk).size(), kCount);
    EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
    const XmlHandle few(kDocument, 0);
    support::ExpectNothingLeaks([&] {
        void* outer = nullptr;
        void* inner = nullptr;
        void* node = nullptr;
        WQXXMLH_BeginIterate(few, "/r", &outer);
        WQXXMLH_Iterate(outer, &node);
        WQXXMLH_BeginIterate2(outer, &inner);
        WQXXMLH_EndIterate(inner);
        WQXXMLH_EndIterate(outer);
    });
}

} // namespace
