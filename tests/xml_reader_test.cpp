// Reading XML texts into trees.
#include <ZKQ_general/TamorXml.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/heap.h"
#include "support/xml.h"
#include "support/xml_model.h"

namespace {

using support::Read;
using support::XmlDocument;
using support::XmlNode;

const std::string kBom = "\xEF\xBB\xBF";

/// The text of <a> when `content` stands in it, with entities decoded.
std::string Decoded(const std::string& content, const std::string& before = "")
{
    const support::PlainText option(0);
    const XmlDocument document(before + "<a>" + content + "</a>");
    char* value = nullptr;
    return WQXXML_GetElementValue(document.Root(), &value) == 0 && value != nullptr ? value : "(none)";
}

TEST(XmlLoad, Arguments)
{
    char mark;
    void* xml = &mark;
    EXPECT_EQ(WQXXML_LoadFromString(nullptr, &xml), EINVAL);
    EXPECT_EQ(xml, &mark);
    EXPECT_EQ(WQXXML_LoadFromString("", &xml), EINVAL);
    EXPECT_EQ(xml, &mark);
    EXPECT_EQ(WQXXML_LoadFromString("<a/>", nullptr), EINVAL);
    EXPECT_EQ(WQXXML_LoadFromString(" \n\t", &xml), 0);
    EXPECT_EQ(xml, nullptr);
}

TEST(XmlLoad, Option)
{
    int plain = 0;
    EXPECT_EQ(WQXXML_SetOption(0, &plain, 4), EINVAL);
    EXPECT_EQ(WQXXML_SetOption(2, &plain, 4), EINVAL);
    EXPECT_EQ(WQXXML_SetOption(-1, &plain, 4), EINVAL);
    EXPECT_EQ(WQXXML_SetOption(1, nullptr, 4), EINVAL);
    EXPECT_EQ(support::ToText(XmlDocument("<a>&lt;</a>").Chain()), "a('&lt;')") << "after loading, and still";
    EXPECT_EQ(WQXXML_SetOption(1, &plain, 0), 0) << "the size is not looked at";
    EXPECT_EQ(XmlDocument("<a>&lt;</a>").Text(), "a('<')");
    plain = -5;
    EXPECT_EQ(WQXXML_SetOption(1, &plain, 4), 0);
    EXPECT_EQ(XmlDocument("<a>&lt;</a>").Text(), "a('&lt;')");
    plain = 1;
    EXPECT_EQ(WQXXML_SetOption(1, &plain, 4), 0);
}

/// A text, and the tree it is read into with character data as it is written; a second tree where decoding differs.
struct Row {
    const char* name;
    std::string text;
    std::string tree;
    std::string decoded = {};

    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

class XmlRead : public testing::TestWithParam<Row> {};

TEST_P(XmlRead, Tree)
{
    const Row& row = GetParam();
    EXPECT_EQ(Read(row.text), row.tree) << row.text;
    EXPECT_EQ(Read(row.text, 0), row.decoded.empty() ? row.tree : row.decoded) << row.text;
}

// clang-format off
const Row kElements[] = {
    {"empty_element", "<a/>", "a('')"},
    {"empty_element_with_blank", "<a />", "a('')"},
    {"start_and_end", "<a></a>", "a('')"},
    {"blank_content", "<a> \r\n\t\v\f </a>", "a('')"},
    {"text", "<a>x</a>", "a('x')"},
    {"blanks_in_text", "<a>  x   y  </a>", "a('x   y  ')", "a('x y')"},
    {"lines_in_text", "<a>\r\n x\r\n\ty\n</a>", "a('x\r\n\ty\n')", "a('x y')"},
    {"mixed", "<a>x<b/>y</a>", "a('x' b('') 'y')"},
    {"blanks_around_mixed", "<a> x <b/> y </a>", "a('x ' b('') 'y ')", "a('x' b('') 'y')"},
    {"nested", "<a><b><c>1</c></b><d/></a>", "a(b(c('1')) d(''))"},
    {"name_bytes", "<_a-b.c:d1/>", "_a-b.c:d1('')"},
    {"name_ends", "<a1+>", "a1()"},
    {"name_above_126", "<\x7F\x80\xFF/>", "\x7F\x80\xFF('')"},
    {"name_126", "<~a/>", "?!"},
    {"name_digit", "<1a/>", "?!"},
    {"name_dash", "<-a/>", "?!"},
    {"name_later_bytes", "<a\x7F\x80z/>", "a\x7F\x80z('')"},
    {"name_after_blank", "< a/>", "?!"},
    {"only_less", "<", "?!"},
    {"only_less_inside", "<a><", "a(?!)"},
    {"stray_end", "</a>", "?!"},
    {"no_less", "x<a/>", ""},
    {"before_element", " \n<a/>", "a('')"},
    {"end_of_input_in_name", "<abc", "abc()"},
    {"end_of_input_after_name", "<abc ", "abc()"},
    {"slash_without_greater", "<a/ >", "a()"},
    {"slash_at_end", "<a/", "a()"},
    {"slash_inside", "<a/b>", "a()"},
    {"open_at_end", "<a>", "a('')"},
    {"open_at_end_with_blank", "<a> ", "a('')"},
    {"open_with_text", "<a>x", "a('x')"},
    {"open_with_text_and_blank", "<a>x ", "a('x ')", "a('x')"},
    {"open_with_child", "<a><b/>", "a(b(''))"},
    {"only_end_mark", "<a></", "a('')"},
    {"end_mark_cut", "<a></a", "a('')"},
    {"end_other", "<a>x</b>", "a('x')"},
    {"end_other_case", "<a>x</A>", "a('x')"},
    {"end_longer", "<a>x</ab>", "a('x')"},
    {"end_shorter", "<ab>x</a>", "ab('x')"},
    {"end_with_blank", "<a>x</a >", "a('x')"},
    {"end_with_blank_before", "<a>x</ a>", "a('x')"},
    {"end_of_inner_missing", "<a><b>x</a>", "a(b('x'))"},
    {"end_of_inner_other", "<a><b>x</c><d/></a>", "a(b('x'))"},
    {"greater_in_text", "<a>x>y</a>", "a('x>y')"},
    {"less_in_text", "<a>x<1</a>", "a('x' ?!)"},
    {"second_root", "<a/><b/>", "a('')"},
    {"text_after_root", "<a/>x", "a('')"},
    {"doctype", "<!DOCTYPE x><r/>", "?!"},
    {"doctype_inside", "<r>1<!x>2</r>", "r('1' ?!)"},
    {"instruction", "<?php x?><r/>", "?!"},
    {"instruction_inside", "<r><a/><?x?></r>", "r(a('') ?!)"},
};

const Row kAttributes[] = {
    {"three_forms", R"(<a b=1 c='2' d="&amp;">)", R"(a[b="1" c="2" d="&"](''))"},
    {"quote_in_bare", "<a b=x'y>", "a()"},
    {"quotes_in_bare", "<a c=1 b=x\"y d=2>", "a[c=\"1\"]()"},
    {"other_quote_inside", R"(<a b="it's" c='"'/>)", R"(a[b="it's" c="""](''))"},
    {"repeated", "<a b='1' B='2'/>", R"(a[b="2"](''))"},
    {"repeated_later", "<a b='1' c='x' bb='3' B='2' C=''/>", R"(a[b="2" c="" bb="3"](''))"},
    {"no_blank_between", "<a b='1'c='2'/>", R"(a[b="1" c="2"](''))"},
    {"blanks_around_equals", "<a b \n=\t 'x'/>", R"(a[b="x"](''))"},
    {"bare_up_to_blank", "<a b=1\nc=2\rd=3\te=4\vf=5/>", R"(a[b="1" c="2" d="3" e="4" f="5"](''))"},
    {"bare_up_to_slash", "<a b=x/y>", R"(a[b="x"]())"},
    {"bare_without_decoding", "<a b=&lt;/>", R"(a[b="&lt;"](''))"},
    {"bare_with_less", "<a b=<c/>", R"(a[b="<c"](''))"},
    {"bare_empty", "<a b=>", R"(a[b=""](''))"},
    {"bare_empty_slash", "<a b=/>", R"(a[b=""](''))"},
    {"equals_in_bare", "<a b==c=>", R"(a[b="=c="](''))"},
    {"quoted_empty", "<a b=''/>", R"(a[b=""](''))"},
    {"white_space_kept", "<a b=' \n x  y\t'/>", "a[b=\" \n x  y\t\"]('')"},
    {"markup_kept", "<a b='</a><!-- -->'/>", R"(a[b="</a><!-- -->"](''))"},
    {"no_equals", "<a b>", "a()"},
    {"no_equals_then_more", "<a x=1 b c='2'>", R"(a[x="1"]())"},
    {"no_name", "<a =1>", "a()"},
    {"name_is_digit", "<a 1=1>", "a()"},
    {"end_after_name", "<a b", "a()"},
    {"end_after_equals", "<a b=", "a()"},
    {"end_after_equals_and_blank", "<a b= ", "a()"},
    {"end_after_bare", "<a b=x", R"(a[b="x"]())"},
    {"end_after_quote", "<a b='", "a()"},
    {"end_in_quoted", "<a c='1' b='x", R"(a[c="1"]())"},
    {"end_in_quoted_with_entity", "<a b='&amp;", "a()"},
    {"end_after_closing_quote", "<a b='x'", R"(a[b="x"]())"},
    {"bad_reference", "<a b='1' c='&#12a;' d='2'>", R"(a[b="1"]())"},
    {"entities", "<a b='&lt;a&gt;&quot;&apos;&amp;&nbsp;'/>", R"(a[b="<a>"'&&nbsp;"](''))"},
    {"name_with_marks", "<a x:y.z-1_='1'/>", R"(a[x:y.z-1_="1"](''))"},
};

const Row kComments[] = {
    {"comment_first", "<!-- c --><r/>", "<! c >"},
    {"empty_comment_first", "<!----><r/>", "<!> r('')"},
    {"empty_comments", " <!----> <!----> <r/>", "<!> <!> r('')"},
    {"comment_inside", "<r><!--a-->x<!-- --></r>", "r(<!a> 'x' <! >)"},
    {"dashes", "<r><!-- - -- > ---></r>", "r(<! - -- > ->)"},
    {"markup_in_comment", "<r><!--<a>&lt;</r>--></r>", "r(<!<a>&lt;</r>>)"},
    {"short_comment", "<!--><r/>", "<!><r/>>"},
    {"open_comment", "<!-- x <r/>", "<! x <r/>>"},
    {"open_comment_inside", "<r><!-- x </r>", "r(<! x </r>>)"},
    {"open_comment_empty", "<!--", "<!>"},
    {"comment_nearly", "<!-x--><r/>", "?!"},
    {"section", "<r><![CDATA[a<b]]></r>", "r('a<b')"},
    {"section_raw", "<r><![CDATA[ &lt; ]] > ]>\n]]></r>", "r(' &lt; ]] > ]>\n')"},
    {"section_empty", "<r><![CDATA[]]></r>", "r('')"},
    {"section_beside_text", "<r>a<![CDATA[b]]>c</r>", "r('a' 'b' 'c')"},
    {"sections", "<r><![CDATA[a]]><![CDATA[]]></r>", "r('a' '')"},
    {"section_other_case", "<r><![cdata[a]]></r>", "r(?!)"},
    {"section_open", "<r><![CDATA[a]]</r>", "r('a]]</r>')"},
    {"section_first", "<![CDATA[a]]><r/>", "'a'"},
    {"section_first_empty", "<![CDATA[]]><r/>", "'' r('')"},
    {"section_many_brackets", "<r><![CDATA[]]]]></r>", "r(']]')"},
};

const Row kDeclarations[] = {
    {"declaration", R"(<?xml version="1.0" encoding='UTF-8' standalone=yes?><r/>)",
     R"(?xml[version="1.0" encoding="UTF-8" standalone="yes?"] r(''))"},
    {"declaration_other_case", "<?XML VERSION='1'?><r/>", R"(?xml[VERSION="1"] r(''))"},
    {"declaration_unknown_words", "<?xml a='b' version='1' x?y ?><r/>", R"(?xml[version="1"] r(''))"},
    {"declaration_longer_word", "<?xml versions='1' encodingX=\"2\"?><r/>", R"(?xml[versions="1" encodingX="2"] r(''))"},
    {"declaration_joined", "<?xmlversion='1'?><r/>", R"(?xml[version="1"] r(''))"},
    {"declaration_repeated", "<?xml version='1' Version='2'?><r/>", R"(?xml[version="2"] r(''))"},
    {"declaration_bare", "<?xml version=1?><r/>", R"(?xml[version="1?"] r(''))"},
    {"declaration_empty", "<?xml?><r/>", "?xml r('')"},
    {"declaration_no_mark", "<?xml><r/>", "?xml r('')"},
    {"declaration_greater_inside", "<?xml a>b<r/>", "?xml"},
    {"style_sheet", "<?xml-stylesheet version='1'?><r/>", R"(?xml[version="1"] r(''))"},
    {"declarations", "<?xml?><?xml version='1'?><r/>", R"(?xml ?xml[version="1"] r(''))"},
    {"declaration_bad", "<?xml version?><r/>", "?xml"},
    {"declaration_bad_later", "<?xml version='1' encoding?><r/>", R"(?xml[version="1"])"},
    {"declaration_open", "<?xml version='1' ?", R"(?xml[version="1"])"},
    {"declaration_cut", "<?xml", "?xml"},
    {"declaration_quote_open", "<?xml version='1'encoding='2?><r/>", R"(?xml[version="1"])"},
    {"declaration_inside", "<r><?xml version='1'?>x</r>", R"(r(?xml[version="1"] 'x'))"},
    {"declaration_alone", "<?xml?>", "?xml"},
};

const Row kDecoding[] = {
    {"entities_in_text", "<a>&lt;a&gt;</a>", "a('&lt;a&gt;')", "a('<a>')"},
    {"unknown_entity", "<a>&nbsp;&copy &;</a>", "a('&nbsp;&copy &;')"},
    {"entity_cut", "<a>&am</a>", "a('&am')"},
    {"entity_other_case", "<a>&LT;&Amp;</a>", "a('&LT;&Amp;')"},
    {"entity_once", "<a>&amp;lt;</a>", "a('&amp;lt;')", "a('&lt;')"},
    {"bad_reference_in_text", "<a>x&#12a;y</a><b/>", "a('x&#12a;y')", "a('x')"},
    {"reference_at_end", "<a>x&#", "a('x&#')", "a('x')"},
    {"hex_reference_at_end", "<a>x&#x", "a('x&#x')", "a('x')"},
    {"reference_without_end", "<a>x&#65</a>", "a('x&#65')", "a('x')"},
    {"reference_is_blank", "<a>&#32;x&#32;</a>", "a('&#32;x&#32;')", "a(' x ')"},
    {"reference_to_nul", "<a>x&#0;y&#x;z&#;</a>", "a('x&#0;y&#x;z&#;')", "a('xyz')"},
    {"blank_before_nothing", "<a>x &#0;</a>", "a('x &#0;')", "a('x ')"},
    {"amp_at_end", "<a>x &", "a('x &')"},
};
// clang-format on

const auto kNameOfRow = [](const auto& row) { return row.param.name; };
INSTANTIATE_TEST_SUITE_P(Elements, XmlRead, testing::ValuesIn(kElements), kNameOfRow);
INSTANTIATE_TEST_SUITE_P(Attributes, XmlRead, testing::ValuesIn(kAttributes), kNameOfRow);
INSTANTIATE_TEST_SUITE_P(Comments, XmlRead, testing::ValuesIn(kComments), kNameOfRow);
INSTANTIATE_TEST_SUITE_P(Declarations, XmlRead, testing::ValuesIn(kDeclarations), kNameOfRow);
INSTANTIATE_TEST_SUITE_P(Decoding, XmlRead, testing::ValuesIn(kDecoding), kNameOfRow);

struct Reference {
    std::string text;
    std::string utf8;
    std::string other;
};

TEST(XmlReferences, InEachMode)
{
    const std::string none;
    const Reference rows[] = {
        {"&#65;", "A", "A"},
        {"&#x41;", "A", "A"},
        {"&#x7f;", "\x7F", "\x7F"},
        {"&#x80;", "\xC2\x80", "\x80"},
        {"&#x7FF;", "\xDF\xBF", "\xFF"},
        {"&#x800;", "\xE0\xA0\x80", none},
        {"&#x20AC;", "\xE2\x82\xAC", "\xAC"},
        {"&#8364;", "\xE2\x82\xAC", "\xAC"},
        {"&#xD800;", "\xED\xA0\x80", none},
        {"&#xFFFF;", "\xEF\xBF\xBF", "\xFF"},
        {"&#x10000;", "\xF0\x90\x80\x80", none},
        {"&#x1FFFFF;", "\xF7\xBF\xBF\xBF", "\xFF"},
        {"&#x200041;", none, "A"},
        {"&#x10000000000000041;", none, "A"},
        {"&#18446744073709551681;", none, "A"},
        {"&#x" + std::string(100, '0') + "41;", "A", "A"},
        {"&#x" + std::string(100, '1') + ";", none, "\x11"},
        {"&#000065;", "A", "A"},
        {"&#xGGx41;", "A", "A"}, // read backwards, to the nearest mark
        {"&#abc#65;", "A", "A"},
        {"&#65&#66;", "B", "B"},
        {"&#xx;", none, none},
    };
    for (const Reference& row : rows) {
        const std::string text = "[" + row.text + "]";
        EXPECT_EQ(Decoded(text), "[" + row.other + "]") << row.text;
        EXPECT_EQ(Decoded(text, kBom), "[" + row.utf8 + "]") << row.text;
        EXPECT_EQ(Decoded(text, "<?xml?>"), "[" + row.utf8 + "]") << row.text;
        EXPECT_EQ(Decoded(text, "<?xml encoding='GBK'?>"), "[" + row.other + "]") << row.text;
    }
    for (const char* const bad :
         {"&#12a;", "&#a;", "&#X41;", "&#xG;", "&#x4 1;", "&# 65;", "&#-1;", "&#x-1;", "&#x&#65;"}) {
        EXPECT_EQ(Decoded(std::string("x") + bad), "x") << bad;
        EXPECT_EQ(Read("<a b='x" + std::string(bad) + "'/>"), "a()") << bad;
    }
}

TEST(XmlEncoding, WhatADeclarationSays)
{
    const std::string euro = "<r a='&#x20AC;'/>";
    const std::string utf8 = "r[a=\"\xE2\x82\xAC\"]('')";
    const std::string other = "r[a=\"\xAC\"]('')";
    const auto root = [&](const std::string& before) {
        const XmlDocument document(before + euro);
        const support::XmlChain chain = document.Chain();
        return support::ToText(chain.back());
    };
    EXPECT_EQ(root(""), other);
    EXPECT_EQ(root(kBom), utf8);
    EXPECT_EQ(root("<?xml version='1.0'?>"), utf8);
    EXPECT_EQ(root("<?xml encoding='UTF-8'?>"), utf8);
    EXPECT_EQ(root("<?xml encoding='utf8'?>"), utf8);
    EXPECT_EQ(root("<?xml encoding='utf-8859'?>"), utf8) << "a prefix is enough";
    EXPECT_EQ(root("<?xml ENCODING=\"Utf8x\"?>"), utf8);
    EXPECT_EQ(root("<?xml encoding=''?>"), other);
    EXPECT_EQ(root("<?xml encoding='utf'?>"), other);
    EXPECT_EQ(root("<?xml encoding=' UTF-8'?>"), other);
    EXPECT_EQ(root("<?xml encoding='GBK'?>"), other);
    EXPECT_EQ(root("<?xml encodingx='UTF-8'?>"), utf8) << "no encoding at all";
    EXPECT_EQ(root("<?xml encodingx='GBK'?>"), utf8);
    EXPECT_EQ(root("<?xml encoding='GBK'?><?xml encoding='UTF-8'?>"), other) << "the first one tells";
    EXPECT_EQ(root("<?xml?><?xml encoding='GBK'?>"), utf8);
    EXPECT_EQ(root(kBom + "<?xml encoding='GBK'?>"), utf8) << "the mark has told already";
    EXPECT_EQ(root("<!----><?xml?>"), utf8);
    EXPECT_EQ(Read("<r><?xml encoding='UTF-8'?><a b='&#x20AC;'/></r>"), "r(?xml[encoding=\"UTF-8\"] a[b=\"\xAC\"](''))")
        << "not inside an element";
}

TEST(XmlEncoding, MarksAreWhiteSpaceInUtf8)
{
    const std::string fffe = "\xEF\xBF\xBE";
    const std::string ffff = "\xEF\xBF\xBF";
    EXPECT_EQ(Read(kBom + kBom + " " + fffe + ffff + "<a" + kBom + "b" + ffff + "='1'/>"),
              "a" + kBom + "b" + ffff + "()")
        << "in names they are letters";
    EXPECT_EQ(Read(kBom + "<a " + kBom + "b " + ffff + "= " + fffe + "'1' " + kBom + "/>"), R"(a[b="1"](''))");
    EXPECT_EQ(Read(kBom + "<a>" + kBom + "x" + kBom + "</a>"), "a('x" + kBom + "')");
    EXPECT_EQ(Read(kBom + "<a>" + kBom + "x " + kBom + "</a>", 0), "a('x " + kBom + "')");
    EXPECT_EQ(Read(kBom + "<a>" + kBom + "</a>"), "a('')");
    EXPECT_EQ(Read(kBom + "<" + kBom + " a/>"), "a('')");
    EXPECT_EQ(Read(kBom + "<r><" + fffe + "1/></r>"), "r(~())") << "an element without a name";
    EXPECT_EQ(Read("<" + kBom + "a/>"), kBom + "a('')") << "letters where it is not known to be UTF-8";
    EXPECT_EQ(Read("<a>" + kBom + "</a>"), "a('" + kBom + "')");
    EXPECT_EQ(Read(" " + kBom + "<a/>"), "") << "the mark counts at the very start only";
    EXPECT_EQ(Read("<?xml?>" + kBom + "<a/>"), "?xml a('')");
    EXPECT_EQ(Read("<?xml encoding='x'?>" + kBom + "<a/>"), R"(?xml[encoding="x"])");
}

TEST(XmlEncoding, ALeadByteTakesItsWholeCharacter)
{
    const auto value = [](const std::string& before, const std::string& content, const std::string& after = "'/>") {
        return Read(before + "<a b='" + content + after);
    };
    for (const int length : {2, 3, 4}) {
        const std::string lead(1, length == 2 ? '\xC2' : length == 3 ? '\xEF' : '\xF4');
        const std::string swallowed = std::string("'/>&").substr(0, static_cast<size_t>(length) - 1);
        EXPECT_EQ(value(kBom, lead + swallowed + "x"), "a[b=\"" + lead + swallowed + "x\"]('')");
        EXPECT_EQ(value(kBom, "x" + lead, ""), "a()") << "the end is seen";
        EXPECT_EQ(value("", lead), "a[b=\"" + lead + "\"]('')") << "one byte each elsewhere";
    }
    for (const std::string single : {"\x80", "\xC0", "\xC1", "\xF5", "\xFF"})
        EXPECT_EQ(value(kBom, single), "a[b=\"" + single + "\"]('')");
    EXPECT_EQ(Read(kBom + "<a>\xE4</a>x</a>"), "a('\xE4')") << "not in verbatim text";
    EXPECT_EQ(Read(kBom + "<a>\xE4</a>x</a>", 0), "a('\xE4</a>x')");
    EXPECT_EQ(Read(kBom + "<a>\xF0<<<<", 0), "a('\xF0<<<' ?!)");
    EXPECT_EQ(Read(kBom + "<a>\xF0<", 0), "a('\xF0<')") << "but the end";
}

/// Texts made of the pieces that mean something to the reader, at random.
std::string RandomText(std::mt19937& random)
{
    static const std::vector<std::string> pieces = {"<a>",
                                                    "</a>",
                                                    "<b",
                                                    "<b/>",
                                                    "</b>",
                                                    "<",
                                                    ">",
                                                    "/",
                                                    "/>",
                                                    "=",
                                                    "'",
                                                    "\"",
                                                    " ",
                                                    "\n",
                                                    "x",
                                                    "a",
                                                    "b",
                                                    "A",
                                                    "1",
                                                    " c='1'",
                                                    " C=2",
                                                    "<!--",
                                                    "-->",
                                                    "<!---->",
                                                    "<![CDATA[",
                                                    "]]>",
                                                    "]",
                                                    "-",
                                                    "<?xml",
                                                    "?>",
                                                    " encoding='gbk'",
                                                    " encoding='utf8'",
                                                    "version=",
                                                    "&",
                                                    "&amp;",
                                                    "&lt;",
                                                    "&#65;",
                                                    "&#x20AC;",
                                                    "&#",
                                                    "&#x",
                                                    ";",
                                                    "#",
                                                    "\xEF\xBB\xBF",
                                                    "\xEF\xBF\xBE",
                                                    "\xC3\xA4",
                                                    "\xE4",
                                                    "\xF0",
                                                    "\x7F",
                                                    "<!",
                                                    "<_",
                                                    "standalone",
                                                    "&#0;",
                                                    "<a b='1'>"};
    std::string text;
    if (random() % 4 == 0)
        text += "\xEF\xBB\xBF";
    if (random() % 3 == 0)
        text += "<?xml?>";
    if (random() % 2 == 0)
        text += "<a>";
    for (size_t i = random() % 24; i > 0; --i)
        text += pieces[random() % pieces.size()];
    return text;
}

TEST(XmlModel, RandomTexts)
{
    const char* const given = getenv("ZKQ_TEST_SEED");
    const auto seed = static_cast<unsigned>(given == nullptr ? 20240711 : strtoul(given, nullptr, 10));
    std::mt19937 random(seed);
    for (int i = 0; i < 60000; ++i) {
        const std::string text = RandomText(random);
        for (const int plain : {1, 0}) {
            const support::PlainText option(plain);
            const XmlDocument document(text);
            ASSERT_EQ(document.result, text.empty() ? EINVAL : 0);
            const support::XmlChain expected = support::model::ReadXml(text, plain != 0);
            ASSERT_EQ(document.Chain(), expected)
                << testing::PrintToString(text) << "\nread     " << document.Text() << "\nexpected "
                << support::ToText(expected) << "\nplain " << plain << " seed " << seed << " case " << i;
        }
    }
}

TEST(XmlModel, EachTextCutAnywhere)
{
    const std::string text = kBom + "<?xml version=\"1.0\" encoding='utf-8'?> <!----><r a='1' b=2 A=\"&lt;&#65;\">t "
                                    "&amp; u<c/><![CDATA[<x>]]><!-- c --><d>\xE4\xBD\xA0</d></r>";
    for (size_t length = 1; length <= text.size(); ++length) {
        // A block of its own, so that sanitizers see a byte too many.
        const std::unique_ptr<char, decltype(&free)> copy(strndup(text.c_str(), length), free);
        for (const int plain : {1, 0}) {
            const support::PlainText option(plain);
            void* xml = nullptr;
            ASSERT_EQ(WQXXML_LoadFromString(copy.get(), &xml), 0);
            EXPECT_EQ(support::CopyChain(xml), support::model::ReadXml(copy.get(), plain != 0)) << copy.get();
            WQXXML_ReleaseObject(xml);
        }
    }
}

TEST(XmlLarge, ManyAttributes)
{
    constexpr int count = 50000;
    std::string text = "<a";
    for (int i = 0; i < count; ++i)
        text += " n" + std::to_string(i) + "='" + std::to_string(i) + "'";
    for (int i = 0; i < count; i += 2)
        text += " N" + std::to_string(i) + "=\"new\"";
    const XmlDocument document(text + "/>");
    int i = 0;
    for (const support::XmlAttribute* attribute = document.Root()->attributes; attribute != nullptr;
         attribute = attribute->next, ++i) {
        ASSERT_EQ(attribute->name, "n" + std::to_string(i));
        ASSERT_EQ(attribute->value, i % 2 == 0 ? "new" : std::to_string(i));
    }
    EXPECT_EQ(i, count);
}

TEST(XmlLarge, FewAndManyAttributesInTurn)
{
    for (int count = 0; count < 70; ++count) {
        std::string text = "<r>";
        for (const int n : {count, 3, count + 1}) {
            text += "<a";
            for (int i = 0; i < n; ++i)
                text += " k" + std::to_string(i % 40) + "=" + std::to_string(i);
            text += "/>";
        }
        text += "</r>";
        EXPECT_EQ(support::ToText(support::model::ReadXml(text, true)), Read(text));
    }
}

TEST(XmlLarge, Pieces)
{
    constexpr size_t size = 5000000;
    const std::string bytes(size, 'x');
    for (const std::string& content : {bytes, "<![CDATA[" + bytes + "]]>", "<!--" + bytes + "-->"}) {
        const XmlDocument document("<r>" + content + "</r>");
        EXPECT_EQ(document.Root()->child->value, bytes);
    }
    EXPECT_EQ(Decoded(std::string(size, ' ') + "x" + std::string(size, '\n') + "y"), "x y");
    EXPECT_EQ(Decoded(std::string(size, '&')).size(), size);
    std::string marks;
    for (int i = 0; i < 1000000; ++i)
        marks += kBom;
    EXPECT_EQ(Read(marks + "<a>" + marks + "</a>"), "a('')");
    const XmlDocument attribute("<r " + bytes + "='" + bytes + "'/>");
    EXPECT_EQ(attribute.Root()->attributes->value, bytes);
    EXPECT_EQ(attribute.Root()->attributes->name, bytes);
}

TEST(XmlLarge, ManySiblings)
{
    std::string text = "<r>";
    constexpr int count = 1000000;
    for (int i = 0; i < count / 2; ++i)
        text += "<a/>t";
    const XmlDocument document(text + "</r>");
    int found = 0;
    for (const XmlNode* node = document.Root()->child; node != nullptr; node = node->next)
        ++found;
    EXPECT_EQ(found, count);
}

TEST(XmlDeep, AMillionLevels)
{
    constexpr int levels = 1000000;
    std::string text;
    for (int i = 0; i < levels; ++i)
        text += "<a>";
    std::string closed = text + "x";
    for (int i = 0; i < levels; ++i)
        closed += "</a>";
    for (const bool isClosed : {false, true}) {
        const XmlDocument document(isClosed ? closed : text);
        const XmlNode* node = document.Root();
        int depth = 1;
        for (; node->child != nullptr && node->child->type == support::kElement; node = node->child)
            ++depth;
        EXPECT_EQ(depth, levels);
        EXPECT_STREQ(node->child->value, isClosed ? "x" : "");
    }
}

TEST(XmlThreads, DocumentsOfTheirOwn)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([i] {
            std::string text = "<r>";
            for (int k = 0; k < 5000; ++k)
                text += "<n i='" + std::to_string(i) + "'>" + std::to_string(k) + "</n>";
            text += "</r>";
            for (int turn = 0; turn < 20; ++turn) {
                const XmlDocument document(text);
                const XmlNode* node = document.Root()->child;
                for (int k = 0; node != nullptr; node = node->next, ++k)
                    ASSERT_EQ(node->child->value, std::to_string(k));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST(XmlThreads, ReleasedByAnother)
{
    for (int turn = 0; turn < 50; ++turn) {
        auto document = std::make_unique<XmlDocument>("<r>" + std::string(static_cast<size_t>(turn) * 5000, 't') +
                                                      "<a b='c'/><a/></r>");
        std::thread([&] { document.reset(); }).join();
    }
}

TEST(XmlMemory, NothingLeaks)
{
    support::ExpectNothingLeaks([] {
        Read("<r a='1' A='2'><b>x</b><!--c--></r>");
        Read("<r a='1' b=\"");
        Read("<r><b><c>");
        Read("<!x>");
        Read("x");
    });
}

} // namespace
