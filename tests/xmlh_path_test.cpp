// Paths: which element each finds, adds, changes, deletes, and how each that finds none fails.
#include <ZKQ_general.h>
#include <errno.h>

#include <chrono>

#include "support/xml_handle.h"

namespace {

using support::ExactText;
using support::Flat;
using support::XmlHandle;

constexpr int kBadHandle = 9;
constexpr int kBadPath = 20;

char g_sentinel;

// Finding

constexpr char kDocument[] =
    "<?xml version='1.0'?><Root>text<a id='1' kind='x'>first</a><a id='2' kind='y'>second</a>"
    "<!-- a --><A id='3'>upper</A><b><c>deep</c><c p='q'>deeper</c></b><a id='2' kind='z'>third</a>"
    "<e n=' padded ' m='/'>odd</e><a.b-c_d:e>named</a.b-c_d:e></Root>";

struct FindRow {
    const char* path;
    const char* value; ///< what the element begins with, or the code in parentheses
};

TEST(XmlPathFind, SelectsTheFirstElementThatMeetsEverything)
{
    const FindRow rows[] = {
        {"/Root", "text"},
        {"/Root/", "text"},
        {"/root/a", "first"},
        {"/ROOT/a", "first"},
        {"/Root/A", "upper"},
        {"/Root/a/", "first"},
        {"/Root/a[id=1]", "first"},
        {"/Root/a[id=2]", "second"},
        {"/Root/a[ID=2]", "second"},
        {"/Root/a[id=2&kind=z]", "third"},
        {"/Root/a[kind=z&id=2]", "third"},
        {"/Root/a[kind=z&id=2]/", "third"},
        {"/Root/a[id=3]", "(2)"},
        {"/Root/a[kind=X]", "(2)"},
        {"/Root/a[id=1&kind=y]", "(2)"},
        {"/Root/A[id=3]", "upper"},
        {"/Root/b/c", "deep"},
        {"/Root/b/c[p=q]", "deeper"},
        {"/Root/b/c/d", "(20)"},
        {"/Root/c", "(20)"},
        {"/Root/d", "(20)"},
        {"/Root/d[id=1]", "(20)"},
        {"/Root/b[id=1]/c", "(2)"},
        {"/Root/a.b-c_d:e", "named"},
        {"/Root/#text", "(20)"},
        {"/Root/text", "(20)"},
        {"/Root/ a ", "(20)"},
        {"/Other", "(20)"},
        {"/Roo", "(20)"},
        {"/Roots/a", "(20)"},
        {"/Root[x=1]", "(20)"},
        {"/a", "(20)"},
    };
    const XmlHandle handle(kDocument, 0);
    for (const FindRow& row : rows)
        EXPECT_EQ(handle.Value(row.path), row.value) << row.path;
}

TEST(XmlPathFind, TrimsConditions)
{
    const FindRow rows[] = {
        {"/Root/a[ id = 2 ]", "second"},     {"/Root/a[\tid\t=\t2\t]", "second"},
        {"/Root/a[\"id\"=\"2\"]", "second"}, {"/Root/a[\" id \"=\" 2 \" & kind=\"z\"]", "third"},
        {"/Root/e[n=\" padded \"]", "(2)"}, // what is trimmed cannot be asked for
        {"/Root/a['id'='2']", "(2)"},        {"/Root/a[id='2']", "(2)"},
        {"/Root/a[id=\n2]", "(2)"},          {"/Root/a[id=2\"2]", "(2)"},
    };
    const XmlHandle handle(kDocument, 0);
    for (const FindRow& row : rows)
        EXPECT_EQ(handle.Value(row.path), row.value) << row.path;
}

TEST(XmlPathFind, RunsOfSeparatorsAreOne)
{
    const FindRow rows[] = {
        {"//Root//a", "first"},
        {"///Root", "text"},
        {"/Root///a//", "first"},
        {"/Root/b//c[p=q]///", "deeper"},
        {"/Root/a[id=2&&kind=z]", "third"},
        {"/Root/a[&id=2&]", "second"},
        {"/Root/a[id==2]", "second"},
        {"/Root/a[=id=2=]", "second"},
        {"/Root/a[[id=2]]", "second"},
        {"/Root/a]id=2[", "second"},
        {"/Root/a[]", "first"},
        {"/Root/a[[[", "first"},
        {"/Root/a]", "first"},
        {"/Root/a[id=2", "second"},
        {"/Root/[a[id=2]", "second"},
        {"/Root/]a", "first"},
        {"//", "(20)"},
        {"////", "(20)"},
        {"/Root/[]", "(20)"},
        {"/Root/[/a", "(20)"},
        {"/[]", "(20)"},
        {"/[Root]", "(20)"},
    };
    const XmlHandle handle(kDocument, 0);
    for (const FindRow& row : rows)
        EXPECT_EQ(handle.Value(row.path), row.value) << row.path;
}

TEST(XmlPathFind, RefusesWhatHasNotTheFormOfAPath)
{
    const char* const paths[] = {"",
                                 "/",
                                 "Root",
                                 "Root/a",
                                 " /Root",
                                 "\\Root",
                                 "[/Root]",
                                 "/Root/a[x=1][y=2]",
                                 "/Root/a[x=1]b",
                                 "/Root/a[x=1]]b",
                                 "/Root/a[x]",
                                 "/Root/a[x=]",
                                 "/Root/a[=1]",
                                 "/Root/a[=]",
                                 "/Root/a[&]",
                                 "/Root/a[ ]",
                                 "/Root/a[id=1=2]",
                                 "/Root/a[id=1&x]",
                                 "/Root/a[x&id=1]",
                                 "/Root/a[id=1&=]"};
    XmlHandle handle(kDocument);
    const std::string before = XmlHandle(kDocument).Finish();
    for (const char* path : paths) {
        EXPECT_EQ(handle.Value(path), "(20)") << path;
        void* node = &g_sentinel;
        EXPECT_EQ(WQXXMLH_Misc_GetNodeFromPath_AutoAdd(handle, ExactText(path).get(), &node), kBadPath) << path;
        EXPECT_EQ(WQXXMLH_AddElementValue(handle, path, "n", "v"), kBadPath) << path;
        EXPECT_EQ(WQXXMLH_DeleteElement(handle, path), kBadPath) << path;
        EXPECT_EQ(node, &g_sentinel);
    }
    EXPECT_EQ(handle.Finish(), before);
}

TEST(XmlPathFind, NullArguments)
{
    XmlHandle handle("<r><a k='v'>1</a></r>");
    void* node = &g_sentinel;
    char* value = &g_sentinel;
    EXPECT_EQ(WQXXMLH_GetNodeFromPath(nullptr, "/r", &node), kBadHandle);
    EXPECT_EQ(WQXXMLH_GetNodeFromPath(handle, nullptr, &node), kBadHandle);
    EXPECT_EQ(WQXXMLH_GetNodeFromPath(nullptr, nullptr, &node), kBadHandle);
    EXPECT_EQ(WQXXMLH_GetNodeFromPath(nullptr, "bad", &node), kBadHandle);
    EXPECT_EQ(WQXXMLH_GetNodeFromPath(handle, "/r", nullptr), EINVAL);
    EXPECT_EQ(WQXXMLH_Misc_GetNodeFromPath_AutoAdd(nullptr, "/r", &node), kBadHandle);
    EXPECT_EQ(WQXXMLH_Misc_GetNodeFromPath_AutoAdd(handle, nullptr, &node), kBadHandle);
    EXPECT_EQ(WQXXMLH_Misc_GetNodeFromPath_AutoAdd(handle, "/r", nullptr), EINVAL);
    EXPECT_EQ(WQXXMLH_GetElementValue(handle, "/r/a", nullptr), EINVAL);
    EXPECT_EQ(WQXXMLH_GetElementValue(nullptr, "/r/a", &value), kBadHandle);
    EXPECT_EQ(WQXXMLH_GetElementValue(handle, nullptr, &value), kBadHandle);
    EXPECT_EQ(WQXXMLH_GetElementAttribute(handle, "/r/a", nullptr, &value), EINVAL);
    EXPECT_EQ(WQXXMLH_GetElementAttribute(handle, "/r/a", "k", nullptr), EINVAL);
    EXPECT_EQ(WQXXMLH_GetElementAttribute(nullptr, "/r/a", "k", &value), kBadHandle);
    EXPECT_EQ(WQXXMLH_AddElementValue(nullptr, "/r", "n", "v"), kBadHandle);
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, nullptr, "n", "v"), kBadHandle);
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", nullptr, "v"), EINVAL);
    EXPECT_EQ(WQXXMLH_AddElementAttribute(nullptr, "/r", "n", "v"), kBadHandle);
    EXPECT_EQ(WQXXMLH_AddElementAttribute(handle, "/r", nullptr, "v"), EINVAL);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(nullptr, "/r", "v"), kBadHandle);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, nullptr, "v"), kBadHandle);
    EXPECT_EQ(WQXXMLH_ChangeElementName(handle, "/r", nullptr), EINVAL);
    EXPECT_EQ(WQXXMLH_ChangeElementName(nullptr, "/r", "n"), kBadHandle);
    EXPECT_EQ(WQXXMLH_ChangeElementAttribute(handle, "/r/a", nullptr, "v"), EINVAL);
    EXPECT_EQ(WQXXMLH_ChangeElementAttribute(nullptr, "/r/a", "k", "v"), kBadHandle);
    EXPECT_EQ(WQXXMLH_DeleteElement(nullptr, "/r"), kBadHandle);
    EXPECT_EQ(WQXXMLH_DeleteElement(handle, nullptr), kBadHandle);
    EXPECT_EQ(WQXXMLH_Copy(nullptr, "/r", handle, "/r"), kBadHandle);
    EXPECT_EQ(WQXXMLH_Copy(handle, nullptr, handle, "/r"), kBadHandle);
    EXPECT_EQ(WQXXMLH_Copy(handle, "/r", nullptr, "/r"), kBadHandle);
    EXPECT_EQ(WQXXMLH_Copy(handle, "/r", handle, nullptr), kBadHandle);
    EXPECT_EQ(node, &g_sentinel);
    EXPECT_EQ(value, &g_sentinel);
    EXPECT_EQ(Flat(handle.Finish()), "<r><a k=\"v\">1</a></r>");
}

TEST(XmlPathFind, WithoutARootIsNotFound)
{
    for (const char* text : {" ", "<?xml version='1.0'?>", "<!-- c --><r/>", "<!DOCTYPE r><r/>"}) {
        const XmlHandle handle(text, 0);
        for (const char* path : {"/r", "/r/a", "/r[x]", "/r/[", "/ "})
            EXPECT_EQ(handle.Value(path), "(2)") << text << path;
        EXPECT_EQ(handle.Value("//"), "(20)") << "there is no name at all";
        EXPECT_EQ(handle.Value("r"), "(20)");
    }
}

TEST(XmlPathFind, AMissingAttributeCountsAsTheTextComparedBefore)
{
    struct Row {
        const char* document;
        const char* path;
        const char* value;
    };
    const Row rows[] = {
        // Nothing was compared yet: as if it were empty.
        {"<r><a>1</a></r>", "/r/a[x=\"\"]", "1"},
        {"<r><a x=''>1</a></r>", "/r/a[x=\"\"]", "1"},
        {"<r><a x='v'>1</a></r>", "/r/a[x=\"\"]", "(2)"},
        {"<r><a>1</a></r>", "/r/a[x=v]", "(2)"},
        // From condition to condition.
        {"<r><a k='v'>1</a></r>", "/r/a[k=v&x=v]", "1"},
        {"<r><a k='v'>1</a></r>", "/r/a[x=v&k=v]", "(2)"},
        {"<r><a k='v'>1</a></r>", "/r/a[k=v&x=w]", "(2)"},
        {"<r><a k='v'>1</a></r>", "/r/a[k=v&x=v&y=v]", "1"},
        // From element to element, also from a comparison that failed.
        {"<r><a k='v'>1</a><a>2</a></r>", "/r/a[k=w]", "(2)"},
        {"<r><a k='v' j='1'>1</a><a j='2'>2</a></r>", "/r/a[j=2&k=2]", "2"},
        {"<r><a k='v' j='1'>1</a><a j='2'>2</a></r>", "/r/a[k=v&j=2]", "(2)"},
        {"<r><a j='v'>1</a><a>2</a></r>", "/r/a[k=\"\"&j=x]", "(2)"},
        {"<r><a k='1' j='v'>1</a><a j='2'>2</a></r>", "/r/a[k=1&j=2]", "(2)"},
        {"<r><a k='v' j='w'>1</a><a j='2'>2</a></r>", "/r/a[k=w&j=2]", "(2)"},
        {"<r><a k='1'>1</a><a j='2'>2</a></r>", "/r/a[k=1&j=2]", "2"},
        {"<r><a k='1' j='1'>1</a><a j='2'>2</a></r>", "/r/a[k=1&j=2]", "2"},
        {"<r><a k='1' j='1'>1</a><z k='5'/><a j='2'>2</a></r>", "/r/a[k=1&j=2]", "2"},
        // Not from segment to segment.
        {"<r><a k='v'><b>1</b></a></r>", "/r/a[k=v]/b[x=v]", "(2)"},
        {"<r><a k='v'><b>1</b></a></r>", "/r/a[k=v]/b[x=\"\"]", "1"},
    };
    for (const Row& row : rows) {
        const XmlHandle handle(row.document, 0);
        EXPECT_EQ(handle.Value(row.path), row.value) << row.document << ' ' << row.path;
        EXPECT_EQ(handle.Value(row.path), row.value) << "the search before is forgotten";
    }
}

TEST(XmlPathFind, OnlyElementsAreLookedAt)
{
    const XmlHandle handle("<r><!--a--><![CDATA[a]]><a>x</a></r>", 0);
    EXPECT_EQ(handle.Value("/r/a"), "x");
    EXPECT_EQ(handle.Value("/r"), "(22)") << "it begins with a comment";
    // A child whose reading failed without a name is passed over.
    const XmlHandle broken("<r><a>1</a><>", 0);
    EXPECT_EQ(broken.Value("/r/a"), "1");
    EXPECT_EQ(broken.Value("/r/b"), "(20)");
}

TEST(XmlPathFind, EscapedSlashesStandInEverySegment)
{
    XmlHandle handle("<r><a p='x/y' q='\\x2F'>1</a></r>");
    EXPECT_EQ(handle.Value("/r/a[p=x\\x2fy]"), "1");
    EXPECT_EQ(handle.Value("/r/a[q=\\x2F]"), "1") << "capitals mean themselves";
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "b/c", "2"), 0);
    EXPECT_EQ(handle.Value("/r/b\\x2fc"), "2");
    EXPECT_EQ(handle.Value("/r/b/c"), "(20)");
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r/\\x2f\\x2fd[k=\\x2f]", "e", "3"), 0);
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r/f\\x2\\x2ff", "e", "4"), 0) << "a result is not looked at again";
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r/g\\x2", "e", "5"), 0);
    EXPECT_EQ(Flat(handle.Finish()), "<r><a p=\"x/y\" q=\"\\x2F\">1</a><b/c>2</b/c><//d k=\"/\"><e>3</e><///d><f\\x2/f>"
                                     "<e>4</e></f\\x2/f><g\\x2><e>5</e></g\\x2></r>");

    XmlHandle root("<?xml version='1.0'?>");
    EXPECT_EQ(WQXXMLH_AddElementValue(root, "/a\\x2fb[p=\\x2f]", "c", "1"), 0);
    EXPECT_EQ(root.Value("/A\\x2fB/c"), "1");
    EXPECT_EQ(root.Value("/a/b/c"), "(20)");
    EXPECT_EQ(Flat(root.Finish()), "<a/b p=\"/\"><c>1</c></a/b>");
}

// Adding

struct AddRow {
    const char* document;
    const char* path;
    int result;
    const char* after;
};

TEST(XmlPathAdd, MakesWhatIsMissing)
{
    const AddRow rows[] = {
        {" ", "/r", 0, "<r></r>"},
        {" ", "/r/", 0, "<r></r>"},
        {" ", "/r/a/b", 0, "<r><a><b></b></a></r>"},
        {" ", "/r[x=1&y=\"2 3\"]/a", 0, "<r x=\"1\" y=\"2 3\"><a></a></r>"},
        {" ", "/[r]", 0, "<r></r>"},
        {" ", "/r[x=1][y=2]", kBadPath, ""},
        {" ", "/[]", kBadPath, ""},
        {" ", "/r[x y=1]/a", EINVAL, "<r></r>"},
        {"<!-- c -->", "/r", 0, "<r></r>"},
        {"<!DOCTYPE x>", "/r", 0, "<r></r>"},
        {"<r/>", "/r/b[k=v]/c", 0, "<r><b k=\"v\"><c></c></b></r>"},
        {"<r><b/></r>", "/r/b[k=v]/c", 0, "<r><b></b><b k=\"v\"><c></c></b></r>"},
        {"<r><b k='v'/></r>", "/r/b[k=v]/c", 0, "<r><b k=\"v\"><c></c></b></r>"},
        {"<r><b k='w'/></r>", "/R/b[k=v]", 0, "<r><b k=\"w\"></b><b k=\"v\"></b></r>"},
        {"<r><B/></r>", "/r/b", 0, "<r><B></B><b></b></r>"},
        {"<r>t<b/>u</r>", "/r/c", 0, "<r>t<b></b>u<c></c></r>"},
        {"<r/>", "/r/b[k=1&K=2]", 0, "<r><b k=\"2\"></b></r>"},
        {"<r/>", "/r/b[k=\"\"]", 0, "<r><b k=\"\"></b></r>"},
        {"<r><b/></r>", "/r/b[k=\"\"]", 0, "<r><b></b></r>"}, // it has as good as an empty one
        {"<r><b k='v'/></r>", "/r/b[k=v&j=v]", 0, "<r><b k=\"v\"></b></r>"},
        {"<r><b><c>1</c></b><b/></r>", "/r/b/c", 0, "<r><b><c>1</c></b><b></b></r>"},
        {"<r><b/><b><c>1</c></b></r>", "/r/b/c", 0, "<r><b><c></c></b><b><c>1</c></b></r>"},
        {"<r/>", "/r[x=1]", kBadPath, "<r></r>"},
        {"<r/>", "/s", kBadPath, "<r></r>"},
        {"<r/>", "/s/a", kBadPath, "<r></r>"},
        {"<r/>", "/r/a/b[x]", kBadPath, "<r><a></a></r>"}, // what was made before a failure stays
        {"<r/>", "/r/a/b[x]/c", kBadPath, "<r><a></a></r>"},
        {"<r/>", "/r/a[k=1&<j=2&l=3]/b", EINVAL, "<r><a k=\"1\"></a></r>"},
        {"<r/>", "/r/a[k@=1]", EINVAL, "<r><a></a></r>"},
        {"<r/>", "/r/a[k=<@ >]", 0, "<r><a k=\"<@ >\"></a></r>"}, // values may be any
        {"<r/>", "/r/<a b>", 0, "<r><<a b>></<a b>></r>"},        // and so may the name, from a path
        {"<r/>", "/r/%s%n[%d=%x]", 0, "<r><%s%n %d=\"%x\"></%s%n></r>"},
        {"<r/>", "/r/\xff\x01", 0, "<r><\xff\x01></\xff\x01></r>"},
    };
    for (const AddRow& row : rows) {
        XmlHandle handle(row.document);
        void* node = &g_sentinel;
        EXPECT_EQ(WQXXMLH_Misc_GetNodeFromPath_AutoAdd(handle, ExactText(row.path).get(), &node), row.result)
            << row.document << ' ' << row.path;
        EXPECT_EQ(node == &g_sentinel, row.result != 0) << row.path;
        EXPECT_EQ(Flat(handle.Finish()), row.after) << row.document << ' ' << row.path;
    }
}

TEST(XmlPathAdd, FindsAgainWhatItMade)
{
    XmlHandle handle(" ");
    void* made = nullptr;
    void* found = nullptr;
    for (const char* path : {"/r/a[x=1]", "/r/a[x=2]", "/r/a[x=2]/b", "/r/c[d=\"\"]", "/r/e[f=1&g=\" 2\"]"}) {
        ASSERT_EQ(WQXXMLH_Misc_GetNodeFromPath_AutoAdd(handle, path, &made), 0) << path;
        ASSERT_EQ(WQXXMLH_GetNodeFromPath(handle, path, &found), 0) << path;
        EXPECT_EQ(found, made);
        ASSERT_EQ(WQXXMLH_Misc_GetNodeFromPath_AutoAdd(handle, path, &found), 0) << path;
        EXPECT_EQ(found, made);
        EXPECT_EQ(handle.Value(path), "(22)") << "it has no text, not even an empty one";
    }
}

TEST(XmlPathAdd, AddsValues)
{
    XmlHandle handle("<r/>");
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r/b[k=v]/c", "d", "1"), 0);
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r/b[k=v]/c", "d", nullptr), 0);
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "e", "<&%s%n"), 0);
    EXPECT_EQ(handle.Value("/r/b/c/d"), "1");
    for (const char* name : {"x y", " ", "<x", "x>", "x@y"})
        EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", name, "1"), EINVAL) << name;
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "", "1"), EINVAL);
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r/new", "x y", "1"), EINVAL);
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "t\t[=&/]\x80%s", ""), 0) << "no other byte is looked at";
    EXPECT_EQ(Flat(handle.Finish()),
              "<r><b k=\"v\"><c><d>1</d><d></d></c></b><e><&%s%n</e><new></new><t\t[=&/]\x80%s></t\t"
              "[=&/]\x80%s></r>");
}

TEST(XmlPathAdd, AddsAndReplacesAttributes)
{
    XmlHandle handle("<r A='1'/>");
    EXPECT_EQ(WQXXMLH_AddElementAttribute(handle, "/r", "a", "2"), 0);
    EXPECT_EQ(WQXXMLH_AddElementAttribute(handle, "/r", "b", nullptr), 0);
    EXPECT_EQ(WQXXMLH_AddElementAttribute(handle, "/r/n[x=1]", "y", "\"<"), 0);
    for (const char* name : {"x y", "<x", "x>", "x@y"})
        EXPECT_EQ(WQXXMLH_AddElementAttribute(handle, "/r", name, "1"), EINVAL) << name;
    EXPECT_EQ(handle.Attribute("/r", "A"), "2");
    EXPECT_EQ(handle.Attribute("/r", "B"), "");
    EXPECT_EQ(handle.Attribute("/r", "c"), "(2)");
    EXPECT_EQ(handle.Attribute("/r/none", "c"), "(20)");
    EXPECT_EQ(Flat(handle.Finish()), "<r A=\"2\" b=\"\"><n x=\"1\" y=\"\"<\"></n></r>");
}

// Changing

TEST(XmlPathChange, Values)
{
    XmlHandle handle("<r><a k='1 2'>1</a><a k='3'>2</a><c><!--x--></c><d><e/></d></r>");
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/a", "new"), 0);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/a[k=3]", nullptr), 0);
    EXPECT_EQ(handle.Value("/r/a[k=3]"), "");
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/c", "1"), EINVAL) << "it begins with a comment";
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/d", "1"), EINVAL) << "it begins with an element";
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/none", "1"), kBadPath) << "nothing is added";
    // The path is checked as a name is, once the element has been found.
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/a[k=1 2]", "x"), EINVAL);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/a[ k=3]", "x"), EINVAL);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/a[k=3 3]", "x"), ENOENT);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/a[k=3@]", "x"), ENOENT);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/a[\tk=3]", "tab"), 0);
    // To itself, and to a part of itself.
    char* value = nullptr;
    ASSERT_EQ(WQXXMLH_GetElementValue(handle, "/r/a", &value), 0);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/a", value + 1), 0);
    EXPECT_EQ(Flat(handle.Finish()), "<r><a k=\"1 2\">ew</a><a k=\"3\">tab</a><c></c><d><e></e></d></r>");
}

TEST(XmlPathChange, Names)
{
    XmlHandle handle("<r><a>1</a><a>2</a></r>");
    EXPECT_EQ(WQXXMLH_ChangeElementName(handle, "/r/a", "b"), 0);
    EXPECT_EQ(handle.Value("/r/a"), "2");
    EXPECT_EQ(WQXXMLH_ChangeElementName(handle, "/r", "Root"), 0);
    EXPECT_EQ(handle.Value("/root/b"), "1");
    EXPECT_EQ(handle.Value("/r/b"), "(20)");
    for (const char* name : {"x y", "<x", "x>", "x@y", " "})
        EXPECT_EQ(WQXXMLH_ChangeElementName(handle, "/Root", name), EINVAL) << name;
    EXPECT_EQ(WQXXMLH_ChangeElementName(handle, "/Root/none", "x y"), kBadPath);
    EXPECT_EQ(WQXXMLH_ChangeElementName(handle, "/Root/a[k=v]", "c"), ENOENT);
    EXPECT_EQ(Flat(handle.Finish()), "<Root><b>1</b><a>2</a></Root>");
}

TEST(XmlPathChange, Attributes)
{
    XmlHandle handle("<r><a Key='1'>1</a></r>");
    EXPECT_EQ(WQXXMLH_ChangeElementAttribute(handle, "/r/a", "kEY", "2"), 0);
    EXPECT_EQ(handle.Attribute("/r/a", "key"), "2");
    EXPECT_EQ(WQXXMLH_ChangeElementAttribute(handle, "/r/a", "other", "2"), ENOENT);
    EXPECT_EQ(WQXXMLH_ChangeElementAttribute(handle, "/r", "key", "2"), ENOENT);
    EXPECT_EQ(WQXXMLH_ChangeElementAttribute(handle, "/r/a", "k y", "2"), EINVAL);
    EXPECT_EQ(WQXXMLH_ChangeElementAttribute(handle, "/r/n", "Key", "2"), kBadPath);
    EXPECT_EQ(WQXXMLH_ChangeElementAttribute(handle, "/r/a[Key=2]", "Key", nullptr), 0);
    EXPECT_EQ(Flat(handle.Finish()), "<r><a Key=\"\">1</a></r>");
}

// Deleting

TEST(XmlPathDelete, TakesTheElementWithAllBelow)
{
    XmlHandle handle("<r>t<a>1</a><a k='2'><b><c/></b></a>u<a>3</a></r>");
    EXPECT_EQ(WQXXMLH_DeleteElement(handle, "/r/a[k=2]"), 0);
    EXPECT_EQ(handle.Value("/r/a[k=2]"), "(2)");
    EXPECT_EQ(WQXXMLH_DeleteElement(handle, "/r/a"), 0);
    EXPECT_EQ(handle.Value("/r/a"), "3");
    EXPECT_EQ(WQXXMLH_DeleteElement(handle, "/r/a"), 0);
    EXPECT_EQ(WQXXMLH_DeleteElement(handle, "/r/a"), kBadPath);
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "d", "4"), 0);
    EXPECT_EQ(Flat(handle.Finish()), "<r>tu<d>4</d></r>");
}

TEST(XmlPathDelete, OfTheRootLeavesAnEmptyDocument)
{
    for (const char* text : {"<r><a/></r>", "<?xml version='1.0'?><r/>", "<!----><r/>"}) {
        XmlHandle handle(text);
        EXPECT_EQ(WQXXMLH_DeleteElement(handle, "/r"), 0) << text;
        EXPECT_EQ(handle.Value("/r"), "(2)") << text;
        EXPECT_EQ(WQXXMLH_DeleteElement(handle, "/r"), ENOENT);
        EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/other", "a", "1"), 0);
        EXPECT_EQ(Flat(handle.Finish()), "<other><a>1</a></other>") << text;
    }
}

// Beginning at an element

TEST(XmlPathStart, AnElementStandsForItself)
{
    XmlHandle handle(kDocument);
    void* b = handle.Node("/Root/b");
    EXPECT_EQ(XmlHandle::ValueAt(b, "/b/c"), "deep");
    EXPECT_EQ(XmlHandle::ValueAt(b, "/B/c[p=q]"), "deeper") << "its own name has no case";
    EXPECT_EQ(XmlHandle::ValueAt(b, "/b/C"), "(20)");
    EXPECT_EQ(XmlHandle::ValueAt(b, "/c"), "(20)");
    EXPECT_EQ(XmlHandle::ValueAt(b, "/Root/b/c"), "(20)");
    EXPECT_EQ(XmlHandle::ValueAt(b, "/b[p=q]"), "(20)");
    EXPECT_EQ(XmlHandle::ValueAt(b, "b"), "(20)");
    EXPECT_EQ(XmlHandle::ValueAt(b, "//"), "(20)");
    void* self = nullptr;
    EXPECT_EQ(WQXXMLH_GetNodeFromPath(b, "/b/", &self), 0);
    EXPECT_EQ(self, b);
}

TEST(XmlPathStart, ChangesReachTheDocument)
{
    XmlHandle handle("<r><a>1</a></r>");
    void* a = handle.Node("/r/a");
    void* made = nullptr;
    EXPECT_EQ(WQXXMLH_Misc_GetNodeFromPath_AutoAdd(a, "/a/b[k=v]", &made), 0);
    EXPECT_EQ(WQXXMLH_AddElementValue(made, "/b", "c", "2"), 0);
    EXPECT_EQ(WQXXMLH_AddElementAttribute(made, "/b/c", "x", "3"), 0);
    EXPECT_EQ(WQXXMLH_ChangeElementAttribute(a, "/a/b", "k", "w"), 0);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(a, "/a", "4"), 0);
    EXPECT_EQ(WQXXMLH_ChangeElementName(a, "/a", "z"), 0);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(a, "/a", "5"), kBadPath) << "it has another name now";
    EXPECT_EQ(WQXXMLH_ChangeElementValue(a, "/z", "5"), 0);
    EXPECT_EQ(Flat(handle.Finish()), "<r><z>5<b k=\"w\"><c x=\"3\">2</c></b></z></r>");
}

TEST(XmlPathStart, IsAnElementOrADocument)
{
    XmlHandle handle("<r>t</r>");
    void* text = *reinterpret_cast<void**>(static_cast<char*>(handle.Node("/r")) + 8); // the first child, by the layout
    void* walk = nullptr;
    ASSERT_EQ(WQXXMLH_BeginIterate(handle, "/r", &walk), 0);
    alignas(16) char zeros[600] = {};
    for (void* bad : {text, walk, static_cast<void*>(zeros)}) {
        EXPECT_EQ(XmlHandle::ValueAt(bad, "/r"), "(20)");
        void* node = &g_sentinel;
        EXPECT_EQ(WQXXMLH_Misc_GetNodeFromPath_AutoAdd(bad, "/r", &node), kBadPath);
        EXPECT_EQ(WQXXMLH_DeleteElement(bad, "/r"), kBadPath);
        EXPECT_EQ(WQXXMLH_Copy(handle, "/r", bad, "/r"), kBadPath);
    }
    WQXXMLH_EndIterate(walk);
}

TEST(XmlPathStart, CanBeDeletedItself)
{
    XmlHandle handle("<r><a>1</a><b>2</b><c>3</c></r>");
    EXPECT_EQ(WQXXMLH_DeleteElement(handle.Node("/r/b"), "/b"), 0);
    EXPECT_EQ(WQXXMLH_DeleteElement(handle.Node("/r/a"), "/A"), 0);
    EXPECT_EQ(handle.Value("/r/c"), "3");
    EXPECT_EQ(WQXXMLH_DeleteElement(handle.Node("/r/c"), "/c"), 0);
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "d", "4"), 0);
    EXPECT_EQ(WQXXMLH_DeleteElement(handle.Node("/r"), "/r/d"), 0);
    EXPECT_EQ(Flat(handle.Finish()), "<r></r>");

    XmlHandle declared("<?xml version='1.0'?><r><a/></r>");
    EXPECT_EQ(WQXXMLH_DeleteElement(declared.Node("/r"), "/r"), 0);
    EXPECT_EQ(declared.Value("/r"), "(2)");
    EXPECT_EQ(Flat(declared.Finish()), "");
}

TEST(XmlPathStart, ThatADocumentBeginsWithIsOnlyDeletedThroughTheDocument)
{
    XmlHandle handle("<r>1</r>");
    EXPECT_EQ(WQXXMLH_DeleteElement(handle.Node("/r"), "/r"), EINVAL);
    EXPECT_EQ(handle.Value("/r"), "1");
    EXPECT_EQ(WQXXMLH_DeleteElement(handle, "/r"), 0);
}

// Copying

TEST(XmlPathCopy, CopiesNameAttributesFirstTextAndElements)
{
    const XmlHandle from("<r><a k='v' j=''>t<b>1</b>lost<!-- lost --><c><d x='y'/></c></a></r>", 0);
    XmlHandle to("<o><p/></o>");
    EXPECT_EQ(WQXXMLH_Copy(from, "/r/a", to, "/o/p"), 0);
    EXPECT_EQ(WQXXMLH_Copy(from, "/r/a/c", to, "/O"), 0);
    EXPECT_EQ(WQXXMLH_Copy(from.Node("/r/a"), "/a/b", to.Node("/o/p"), "/p"), 0);
    EXPECT_EQ(Flat(to.Finish()), "<o><p><a k=\"v\" j=\"\">t<b>1</b><c><d x=\"y\"></d></c></a><b>1</b></p>"
                                 "<c><d x=\"y\"></d></c></o>");
    EXPECT_EQ(from.Value("/r/a"), "t");
}

TEST(XmlPathCopy, FailsWithoutBothEnds)
{
    const XmlHandle from("<r><a k='v'/></r>");
    XmlHandle to("<o/>");
    EXPECT_EQ(WQXXMLH_Copy(from, "/r/b", to, "/o"), kBadPath);
    EXPECT_EQ(WQXXMLH_Copy(from, "/r/a[k=w]", to, "/o"), ENOENT);
    EXPECT_EQ(WQXXMLH_Copy(from, "/r/a", to, "/o/p"), kBadPath) << "nothing is added on the way";
    EXPECT_EQ(WQXXMLH_Copy(from, "/r/a", to, "o"), kBadPath);
    EXPECT_EQ(WQXXMLH_Copy(XmlHandle(" "), "/r", to, "/o"), ENOENT);
    EXPECT_EQ(Flat(to.Finish()), "<o></o>");
}

TEST(XmlPathCopy, IntoItselfEnds)
{
    XmlHandle handle("<r><a>1<b/></a></r>");
    EXPECT_EQ(WQXXMLH_Copy(handle, "/r/a", handle, "/r/a"), 0);
    EXPECT_EQ(WQXXMLH_Copy(handle, "/r/a/b", handle, "/r"), 0);
    EXPECT_EQ(Flat(handle.Finish()), "<r><a>1<b></b><a>1<b></b></a></a><b></b></r>");
    XmlHandle below("<r><a><b><c/></b></a></r>");
    EXPECT_EQ(WQXXMLH_Copy(below, "/r", below, "/r/a/b"), 0);
    EXPECT_EQ(below.Value("/r/a/b/r/a/b/c"), "");
}

// Hostile paths

double Seconds(const std::chrono::steady_clock::time_point& since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

TEST(XmlPathHostile, LongNames)
{
    for (const size_t length : {299u, 300u, 301u, 4096u, 70000u, 1000000u}) {
        const std::string name(length, 'n');
        XmlHandle handle("<r/>");
        EXPECT_EQ(handle.Value("/" + name), "(20)");
        EXPECT_EQ(handle.Value("/r/" + name), "(20)");
        EXPECT_EQ(WQXXMLH_AddElementValue(handle, ("/r/" + name).c_str(), name.c_str(), "1"), 0);
        EXPECT_EQ(handle.Value("/r/" + name + "/" + name), "1");
        EXPECT_EQ(handle.Value("/r/" + name + "/" + name + "n"), "(20)");
        EXPECT_EQ(WQXXMLH_AddElementAttribute(handle, ("/r/a[" + name + "=" + name + "]").c_str(), "k", "v"), 0);
        EXPECT_EQ(handle.Attribute("/r/a[" + name + "=" + name + "]", "k"), "v");
        EXPECT_EQ(handle.Value("/r/a[" + name + "=x]"), "(2)");
    }
}

TEST(XmlPathHostile, RunsOfEverySeparator)
{
    constexpr size_t kRun = 300000;
    XmlHandle handle("<r><a k='v'>1</a></r>");
    EXPECT_EQ(handle.Value(std::string(kRun, '/')), "(20)");
    EXPECT_EQ(handle.Value(std::string(kRun, '/') + "r" + std::string(kRun, '/') + "a"), "1");
    for (const char separator : {'[', ']', '&', '=', '"', ' ', '\t'}) {
        const std::string run(kRun, separator);
        EXPECT_EQ(handle.Value("/" + run), "(20)") << separator;
        EXPECT_EQ(handle.Value("/r/" + run), "(20)") << separator;
        EXPECT_EQ(handle.Value("/r/a[" + run), separator == '[' || separator == ']' ? "1" : "(20)") << separator;
        EXPECT_EQ(handle.Value("/r/a[" + run + "k=v" + run + "]"), "1") << separator;
    }
    std::string escapes;
    for (size_t i = 0; i < kRun / 4; ++i)
        escapes += "\\x2f";
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, ("/r/" + escapes).c_str(), "b", "2"), 0);
    EXPECT_EQ(handle.Value("/r/" + escapes + "/b"), "2");
}

TEST(XmlPathHostile, ManySegments)
{
    constexpr size_t kLevels = 200000;
    std::string path = "/r";
    for (size_t i = 0; i < kLevels; ++i)
        path += "/a";
    const auto start = std::chrono::steady_clock::now();
    XmlHandle handle(" ");
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, path.c_str(), "a", "1"), 0);
    EXPECT_EQ(handle.Value(path + "/a"), "1");
    EXPECT_EQ(handle.Value(path + "/a/a"), "(20)");
    EXPECT_EQ(WQXXMLH_DeleteElement(handle, (path + "/a").c_str()), 0);
    EXPECT_EQ(WQXXMLH_DeleteElement(handle, "/r/a/a"), 0);
    EXPECT_EQ(Flat(handle.Finish()), "<r><a></a></r>");
    EXPECT_LT(Seconds(start), 20);
}

TEST(XmlPathHostile, ManyConditions)
{
    constexpr int kConditions = 1000;
    std::string conditions = "k=v";
    for (int i = 0; i < kConditions; ++i)
        conditions += "&k" + std::to_string(i) + "=" + std::to_string(i);
    XmlHandle handle("<r/>");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WQXXMLH_AddElementAttribute(handle, ("/r/a[" + conditions + "]").c_str(), "mark", "1"), 0);
    EXPECT_EQ(handle.Attribute("/r/a[" + conditions + "]", "k999"), "999");
    EXPECT_EQ(handle.Attribute("/r/a[" + conditions + "&k=w]", "mark"), "(2)");
    EXPECT_LT(Seconds(start), 20);
    EXPECT_EQ(handle.Value("/r/a[" + conditions + "&k]"), "(20)");
}

TEST(XmlPathHostile, ManyCandidatesAndFormats)
{
    std::string text = "<r>";
    for (int i = 0; i < 100000; ++i)
        text += "<a id='" + std::to_string(i) + "'/>";
    XmlHandle handle(text + "</r>", 0);
    EXPECT_EQ(handle.Value("/r/a[id=99999]"), "");
    EXPECT_EQ(handle.Value("/r/a[id=100000]"), "(2)");
    EXPECT_EQ(handle.Value("/r/%s%s%n%n%s/%999999999d"), "(20)");
    EXPECT_EQ(handle.Value("/%n%n%s[%s=%n"), "(20)");
    EXPECT_EQ(handle.Value("/r/%n[%s][%n]"), "(20)");
}

} // namespace
