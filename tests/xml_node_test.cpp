// Looking up, adding, changing, copying and deleting nodes.
#include <ZKQ_general/TamorXml.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/buffer.h"
#include "support/heap.h"
#include "support/xml.h"
#include "support/xml_edit.h"

namespace {

using support::AsNode;
using support::XmlDocument;
using support::XmlNode;

/// The element of a name, by hand.
XmlNode* Named(XmlNode* node, const std::string& name)
{
    for (; node != nullptr; node = node->next) {
        if (node->type == support::kElement && node->value == name)
            return node;
        if (XmlNode* const below = Named(node->child, name))
            return below;
    }
    return nullptr;
}

XmlNode* Named(const XmlDocument& document, const std::string& name)
{
    return Named(AsNode(document.xml), name);
}

TEST(XmlNull, NothingCrashes)
{
    XmlDocument document("<r a='1'>x</r>");
    void* const root = document.Root();
    void* node = nullptr;
    char* text = nullptr;
    const char* value = nullptr;
    int index = 0;
    EXPECT_EQ(WQXXML_AddChildItem(nullptr, "r", "n", "v"), EINVAL);
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, "r", nullptr, "v"), EINVAL);
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, "r", "", "v"), EINVAL);
    EXPECT_EQ(WQXXML_AddNodeChildItem(nullptr, "n", "v", &node), EINVAL);
    EXPECT_EQ(WQXXML_AddNodeChildItem(root, nullptr, "v", &node), EINVAL);
    EXPECT_EQ(WQXXML_AddNodeChildItem(root, "", "v", &node), EINVAL);
    EXPECT_EQ(WQXXML_AddNodeChildItem(AsNode(root)->child, "n", "v", &node), EINVAL) << "a text";
    EXPECT_EQ(WQXXML_AddNodeChildItem_Reverse(nullptr, "n", "v", &node), EINVAL);
    EXPECT_EQ(WQXXML_AddNodeChildItem_Reverse(root, "", "v", &node), EINVAL);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(WQXXML_AddAttribute(nullptr, "r", "n", "v"), ENOENT);
    EXPECT_EQ(WQXXML_AddAttribute(root, "r", nullptr, "v"), EINVAL);
    EXPECT_EQ(WQXXML_AddNodeAttribute(nullptr, "n", "v"), EINVAL);
    EXPECT_EQ(WQXXML_AddNodeAttribute(root, nullptr, "v"), EINVAL);
    EXPECT_EQ(WQXXML_AddNodeAttribute(AsNode(root)->child, "n", "v"), EINVAL);
    EXPECT_EQ(WQXXML_GetAttribute(nullptr, nullptr, nullptr), 0) << "nothing to store";
    EXPECT_EQ(WQXXML_GetAttribute(nullptr, "a", &text), EINVAL);
    EXPECT_EQ(WQXXML_GetAttribute(root, nullptr, &text), EINVAL);
    EXPECT_EQ(WQXXML_ChangeAttribute(nullptr, "a", "v"), EINVAL);
    EXPECT_EQ(WQXXML_ChangeAttribute(root, nullptr, "v"), EINVAL);
    EXPECT_EQ(WQXXML_GetRootItem(nullptr, 0, &text), EINVAL);
    EXPECT_EQ(WQXXML_GetRootItem(root, 0, nullptr), EINVAL);
    EXPECT_EQ(WQXXML_GetRootNode(nullptr, 0, &node), EINVAL);
    EXPECT_EQ(WQXXML_GetRootNode(root, 0, nullptr), EINVAL);
    EXPECT_EQ(WQXXML_GetNodeValue(nullptr, &value), EINVAL);
    EXPECT_EQ(WQXXML_GetNodeValue(root, nullptr), EINVAL);
    EXPECT_EQ(WQXXML_ChangeNodeValue(nullptr, "v"), EINVAL);
    EXPECT_EQ(WQXXML_ChangeNodeValue(root, nullptr), EINVAL);
    EXPECT_EQ(WQXXML_GetElementValue(nullptr, nullptr), 0) << "nothing to store";
    EXPECT_EQ(WQXXML_GetElementValue(nullptr, &text), EINVAL);
    EXPECT_EQ(WQXXML_ChangeElementValue(nullptr, "v"), EINVAL);
    EXPECT_EQ(WQXXML_GetChildNode(nullptr, &index, &node), EINVAL);
    EXPECT_EQ(WQXXML_GetChildNode(root, nullptr, &node), EINVAL);
    EXPECT_EQ(WQXXML_GetNextNode(nullptr, &index, &node), EINVAL);
    EXPECT_EQ(WQXXML_GetNextNode(root, nullptr, &node), EINVAL);
    node = root;
    EXPECT_EQ(WQXXML_GetSpecifiedChildNode(nullptr, &index, "a", &node), EINVAL);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(WQXXML_GetSpecifiedChildNode(root, nullptr, "a", &node), EINVAL);
    EXPECT_EQ(WQXXML_GetSpecifiedChildNode(root, &index, nullptr, &node), EINVAL);
    EXPECT_EQ(WQXXML_GetChildNodeList(nullptr, 1, "a", &node), EINVAL);
    EXPECT_EQ(WQXXML_GetChildNodeList(root, 1, nullptr, &node), EINVAL);
    EXPECT_EQ(WQXXML_GetChildNodeList(root, 1, "a", nullptr), EINVAL);
    EXPECT_EQ(WQXXML_GetChildItem(root, "r", nullptr, &text, &text), EINVAL);
    EXPECT_EQ(WQXXML_GetKeyValue(root, "r", "a", nullptr), EINVAL);
    EXPECT_EQ(WQXXML_GetKeyValue(root, "r", nullptr, &value), EINVAL);
    value = "old";
    EXPECT_EQ(WQXXML_GetChildKeyValue(nullptr, "a", &value), 0) << "it never fails";
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(WQXXML_GetChildKeyValue(root, nullptr, &value), 0);
    EXPECT_EQ(WQXXML_GetChildKeyValue(root, "a", nullptr), 0);
    EXPECT_EQ(WQXXML_GetKeyNode(root, "r", "a", nullptr), EINVAL);
    EXPECT_EQ(WQXXML_GetKeyNode(root, "r", nullptr, &node), EINVAL);
    EXPECT_EQ(WQXXML_DelNode(nullptr, root), EINVAL);
    EXPECT_EQ(WQXXML_DelNode(&document.xml, nullptr), EINVAL);
    WQXXML_ReleaseObject(nullptr);
    EXPECT_EQ(document.Text(), R"(r[a="1"]('x'))") << "unchanged by all of that";
}

TEST(XmlAdd, ToAnEmptyDocument)
{
    for (const char* const parent : {static_cast<const char*>(nullptr), "", "p"}) {
        XmlDocument document;
        void* node = nullptr;
        EXPECT_EQ(WQXXML_AddChildItemAndGetNode(&document.xml, parent, "n", "v", &node), 0);
        EXPECT_EQ(node, document.xml);
        EXPECT_EQ(document.Text(), "n()") << "without its value";
    }
    XmlDocument document;
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, "p", "n", "v"), 0);
    EXPECT_EQ(document.Text(), "n()");
}

TEST(XmlAdd, BehindTheRoot)
{
    XmlDocument document("<?xml?><r/>");
    for (const char* const parent : {static_cast<const char*>(nullptr), ""})
        EXPECT_EQ(WQXXML_AddChildItem(&document.xml, parent, "n", "v"), 0);
    EXPECT_EQ(document.Text(), "?xml r('') n() n()");
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, nullptr, "m", nullptr), 0) << "ends in a longer chain";
    XmlDocument comment("<!-- c -->");
    EXPECT_EQ(WQXXML_AddChildItem(&comment.xml, nullptr, "n", "v"), ENOENT);
    EXPECT_EQ(comment.Text(), "<! c >");
}

TEST(XmlAdd, BehindANodeThatIsTakenAsTheDocument)
{
    const XmlDocument document("<?xml?><!----><r><a/><b/></r>");
    void* root = Named(document, "r");
    void* node = nullptr;
    EXPECT_EQ(WQXXML_AddChildItemAndGetNode(&root, "", "s", "v", &node), 0);
    EXPECT_EQ(root, Named(document, "r"));
    EXPECT_EQ(node, Named(document, "s"));
    void* inner = Named(document, "b");
    EXPECT_EQ(WQXXML_AddChildItem(&inner, nullptr, "t", "v"), 0);
    void* last = node;
    EXPECT_EQ(WQXXML_AddChildItem(&last, nullptr, "u", "v"), 0);
    EXPECT_EQ(document.Text(), "?xml <!> r(a('') b('') t()) s() u()");
    char* text = nullptr;
    EXPECT_EQ(WQXXML_OutputString(document.xml, &text), 0);
    EXPECT_STREQ(text, "<r>\n  <a></a>\n  <b></b>\n  <t></t>\n</r>\n");
    WQXXML_FreeString(text);
}

TEST(XmlAdd, ByTheNameOfTheParent)
{
    XmlDocument document("<r><a/><B><a/></B></r>");
    void* node = nullptr;
    EXPECT_EQ(WQXXML_AddChildItemAndGetNode(&document.xml, "b", "n", "v", &node), 0);
    EXPECT_EQ(node, Named(document, "n"));
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, "A", "m", nullptr), 0);
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, "R", "e", ""), 0);
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, "x", "e", ""), ENOENT);
    EXPECT_EQ(document.Text(), "r(a('' m()) B(a('') n('v')) e(''))");
}

TEST(XmlAdd, ToANode)
{
    XmlDocument document("<r>x</r>");
    void* node = nullptr;
    EXPECT_EQ(WQXXML_AddNodeChildItem(document.Root(), "a", "1", &node), 0);
    EXPECT_EQ(node, Named(document, "a"));
    EXPECT_EQ(WQXXML_AddNodeChildItem(document.Root(), "b", nullptr, nullptr), 0);
    EXPECT_EQ(WQXXML_AddNodeChildItem_Reverse(document.Root(), "c", "3", &node), 0);
    EXPECT_EQ(node, Named(document, "c"));
    EXPECT_EQ(WQXXML_AddNodeChildItem_Reverse(node, "d", nullptr, nullptr), 0);
    EXPECT_EQ(document.Text(), "r(c(d() '3') 'x' a('1') b())");
    EXPECT_EQ(WQXXML_AddNodeChildItem_Reverse(document.Root()->child->next, "e", "5", nullptr), 0) << "of any type";
    EXPECT_EQ(document.Text(), "r(c(d() '3') 'x'(e('5')) a('1') b())");
    WQXXML_AddNodeChildItem(Named(document, "b"), "f", "%s", nullptr);
    EXPECT_EQ(WQXXML_DelNode(&document.xml, Named(document, "f")), 0);
    EXPECT_EQ(WQXXML_DelNode(&document.xml, Named(document, "e")), EINVAL) << "below elements only";
}

TEST(XmlDelete, OnlyElementsAreFound)
{
    XmlDocument document("<?xml?><!----><r>x<a/><!--c--><b>y</b></r>");
    XmlNode* const first = AsNode(document.xml);
    XmlNode* const root = document.Root();
    for (XmlNode* const node : {first->next, root->child, root->child->next->next, Named(document, "b")->child})
        EXPECT_EQ(WQXXML_DelNode(&document.xml, node), EINVAL);
    EXPECT_EQ(WQXXML_DelNode(&document.xml, Named(document, "a")), 0);
    EXPECT_EQ(WQXXML_DelNode(&document.xml, Named(document, "b")), 0);
    EXPECT_EQ(document.Text(), "?xml <!> r('x' <!c>)");
    EXPECT_EQ(WQXXML_DelNode(&document.xml, first), 0) << "the first of the document, whatever it is";
    EXPECT_EQ(document.Text(), "<!> r('x' <!c>)");
    EXPECT_EQ(WQXXML_DelNode(&document.xml, root), 0);
    EXPECT_EQ(document.Text(), "<!>");
    EXPECT_EQ(WQXXML_DelNode(&document.xml, document.xml), 0);
    EXPECT_EQ(document.xml, nullptr);
}

TEST(XmlDelete, TheOnlyElement)
{
    XmlDocument document("<r a='1'><b/></r>");
    EXPECT_EQ(WQXXML_DelNode(&document.xml, document.xml), 0);
    EXPECT_EQ(document.xml, nullptr);
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, "r", "n", nullptr), 0);
    EXPECT_EQ(document.Text(), "n()");
}

TEST(XmlDelete, OfAnotherDocument)
{
    XmlDocument document("<r><a/></r>");
    const XmlDocument other("<r><a/></r>");
    EXPECT_EQ(WQXXML_DelNode(&document.xml, other.Root()), EINVAL);
    EXPECT_EQ(WQXXML_DelNode(&document.xml, other.Root()->child), EINVAL);
    void* none = nullptr;
    EXPECT_EQ(WQXXML_DelNode(&none, other.Root()), EINVAL);
}

/// A node handed in as the document stands at the head of its chain no longer when it is deleted.
TEST(XmlDelete, ANodeThatIsTakenAsTheDocument)
{
    const XmlDocument document("<r><a/><b/></r>");
    void* chain = document.Root()->child;
    void* const second = document.Root()->child->next;
    EXPECT_EQ(WQXXML_DelNode(&chain, chain), 0);
    EXPECT_EQ(chain, second);
    EXPECT_EQ(document.Text(), "r(b(''))");
}

TEST(XmlDelete, BelowANodeThatIsTakenAsTheDocument)
{
    const XmlDocument document("<?xml version='1.0'?><r><a><b/></a><c/><d/></r>");
    const auto child = [&](int index) {
        void* node = nullptr;
        WQXXML_GetChildNode(Named(document, "r"), &index, &node);
        return node;
    };
    void* inner = child(1);
    EXPECT_EQ(WQXXML_DelNode(&inner, child(0)), EINVAL) << "which is in front of it";
    EXPECT_EQ(WQXXML_DelNode(&inner, Named(document, "b")), EINVAL) << "and so is this";
    EXPECT_EQ(WQXXML_DelNode(&inner, Named(document, "r")), EINVAL) << "and this above it";
    EXPECT_EQ(WQXXML_DelNode(&inner, child(2)), 0) << "which follows it";
    inner = child(0);
    EXPECT_EQ(WQXXML_DelNode(&inner, Named(document, "b")), 0);
    EXPECT_EQ(WQXXML_DelNode(&inner, child(1)), 0);
    void* root = Named(document, "r");
    EXPECT_EQ(WQXXML_DelNode(&root, inner), 0);
    EXPECT_EQ(root, Named(document, "r"));
    EXPECT_EQ(WQXXML_DelNode(&root, root), 0);
    EXPECT_EQ(root, nullptr);
    void* none = nullptr;
    EXPECT_EQ(WQXXML_GetRootNode(document.xml, 0, &none), ENOENT) << "the declaration stands alone";
}

TEST(XmlAttributes, AddChangeGet)
{
    XmlDocument document("<r A='1'><b/></r>");
    XmlNode* const root = document.Root();
    char* value = nullptr;
    EXPECT_EQ(WQXXML_GetAttribute(root, "a", &value), 0);
    EXPECT_STREQ(value, "1");
    EXPECT_EQ(WQXXML_GetAttribute(root, "b", &value), ENOENT);
    EXPECT_EQ(WQXXML_GetAttribute(root->child, "b", &value), ENOENT);
    EXPECT_EQ(WQXXML_GetAttribute(root, "none", nullptr), 0);
    EXPECT_EQ(WQXXML_AddAttribute(document.xml, "B", "x", "y"), 0);
    EXPECT_EQ(WQXXML_AddAttribute(document.xml, nullptr, "c", nullptr), 0);
    EXPECT_EQ(WQXXML_AddAttribute(document.xml, "none", "c", "d"), ENOENT);
    EXPECT_EQ(WQXXML_AddNodeAttribute(root, "a", "2"), 0);
    EXPECT_EQ(WQXXML_AddNodeAttribute(root, "C", nullptr), 0);
    EXPECT_EQ(WQXXML_AddNodeAttribute(root, "d", "%s"), 0);
    EXPECT_EQ(document.Text(), R"(r[A="2" c="" d="%s"](b[x="y"]('')))");
    EXPECT_EQ(WQXXML_ChangeAttribute(root, "D", "3"), 0);
    EXPECT_EQ(WQXXML_ChangeAttribute(root, "a", nullptr), 0);
    EXPECT_EQ(WQXXML_ChangeAttribute(root, "e", "3"), ENOENT);
    EXPECT_EQ(WQXXML_ChangeAttribute(root->child->child, "e", "3"), ENOENT);
    EXPECT_EQ(document.Text(), R"(r[A="" c="" d="3"](b[x="y"]('')))");
}

TEST(XmlRoots, ByIndex)
{
    XmlDocument document("<?xml?><!----><r/>");
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, nullptr, "s", nullptr), 0);
    char* name = nullptr;
    void* node = nullptr;
    for (const int index : {2, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(WQXXML_GetRootItem(document.xml, index, &name), ENOENT);
        EXPECT_EQ(WQXXML_GetRootNode(document.xml, index, &node), ENOENT);
    }
    EXPECT_EQ(WQXXML_GetRootItem(document.xml, 0, &name), 0);
    EXPECT_STREQ(name, "r");
    EXPECT_EQ(WQXXML_GetRootItem(document.xml, 1, &name), 0);
    EXPECT_STREQ(name, "s");
    EXPECT_EQ(WQXXML_GetRootNode(document.xml, 1, &node), 0);
    EXPECT_EQ(node, document.Root()->next);
}

TEST(XmlValues, OwnAndOfTheElement)
{
    XmlDocument document("<?xml?><r>x<a><b/>t</a><c><!--k--></c></r>");
    const char* own = "";
    char* value = nullptr;
    EXPECT_EQ(WQXXML_GetNodeValue(document.xml, &own), 0);
    EXPECT_EQ(own, nullptr) << "a declaration has none";
    EXPECT_EQ(WQXXML_GetElementValue(document.xml, &value), EINVAL);
    XmlNode* const root = document.Root();
    EXPECT_EQ(WQXXML_GetNodeValue(root, &own), 0);
    EXPECT_STREQ(own, "r");
    EXPECT_EQ(WQXXML_GetElementValue(root, &value), 0);
    EXPECT_STREQ(value, "x");
    for (const char* const name : {"a", "c"}) { // their first child is no text
        EXPECT_EQ(WQXXML_GetElementValue(Named(document, name), &value), EINVAL);
        EXPECT_EQ(WQXXML_ChangeElementValue(Named(document, name), "n"), EINVAL);
    }
    EXPECT_EQ(WQXXML_GetElementValue(root->child, &value), EINVAL);
    EXPECT_EQ(WQXXML_ChangeElementValue(root, "%n<&"), 0);
    EXPECT_EQ(WQXXML_ChangeNodeValue(root, "R"), 0);
    EXPECT_EQ(WQXXML_ChangeNodeValue(Named(document, "c")->child, "comment"), 0);
    EXPECT_EQ(document.Text(), "?xml R('%n<&' a(b('') 't') c(<!comment>))");
    EXPECT_EQ(WQXXML_ChangeElementValue(root, nullptr), 0);
    EXPECT_STREQ(root->child->value, "");
}

TEST(XmlValues, NullAndEmptyDiffer)
{
    XmlDocument document("<r/>");
    void* none = nullptr;
    void* empty = nullptr;
    char* value = nullptr;
    WQXXML_AddNodeChildItem(document.xml, "n", nullptr, &none);
    WQXXML_AddNodeChildItem(document.xml, "e", "", &empty);
    EXPECT_EQ(WQXXML_GetElementValue(none, &value), EINVAL);
    EXPECT_EQ(WQXXML_GetElementValue(empty, &value), 0);
    EXPECT_STREQ(value, "");
}

TEST(XmlValues, ChangedToPartsOfThemselves)
{
    XmlDocument document("<name at='attribute value'>text of it</name>");
    for (int turn = 0; turn < 3; ++turn) { // from the reader first, then texts of their own
        XmlNode* const root = document.Root();
        EXPECT_EQ(WQXXML_ChangeNodeValue(root, root->value + 1), 0);
        EXPECT_EQ(WQXXML_ChangeElementValue(root, root->child->value + 1), 0);
        EXPECT_EQ(WQXXML_ChangeAttribute(root, "at", root->attributes->value + 1), 0);
        EXPECT_EQ(WQXXML_AddNodeAttribute(root, "AT", root->attributes->value + 1), 0);
    }
    EXPECT_EQ(document.Text(), "e[at=\"ute value\"]('t of it')");
    XmlNode* const root = document.Root();
    EXPECT_EQ(WQXXML_ChangeNodeValue(root, root->value), 0);
    EXPECT_EQ(WQXXML_ChangeElementValue(root, root->attributes->value), 0);
    EXPECT_EQ(WQXXML_ChangeAttribute(root, root->attributes->name, root->attributes->name), 0);
    EXPECT_EQ(document.Text(), "e[at=\"at\"]('ute value')");
}

TEST(XmlChildren, ByIndex)
{
    const XmlDocument document("<r>x<a/>y<b/><!--c--><a>1</a></r>");
    XmlNode* const root = document.Root();
    int count = -1;
    EXPECT_EQ(WQXXML_GetChildNode(root, &count, nullptr), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(WQXXML_GetNextNode(root->child, &count, nullptr), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(WQXXML_GetNextNode(root->child->next, &count, nullptr), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(WQXXML_GetSpecifiedChildNode(root, &count, "a", nullptr), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(WQXXML_GetSpecifiedChildNode(root, &count, "A", nullptr), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(WQXXML_GetChildNode(root->child, &count, nullptr), 0);
    EXPECT_EQ(count, 0);
    void* node = nullptr;
    for (int bad : {3, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(WQXXML_GetChildNode(root, &bad, &node), EINVAL);
        EXPECT_EQ(WQXXML_GetNextNode(root->child, &bad, &node), EINVAL);
        node = root;
        EXPECT_EQ(WQXXML_GetSpecifiedChildNode(root, &bad, "a", &node), 0);
        EXPECT_EQ(node, nullptr);
    }
    int index = 1;
    EXPECT_EQ(WQXXML_GetChildNode(root, &index, &node), 0);
    EXPECT_EQ(node, Named(document, "b"));
    EXPECT_EQ(WQXXML_GetNextNode(root->child->next, &index, &node), 0);
    EXPECT_STREQ(AsNode(node)->child->value, "1");
    EXPECT_EQ(WQXXML_GetSpecifiedChildNode(root, &index, "a", &node), 0);
    EXPECT_STREQ(AsNode(node)->child->value, "1");
    EXPECT_EQ(index, 1) << "left as it was";
}

TEST(XmlChildren, Lists)
{
    const XmlDocument document("<r>a<a/><b/><!--a--><a/><!x></r>");
    XmlNode* const root = document.Root();
    char mark;
    const auto list = [&](int count, const char* name) {
        std::vector<void*> nodes(6, &mark);
        EXPECT_EQ(WQXXML_GetChildNodeList(root, count, name, nodes.data()), 0);
        std::string types;
        for (void* const node : nodes)
            types += node == nullptr ? "0" : node == &mark ? "." : std::to_string(AsNode(node)->type);
        return types;
    };
    EXPECT_EQ(list(6, "a"), "41210.") << "texts and comments of that value, too";
    EXPECT_EQ(list(5, "a"), "41210.");
    EXPECT_EQ(list(4, "a"), "4121..") << "no null when the list is full";
    EXPECT_EQ(list(2, "a"), "41....");
    EXPECT_EQ(list(0, "a"), "......");
    EXPECT_EQ(list(6, "A"), "0.....");
    EXPECT_EQ(list(6, ""), "0.....") << "a node without a value has no name";
    EXPECT_EQ(WQXXML_GetChildNodeList(root, 0, "a", nullptr), 0);
}

TEST(XmlChildren, Items)
{
    const XmlDocument document("<r><p>t<a>1<b/>2</a><c/><d><e/>later</d></p></r>");
    int index = -1;
    char* name = nullptr;
    char* value = nullptr;
    EXPECT_EQ(WQXXML_GetChildItem(document.xml, "P", &index, nullptr, &value), 0);
    EXPECT_EQ(index, 3);
    index = 7;
    EXPECT_EQ(WQXXML_GetChildItem(document.xml, "none", &index, &name, &value), 0);
    EXPECT_EQ(index, 0);
    EXPECT_EQ(name, nullptr);
    index = 7;
    EXPECT_EQ(WQXXML_GetChildItem(nullptr, nullptr, &index, &name, nullptr), 0);
    EXPECT_EQ(index, 0);
    EXPECT_EQ(WQXXML_GetChildItem(document.xml, "p", &(index = 2), &name, &value), 0);
    EXPECT_STREQ(name, "d");
    EXPECT_STREQ(value, "later") << "the first text, not the first child";
    EXPECT_EQ(WQXXML_GetChildItem(document.xml, "d", &(index = 0), &name, nullptr), 0);
    EXPECT_STREQ(name, "e");
    EXPECT_EQ(WQXXML_GetChildItem(document.xml, nullptr, &index, &name, &value), 0);
    EXPECT_STREQ(name, "p");
    EXPECT_STREQ(value, "t");
    for (int bad : {3, -1})
        EXPECT_EQ(WQXXML_GetChildItem(document.xml, "p", &bad, &name, &value), EINVAL);
    XmlDocument added("<r/>");
    WQXXML_AddNodeChildItem(added.xml, "n", nullptr, nullptr);
    EXPECT_EQ(WQXXML_GetChildItem(added.xml, "r", &index, &name, &value), 0);
    EXPECT_EQ(value, nullptr);
}

TEST(XmlKeys, Values)
{
    const XmlDocument document("<r><S><k>1</k><K>2</K><e/><d><x/>later</d><c><!--c-->t</c></S></r>");
    const char* value = "";
    const auto key = [&](const char* section, const char* name) {
        value = "old";
        EXPECT_EQ(WQXXML_GetKeyValue(document.xml, section, name, &value), 0);
        return support::OrNone(value);
    };
    EXPECT_EQ(key("s", "K"), "1");
    EXPECT_EQ(key("s", "E"), "");
    EXPECT_EQ(key("s", "d"), "later");
    EXPECT_EQ(key("s", "c"), "t");
    EXPECT_EQ(key("s", "none"), "(null)");
    EXPECT_EQ(key("none", "k"), "(null)");
    EXPECT_EQ(key(nullptr, "k"), "(null)") << "children only";
    const auto child = [&](const char* name) {
        value = "old";
        EXPECT_EQ(WQXXML_GetChildKeyValue(Named(document, "S"), name, &value), 0);
        return support::OrNone(value);
    };
    EXPECT_EQ(child("K"), "1");
    EXPECT_EQ(child("d"), "x") << "the first child, whatever it is";
    EXPECT_EQ(child("c"), "c");
    EXPECT_EQ(child("none"), "(null)");
}

TEST(XmlKeys, Nodes)
{
    const XmlDocument document("<r><S><k>1</k><K>2</K></S></r>");
    void* node = nullptr;
    EXPECT_EQ(WQXXML_GetKeyNode(document.xml, "s", "K", &node), 0);
    EXPECT_EQ(node, Named(document, "k"));
    EXPECT_EQ(WQXXML_GetKeyNode(document.xml, nullptr, "R", &node), 0);
    EXPECT_EQ(node, document.Root());
    EXPECT_EQ(WQXXML_GetKeyNode(document.xml, nullptr, "S", &node), ENOENT);
    EXPECT_EQ(WQXXML_GetKeyNode(document.xml, "s", "none", &node), ENOENT);
    EXPECT_EQ(WQXXML_GetKeyNode(document.xml, "none", "k", &node), ENOENT);
    EXPECT_EQ(WQXXML_GetKeyNode(nullptr, "s", "k", &node), ENOENT);
}

TEST(XmlFind, InTheOrderOfTheText)
{
    XmlDocument document("<r><a><X i='1'/></a><x i='2'/><!--x--></r>");
    EXPECT_EQ(WQXXML_AddAttribute(document.xml, "x", "found", "1"), 0);
    EXPECT_EQ(WQXXML_AddAttribute(document.xml, nullptr, "root", "1"), 0);
    EXPECT_EQ(WQXXML_AddAttribute(document.Root()->child->next, "x", "here", "1"), 0) << "a chain from there on";
    EXPECT_EQ(document.Text(), R"(r[root="1"](a(X[i="1" found="1"]('')) x[i="2" here="1"]('') <!x>))");
    EXPECT_EQ(WQXXML_AddAttribute(document.Root()->child->next, "a", "n", "1"), ENOENT) << "nothing before it";
}

TEST(XmlNameless, ElementsWithoutANameAreSurvived)
{
    XmlDocument document("\xEF\xBB\xBF<r><\xEF\xBB\xBF>");
    XmlNode* const node = document.Root()->child;
    ASSERT_EQ(node->value, nullptr);
    const char* own = "";
    char* name = nullptr;
    void* found = nullptr;
    int index = 0;
    EXPECT_EQ(WQXXML_GetNodeValue(node, &own), 0);
    EXPECT_EQ(own, nullptr);
    EXPECT_EQ(WQXXML_GetChildItem(document.xml, "r", &index, &name, nullptr), 0);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(WQXXML_GetKeyNode(document.xml, "r", "k", &found), ENOENT);
    EXPECT_EQ(WQXXML_GetSpecifiedChildNode(document.Root(), &index, "k", &found), 0);
    EXPECT_EQ(WQXXML_GetChildNodeList(document.Root(), 1, "k", &found), 0);
    EXPECT_EQ(WQXXML_AddAttribute(document.xml, "k", "a", "b"), ENOENT);
    EXPECT_EQ(document.Output(), "<r>\n  <></>\n</r>\n");
    EXPECT_EQ(WQXXML_ChangeNodeValue(node, "n"), 0);
    EXPECT_EQ(document.Text(), "r(n())");
    EXPECT_EQ(WQXXML_DelNode(&document.xml, node), 0);
}

TEST(XmlErrors, Texts)
{
    support::Buffer buffer(256);
    for (const int code : {0, EINVAL, ENOMEM, ENOENT, 5, 133}) {
        EXPECT_EQ(WQXXML_GetErrorString(code, buffer.Data()), buffer.Data());
        EXPECT_EQ(buffer.Text(), strerror(code));
    }
    const std::string unknown = "\xCE\xB4\xD6\xAA\xB4\xED\xCE\xF3"; // GBK
    for (const int code : {-1, -7, -10, -1000, INT_MIN}) {
        WQXXML_GetErrorString(code, buffer.Data());
        EXPECT_EQ(buffer.Text(), unknown) << code;
    }
    std::vector<std::string> texts;
    for (const int code : {-9, -8, -6, -5, -4, -3}) {
        WQXXML_GetErrorString(code, buffer.Data());
        texts.push_back(buffer.Text());
        EXPECT_NE(texts.back(), unknown);
    }
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(std::unique(texts.begin(), texts.end()), texts.end());
    EXPECT_TRUE(buffer.GuardIntact());
    char* const shared = WQXXML_GetErrorString(EINVAL, nullptr);
    EXPECT_STREQ(shared, strerror(EINVAL));
    EXPECT_EQ(WQXXML_GetErrorString(ENOENT, nullptr), shared);
    EXPECT_STREQ(shared, strerror(ENOENT));
}

class RandomChoices final : public support::model::Choices {
public:
    explicit RandomChoices(unsigned seed) : random_(seed) {}
    unsigned Below(unsigned end) override { return static_cast<unsigned>(random_() % end); }

private:
    std::mt19937 random_;
};

/// Checked after every step: no change may leave a remembered place that is wrong.
TEST(XmlModel, RandomEdits)
{
    const char* const given = getenv("ZKQ_TEST_SEED");
    const auto first = static_cast<unsigned>(given == nullptr ? 7 : strtoul(given, nullptr, 10));
    std::string many = "<r>";
    for (int i = 0; i < 60; ++i)
        many += i % 3 == 0 ? "<a i='1'>x</a>" : "<b/>t";
    const std::string texts[] = {many + "</r>", "<?xml version='1'?><r a='1'><a/>x<b>y</b><!--c--><![CDATA[z]]></r>",
                                 "<!-- c -->", " "};
    for (unsigned seed = first; seed < first + 40; ++seed) {
        RandomChoices choices(seed);
        support::model::XmlEditor editor(texts[seed % std::size(texts)], &choices);
        for (int step = 0; step < 500; ++step) {
            ASSERT_EQ(editor.Step(), "") << "seed " << seed << " step " << step;
            ASSERT_EQ(editor.Compare(), "") << "seed " << seed << " step " << step;
        }
    }
}

std::vector<void*> AllElementsBelow(XmlNode* root)
{
    std::vector<void*> elements;
    for (XmlNode* node = root->child; node != nullptr; node = node->next)
        if (node->type == support::kElement)
            elements.push_back(node);
    return elements;
}

TEST(XmlDelete, OneByOneInAnyOrderAndByAnyThread)
{
    std::string text = "<r>";
    for (int i = 0; i < 20000; ++i)
        text += "<a b='c'>text<x/></a>";
    for (int order = 0; order < 3; ++order) {
        XmlDocument document(text + "</r>");
        std::vector<void*> nodes = AllElementsBelow(document.Root());
        if (order == 1)
            std::reverse(nodes.begin(), nodes.end());
        else if (order == 2)
            std::shuffle(nodes.begin(), nodes.end(), std::mt19937(5));
        std::thread([&] {
            for (void* const node : nodes)
                ASSERT_EQ(WQXXML_DelNode(&document.xml, node), 0);
        }).join();
        EXPECT_EQ(document.Text(), "r()");
        EXPECT_EQ(WQXXML_DelNode(&document.xml, document.Root()), 0);
        EXPECT_EQ(document.xml, nullptr);
    }
}

TEST(XmlDelete, FromTheInside)
{
    constexpr int levels = 3000;
    std::string text;
    for (int i = 0; i < levels; ++i)
        text += "<a>";
    XmlDocument document(text);
    std::vector<XmlNode*> nodes;
    for (XmlNode* node = document.Root(); node != nullptr && node->type == support::kElement; node = node->child)
        nodes.push_back(node);
    ASSERT_EQ(nodes.size(), static_cast<size_t>(levels));
    for (; !nodes.empty(); nodes.pop_back())
        ASSERT_EQ(WQXXML_DelNode(&document.xml, nodes.back()), 0);
    EXPECT_EQ(document.xml, nullptr);
}

TEST(XmlDeep, LookedUpChangedAndReleased)
{
    std::string text;
    for (int i = 0; i < 1000000; ++i)
        text += "<a>";
    XmlDocument document(text + "<last k='1'/>");
    EXPECT_EQ(WQXXML_AddAttribute(document.xml, "LAST", "k", "2"), 0);
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, "last", "new", "x"), 0);
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, "none", "new", "x"), ENOENT);
    EXPECT_EQ(WQXXML_DelNode(&document.xml, document.Root()->child), 0);
    EXPECT_EQ(document.Text(), "a()");
}

/// A document made node by node, a million levels deep; released through one pointer.
TEST(XmlDeep, MadeNodeByNode)
{
    XmlDocument document("<a/>");
    void* node = document.xml;
    for (int i = 0; i < 1000000; ++i)
        ASSERT_EQ(WQXXML_AddNodeChildItem(node, "a", nullptr, &node), 0);
}

TEST(XmlWalks, ByGrowingIndexOverMany)
{
    constexpr int count = 200000;
    XmlDocument document("<r/>");
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(WQXXML_AddNodeChildItem(document.xml, i % 2 == 0 ? "a" : "b", nullptr, nullptr), 0);
    const std::vector<void*> nodes = AllElementsBelow(document.Root());
    for (int i = 0; i < count; ++i) {
        void* node = nullptr;
        ASSERT_EQ(WQXXML_GetChildNode(document.xml, &i, &node), 0);
        ASSERT_EQ(node, nodes[static_cast<size_t>(i)]);
        int half = i / 2;
        ASSERT_EQ(WQXXML_GetSpecifiedChildNode(document.xml, &half, "b", &node), 0);
        ASSERT_EQ(node, nodes[static_cast<size_t>(half) * 2 + 1]);
        char* name = nullptr;
        ASSERT_EQ(WQXXML_GetChildItem(document.xml, "r", &i, &name, nullptr), 0);
        if (i + 1 < count) {
            ASSERT_EQ(WQXXML_GetNextNode(nodes[0], &i, &node), 0);
            ASSERT_EQ(node, nodes[static_cast<size_t>(i) + 1]);
        }
    }
}

TEST(XmlMemory, NothingLeaks)
{
    support::ExpectNothingLeaks([] {
        XmlDocument document("<r a='1'><a>x</a><b><c/></b></r>");
        void* const root = document.xml;
        WQXXML_AddChildItem(&document.xml, "a", "n", "v");
        WQXXML_AddChildItem(&document.xml, "none", "n", "v");
        WQXXML_AddChildItem(&document.xml, nullptr, "s", "v");
        WQXXML_AddNodeChildItem_Reverse(root, "n", "v", nullptr);
        WQXXML_AddNodeAttribute(root, "a", "2");
        WQXXML_AddNodeAttribute(root, "b", "2");
        WQXXML_ChangeAttribute(root, "a", "3");
        WQXXML_ChangeNodeValue(root, "rr");
        WQXXML_ChangeElementValue(Named(document, "a"), "new");
        WQXXML_DelNode(&document.xml, Named(document, "b"));
        for (int i = 0; i < 40; ++i) {
            void* node = nullptr;
            WQXXML_AddNodeChildItem(root, "n", "v", nullptr);
            WQXXML_GetChildNode(root, &i, &node);
        }
        WQXXML_DelNode(&document.xml, document.xml);
    });
}

} // namespace
