// Copying nodes, which only the library's own layers do.
#include <ZKQ_general/TamorXml.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <string>

#include "../src/internal/xml.h"
#include "support/xml.h"

namespace {

using support::XmlDocument;

constexpr int kNotAnElement = -6;

TEST(XmlCopy, ElementsWithTheirTextAndAttributes)
{
    const XmlDocument source(R"(<s a="1" b="2">x<a c="3"><b/></a>y<!--c--><![CDATA[z]]><d><e/>late</d></s>)");
    const XmlDocument target("<t>1<u/></t>");
    EXPECT_EQ(WQXXML_Misc_CopyNode(source.Root(), target.Root()), 0);
    EXPECT_EQ(target.Text(), R"(t('1' u('') s[a="1" b="2"]('x' a[c="3"](b('')) d(e('')))))");
    EXPECT_EQ(source.Text(), R"(s[a="1" b="2"]('x' a[c="3"](b('')) 'y' <!c> 'z' d(e('') 'late')))");
}

TEST(XmlCopy, WhatIsNoElement)
{
    const XmlDocument source("<?xml?><s>x<!--c--></s>");
    const XmlDocument target("<t>1</t>");
    EXPECT_EQ(WQXXML_Misc_CopyNode(nullptr, target.Root()), 0);
    EXPECT_EQ(WQXXML_Misc_CopyNode(nullptr, nullptr), 0);
    EXPECT_EQ(WQXXML_Misc_CopyNode(source.xml, target.Root()), kNotAnElement);
    EXPECT_EQ(WQXXML_Misc_CopyNode(source.Root()->child, target.Root()), kNotAnElement);
    EXPECT_EQ(WQXXML_Misc_CopyNode(source.Root()->child->next, nullptr), kNotAnElement);
    EXPECT_EQ(WQXXML_Misc_CopyNode(source.Root(), nullptr), EINVAL);
    EXPECT_EQ(WQXXML_Misc_CopyNode(source.Root(), target.Root()->child), EINVAL);
    EXPECT_EQ(target.Text(), "t('1')");
}

TEST(XmlCopy, AnElementWithoutANameEndsIt)
{
    const XmlDocument source("<s><a/><b/><c/></s>");
    const XmlDocument target("<t/>");
    ASSERT_EQ(WQXXML_ChangeNodeValue(source.Root()->child->next, ""), 0);
    EXPECT_EQ(WQXXML_Misc_CopyNode(source.Root()->child->next, target.Root()), EINVAL);
    EXPECT_EQ(target.Text(), "t('')");
    EXPECT_EQ(WQXXML_Misc_CopyNode(source.Root(), target.Root()), EINVAL);
    EXPECT_EQ(target.Text(), "t('' s(a('')))") << "what was copied stays";
}

TEST(XmlCopy, IntoItselfAndBelow)
{
    const XmlDocument document("<a>1<b>2<c>3</c></b></a>");
    support::XmlNode* const c = document.Root()->child->next->child->next;
    EXPECT_EQ(WQXXML_Misc_CopyNode(document.Root(), c), 0);
    EXPECT_EQ(document.Text(), "a('1' b('2' c('3' a('1' b('2' c('3'))))))");
    EXPECT_EQ(WQXXML_Misc_CopyNode(c, c), 0);
    EXPECT_EQ(document.Text(), "a('1' b('2' c('3' a('1' b('2' c('3'))) c('3' a('1' b('2' c('3')))))))");
}

TEST(XmlCopy, AMillionLevels)
{
    std::string text;
    constexpr int levels = 1000000;
    for (int i = 0; i < levels; ++i)
        text += "<a>";
    const XmlDocument source(text);
    const XmlDocument target("<t/>");
    EXPECT_EQ(WQXXML_Misc_CopyNode(source.Root(), target.Root()), 0);
    int depth = 0;
    for (const support::XmlNode* node = target.Root()->child->next; node->type == support::kElement; node = node->child)
        ++depth;
    EXPECT_EQ(depth, levels);
}

TEST(XmlOneLevel, NoElementBelow)
{
    const auto isOneLevel = [](const char* text) {
        const XmlDocument document(text);
        void* const root = document.Root();
        return IsOneLevelElement(static_cast<XMLNODE*>(root)) != 0;
    };
    EXPECT_NE(IsOneLevelElement(nullptr), 0);
    EXPECT_TRUE(isOneLevel("<a/>"));
    EXPECT_TRUE(isOneLevel("<a>x<!--c-->y</a>"));
    EXPECT_FALSE(isOneLevel("<a>x<b/></a>"));
    XMLNODE* const bare = GenerateNewNode(ELEMENT, "a");
    EXPECT_NE(IsOneLevelElement(bare), 0);
    WQXXML_ReleaseObject(bare);
}

} // namespace
