// Writing XML trees to texts and files.
#include <ZKQ_general/TamorXml.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "support/child.h"
#include "support/heap.h"
#include "support/temp_dir.h"
#include "support/xml.h"

namespace {

using support::ReadFile;
using support::TempDir;
using support::XmlDocument;

/// What the string writer makes of a document.
std::string Written(void* xml, const char* version = nullptr, const char* encoding = nullptr,
                    const char* standalone = nullptr)
{
    char* text = nullptr;
    EXPECT_EQ(WQXXML_OutputStringEx(xml, version, encoding, standalone, &text), 0);
    std::string copy = text == nullptr ? "(null)" : text;
    WQXXML_FreeString(text);
    return copy;
}

/// What the file writer makes of a document.
std::string Filed(void* xml, const char* version = nullptr, const char* encoding = nullptr,
                  const char* standalone = nullptr)
{
    const TempDir dir;
    EXPECT_EQ(WQXXML_OutputFile(xml, version, encoding, standalone, dir.File("f").c_str()), 0);
    return ReadFile(dir.File("f"));
}

struct Row {
    const char* name;
    const char* text;
    const char* output;
    const char* file = nullptr; ///< if it differs

    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

const Row kRows[] = {
    {"two_children", R"(<r><a>1</a><b x="y">2</b></r>)", "<r>\n  <a>1</a>\n  <b x=\"y\">2</b>\n</r>\n"},
    {"text_only", "<r>x</r>", "<r>x</r>\n"},
    {"empty", "<r/>", "<r></r>\n"},
    {"levels", "<a><b><c><d/></c></b></a>", "<a>\n  <b>\n    <c>\n      <d></d>\n    </c>\n  </b>\n</a>\n"},
    {"mixed", "<r>x<a/>y<b/>z</r>", "<r>\nx  <a></a>\ny  <b></b>\nz</r>\n"},
    {"texts", "<r>a<![CDATA[b<]]>c</r>", "<r>ab<c</r>\n"},
    {"attributes", "<r b='1' a=\"2\" c=''/>", "<r b=\"1\" a=\"2\" c=\"\"></r>\n"},
    {"nothing_escaped", "<r a='&lt;\"&amp;'>&lt;</r>", "<r a=\"<\"&\">&lt;</r>\n"},
    {"percent", "<r a='%s%n'>%s%n%d</r>", "<r a=\"%s%n\">%s%n%d</r>\n"},
    {"declaration_not_kept", "<?xml version='1.0'?><r/>", "<r></r>\n"},
    {"comment_before", "<!----><r/>", "<r></r>\n"},
    {"comment_inside", "<r><!-- c --></r>", "<r></r>\n", "<r>  <!-- c -->\n</r>\n"},
    {"comment_beside_element", "<r><!--c--><a/></r>", "<r>\n  <a></a>\n</r>\n", "<r>\n  <!--c-->\n  <a></a>\n</r>\n"},
    {"comment_deep", "<r><a><b/><!--c--></a></r>", "<r>\n  <a>\n    <b></b>\n  </a>\n</r>\n",
     "<r>\n  <a>\n    <b></b>\n    <!--c-->\n  </a>\n</r>\n"},
    {"comment_empty", "<r><!----></r>", "<r></r>\n", "<r>  </r>\n"},
    {"declaration_inside", "<r><?xml version='1'?>x</r>", "<r>x</r>\n"},
    {"unknown_inside", "<r>x<!y></r>", "<r>x</r>\n"},
    {"no_element", "<!-- c -->", ""},
    {"only_declaration", "<?xml version='1'?>", ""},
    {"nothing", " ", ""},
    {"no_name", "\xEF\xBB\xBF<r><\xEF\xBB\xBF>", "<r>\n  <></>\n</r>\n"},
};

class XmlWrite : public testing::TestWithParam<Row> {};

TEST_P(XmlWrite, TextAndFile)
{
    const Row& row = GetParam();
    const XmlDocument document(row.text);
    EXPECT_EQ(Written(document.xml), row.output);
    EXPECT_EQ(document.Output(), row.output) << "without a declaration";
    EXPECT_EQ(Filed(document.xml), row.file == nullptr ? row.output : row.file);
    EXPECT_EQ(Written(document.xml, "1"), "<?xml version=\"1\"?>\n" + std::string(row.output));
}

INSTANTIATE_TEST_SUITE_P(Documents, XmlWrite, testing::ValuesIn(kRows), [](const auto& row) { return row.param.name; });

TEST(XmlWriteArguments, Null)
{
    const XmlDocument document("<r/>");
    const TempDir dir;
    EXPECT_EQ(WQXXML_OutputString(document.xml, nullptr), EINVAL);
    EXPECT_EQ(WQXXML_OutputStringEx(document.xml, "1", nullptr, nullptr, nullptr), EINVAL);
    EXPECT_EQ(WQXXML_OutputFile(document.xml, "1", nullptr, nullptr, nullptr), EINVAL);
    EXPECT_EQ(Written(nullptr), "");
    EXPECT_EQ(Written(nullptr, "1.0", "GBK"), "<?xml version=\"1.0\" encoding=\"GBK\"?>\n");
    EXPECT_EQ(Filed(nullptr), "");
    EXPECT_EQ(Filed(nullptr, nullptr, nullptr, "no"), "<?xml standalone=\"no\"?>\n");
    WQXXML_FreeString(nullptr);
}

TEST(XmlWriteText, HasRoomFor8192BytesAtLeast)
{
    for (const char* const text : {" ", "<r/>"}) {
        const XmlDocument document(text);
        char* output = nullptr;
        ASSERT_EQ(WQXXML_OutputString(document.xml, &output), 0);
        EXPECT_GE(malloc_usable_size(output), 8192U);
        WQXXML_FreeString(output);
    }
}

TEST(XmlDeclarations, EachPart)
{
    const XmlDocument document("<r/>");
    const std::string root = "<r></r>\n";
    for (int set = 0; set < 8; ++set) {
        for (const bool isEmpty : {false, true}) {
            const auto part = [&](int bit, const char* value) {
                return (set & bit) != 0 ? value : isEmpty ? "" : nullptr;
            };
            std::string expected;
            if (set != 0)
                expected = "<?xml" + std::string((set & 1) != 0 ? " version=\"1.0\"" : "") +
                           ((set & 2) != 0 ? " encoding=\"UTF-8\"" : "") +
                           ((set & 4) != 0 ? " standalone=\"yes\"" : "") + "?>\n";
            const char* const version = part(1, "1.0");
            const char* const encoding = part(2, "UTF-8");
            const char* const standalone = part(4, "yes");
            EXPECT_EQ(Written(document.xml, version, encoding, standalone), expected + root);
            EXPECT_EQ(Filed(document.xml, version, encoding, standalone), expected + root);
        }
    }
    EXPECT_EQ(Written(document.xml, "%s", "%n"), "<?xml version=\"%s\" encoding=\"%n\"?>\n" + root);
}

TEST(XmlDeclarations, Long)
{
    const XmlDocument document("<r/>");
    const size_t frame = strlen("<?xml version=\"\"?>\n");
    for (const size_t length : {298U, 299U, 300U, 301U, 1000U, 40000U}) {
        const std::string version(length - frame, 'v');
        const std::string expected = "<?xml version=\"" + version + "\"?>\n<r></r>\n";
        EXPECT_EQ(Written(document.xml, version.c_str()), expected);
        EXPECT_EQ(Filed(document.xml, version.c_str()), expected);
        const std::string third(length, 't');
        EXPECT_EQ(Written(document.xml, third.c_str(), third.c_str(), third.c_str()),
                  "<?xml version=\"" + third + "\" encoding=\"" + third + "\" standalone=\"" + third +
                      "\"?>\n<r></r>\n");
    }
}

TEST(XmlWriteText, OnlyTheFirstElementOfTheDocument)
{
    XmlDocument document("<?xml?><a/>");
    EXPECT_EQ(WQXXML_AddChildItem(&document.xml, nullptr, "b", nullptr), 0);
    EXPECT_EQ(Written(document.xml), "<a></a>\n");
}

TEST(XmlWriteText, OneLineLevelChangesNothing)
{
    const XmlDocument document("<r><a><b>x</b></a></r>");
    const std::string before = document.Output();
    for (const int level : {0, 1, -1, 100}) {
        WQXXML_SetOneLineLevel(level);
        EXPECT_EQ(document.Output(), before);
    }
    WQXXML_SetOneLineLevel(4);
}

TEST(XmlWriteText, NodesWithoutText)
{
    void* xml = nullptr;
    void* node = nullptr;
    ASSERT_EQ(WQXXML_AddChildItemAndGetNode(&xml, nullptr, "r", "ignored", &node), 0);
    EXPECT_EQ(Written(xml), "<r></r>\n");
    ASSERT_EQ(WQXXML_AddNodeChildItem(node, "n", nullptr, nullptr), 0);
    ASSERT_EQ(WQXXML_AddNodeChildItem(node, "e", "", nullptr), 0);
    EXPECT_EQ(Written(xml), "<r>\n  <n></n>\n  <e></e>\n</r>\n");
    WQXXML_ReleaseObject(xml);
}

/// Lengths around the sizes of blocks: names, attributes, texts.
TEST(XmlWriteText, EachLength)
{
    const TempDir dir;
    for (size_t length = 1; length < 40000; length = length < 80 ? length + 1 : length + length / 9 + length % 5) {
        const std::string word(length, 'w');
        const std::string expected =
            "<" + word + " " + word + "=\"" + word + "\">\n  <a>" + word + "</a>\n" + word + "</" + word + ">\n";
        const XmlDocument document("<" + word + " " + word + "='" + word + "'><a>" + word + "</a>" + word + "</" +
                                   word + ">");
        ASSERT_EQ(document.Output(), expected) << length;
        ASSERT_EQ(Filed(document.xml), expected) << length;
    }
}

TEST(XmlWriteText, ReadsBackTheSame)
{
    std::string text = "<r>";
    for (int i = 0; i < 20000; ++i)
        text += "<item id='" + std::to_string(i) + "'><name>n" + std::to_string(i) + "</name><e/></item>";
    const XmlDocument document(text + "</r>");
    const std::string output = document.Output();
    const XmlDocument again(output);
    EXPECT_EQ(document.Chain(), again.Chain());
    EXPECT_EQ(again.Output(), output);
    EXPECT_EQ(Filed(document.xml), output);
}

TEST(XmlWriteFile, IsMadeOrTruncated)
{
    const TempDir dir;
    const XmlDocument document("<r/>");
    const std::string name = dir.File("f");
    support::WriteFile(name, std::string(100000, 'o'));
    EXPECT_EQ(WQXXML_OutputFile(document.xml, nullptr, nullptr, nullptr, name.c_str()), 0);
    EXPECT_EQ(ReadFile(name), "<r></r>\n");
}

TEST(XmlWriteFile, Failures)
{
    const TempDir dir;
    const XmlDocument document("<r/>");
    const XmlDocument large("<r>" + std::string(1000000, 'x') + "</r>");
    const auto write = [](const XmlDocument& doc, const std::string& name) {
        return WQXXML_OutputFile(doc.xml, "1.0", nullptr, nullptr, name.c_str());
    };
    EXPECT_EQ(write(document, dir.File("missing/f")), ENOENT);
    EXPECT_EQ(write(document, dir.Path()), EISDIR);
    EXPECT_EQ(write(document, ""), ENOENT);
    EXPECT_EQ(write(document, std::string(5000, 'n')), ENAMETOOLONG);
    if (access("/dev/full", W_OK) == 0) {
        EXPECT_EQ(write(document, "/dev/full"), ENOSPC);
        EXPECT_EQ(write(large, "/dev/full"), ENOSPC);
    }
    support::WriteFile(dir.File("f"), "x");
    EXPECT_EQ(write(document, dir.File("f/g")), ENOTDIR);
}

TEST(XmlWriteFile, WithoutTheRight)
{
    const TempDir dir;
    const XmlDocument document("<r/>");
    support::WriteFile(dir.File("f"), "kept");
    ASSERT_EQ(chmod(dir.File("f").c_str(), 0444), 0);
    ASSERT_EQ(chmod(dir.Path().c_str(), 0755), 0);
    ASSERT_EQ(chdir(dir.Path().c_str()), 0);
    RUN_IN_CHILD([&] {
        support::BecomeNobody();
        EXPECT_EQ(WQXXML_OutputFile(document.xml, nullptr, nullptr, nullptr, "f"), EACCES);
    });
    ASSERT_EQ(chdir("/"), 0);
    EXPECT_EQ(ReadFile(dir.File("f")), "kept");
}

/// Documents whose indentation alone is beyond what a text may hold.
TEST(XmlWriteDeep, TextsOver2GiBAreRefused)
{
    constexpr int levels = 1000000;
    std::string text;
    for (int i = 0; i < levels; ++i)
        text += "<a>";
    const XmlDocument document(text);
    char mark;
    char* output = &mark;
    EXPECT_EQ(WQXXML_OutputString(document.xml, &output), ENOMEM);
    EXPECT_EQ(output, &mark) << "left untouched";
}

TEST(XmlWriteDeep, ThousandsOfLevels)
{
    constexpr size_t levels = 5000;
    std::string text;
    std::string expected;
    std::string end;
    for (size_t i = 0; i < levels; ++i) {
        const std::string indent(2 * i, ' ');
        text += "<a>";
        expected += indent + (i + 1 < levels ? "<a>\n" : "<a>");
    }
    for (size_t i = levels - 1; i-- > 0;)
        end += std::string(2 * i, ' ') + "</a>\n";
    const XmlDocument document(text);
    EXPECT_TRUE(document.Output() == expected + "</a>\n" + end);
}

TEST(XmlWriteMemory, NothingLeaks)
{
    const XmlDocument document("<r a='1'><b>x</b><!--c--></r>");
    const TempDir dir;
    const std::string name = dir.File("f");
    support::ExpectNothingLeaks([&] {
        char* text = nullptr;
        EXPECT_EQ(WQXXML_OutputStringEx(document.xml, "1", "2", "3", &text), 0);
        WQXXML_FreeString(text);
        EXPECT_EQ(WQXXML_OutputFile(document.xml, "1", "2", "3", name.c_str()), 0);
        EXPECT_NE(WQXXML_OutputFile(document.xml, "1", "2", "3", "/nowhere/f"), 0);
    });
}

} // namespace
