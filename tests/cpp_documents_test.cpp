// The C++ layer's owners of JSON documents, XML documents and certificates.
#include <ZKQ_general.hpp>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "support/der.h"
#include "support/owner.h"
#include "support/temp_dir.h"

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

// Failures with other reasons, one with a code and one with a text.
void FailOtherwise()
{
    EXPECT_EQ(zkq::Xml::Parse(nullptr)->Find("a").code(), 20);
    EXPECT_FALSE(ZKQGeneral_IsFileExist("/no such file"));
}

TEST(CppJson, IsRead)
{
    auto parsed =
        zkq::Json::Parse(R"({"a":{"text":"t","number":7,"hex":"00ff","b64":"AP8="},"list":["x",{"y":"z"}]})"sv);
    ASSERT_TRUE(parsed) << parsed.text();
    const zkq::Json json = support::ExpectMoves(std::move(*parsed));
    EXPECT_EQ(*json.GetString("a/text"), "t");
    EXPECT_EQ(*json.GetInt("a/number"), 7);
    EXPECT_EQ(*json.GetHex("a/hex"), "\0\xFF"s);
    EXPECT_EQ(json.GetHex<zkq::Buffer>("a/hex")->view(), "\0\xFF"sv);
    EXPECT_EQ(*json.GetBase64("a/b64"), "\0\xFF"s);
    EXPECT_EQ(json.GetString("a/number")->data(), nullptr);
    const zkq::JsonNode node = *json.Find("a");
    EXPECT_EQ(*node.GetString("text"), "t");
    const auto list = json.Elements("list");
    ASSERT_TRUE(list) << list.text();
    ASSERT_EQ(list->size(), 2U);
    EXPECT_EQ(*list.value()[0].GetString(nullptr), "x");
    EXPECT_EQ(*list.value()[1].GetString("y"), "z");
    EXPECT_TRUE(json.Find("list")->IsArray());
    EXPECT_FALSE(node.IsArray());
}

TEST(CppJson, IsWritten)
{
    zkq::Json json = *zkq::Json::Make();
    EXPECT_TRUE(json.SetString("a/text", std::string_view("texts", 4)));
    EXPECT_TRUE(json.SetInt("a/number", -7));
    EXPECT_TRUE(json.SetHex("a/hex", "\0\xFF"s));
    EXPECT_TRUE(json.SetBase64("a/b64", "\0\xFF"s));
    const zkq::JsonNode list = *json.FindOrAdd("list");
    EXPECT_TRUE(list.MakeArray());
    EXPECT_TRUE(list.AddString("x"));
    EXPECT_TRUE(list.AddObject()->SetString("y", "z"));
    json = support::ExpectReplaces(*zkq::Json::Make(), std::move(json));
    const zkq::Json again = *zkq::Json::Parse(*json.Close());
    EXPECT_FALSE(json);
    EXPECT_EQ(*again.GetString("a/text"), "text");
    EXPECT_EQ(*again.GetInt("a/number"), -7);
    EXPECT_EQ(*again.GetHex("a/hex"), "\0\xFF"s);
    EXPECT_EQ(*again.GetBase64("a/b64"), "\0\xFF"s);
    EXPECT_EQ(again.Elements("list")->size(), 2U);
    zkq::Json other = *zkq::Json::Make();
    EXPECT_EQ(other.Close<zkq::Buffer>()->view(), *zkq::Json::Make()->Close());
}

TEST(CppJson, Failures)
{
    auto bad = zkq::Json::Parse("{");
    EXPECT_EQ(bad.code(), -8);
    support::ExpectKeepsReason(bad, zkq::CodeError(-8).text.c_str(), FailOtherwise);
    zkq::Json none = std::move(*bad); // what a failed call gives is harmless
    EXPECT_FALSE(none);
    EXPECT_EQ(none.GetString("a").code(), EINVAL);
    EXPECT_EQ(none.GetInt("a").code(), EINVAL);
    EXPECT_EQ(none.GetHex("a").code(), EINVAL);
    EXPECT_EQ(none.GetBase64("a").code(), EINVAL);
    EXPECT_EQ(none.Elements("a").code(), EINVAL);
    EXPECT_EQ(none.Find("a").code(), EINVAL);
    EXPECT_EQ(none.FindOrAdd("a").code(), EINVAL);
    EXPECT_EQ(none.SetString("a", "").code(), EINVAL);
    EXPECT_EQ(none.SetInt("a", 1).code(), EINVAL);
    EXPECT_EQ(none.SetHex("a", "").code(), EINVAL);
    EXPECT_EQ(none.SetBase64("a", "").code(), EINVAL);
    EXPECT_EQ(none.MakeArray().code(), EINVAL);
    EXPECT_EQ(none.AddObject().code(), EINVAL);
    EXPECT_EQ(none.AddString("").code(), EINVAL);
    EXPECT_EQ(none.Close().code(), EINVAL);
    EXPECT_FALSE(none.IsArray());
    EXPECT_EQ(zkq::Json::Make()->SetHex("a", {"", size_t{INT_MAX} + 1}).code(), EINVAL);
    const zkq::Json json = *zkq::Json::Parse(R"({"odd":"123"})");
    EXPECT_EQ(json.GetHex("odd").code(), EINVAL);
    EXPECT_EQ(json.Elements("odd").code(), EINVAL);
}

constexpr const char* kServers = "<servers><server id='1'><name>alpha</name></server><server id='2'/></servers>";

TEST(CppXml, IsRead)
{
    auto parsed = zkq::Xml::Parse(kServers);
    ASSERT_TRUE(parsed) << parsed.text();
    const zkq::Xml xml = support::ExpectMoves(std::move(*parsed));
    EXPECT_EQ(*xml.Value("/servers/server[id=1]/name"sv), "alpha");
    EXPECT_EQ(*xml.Attribute("/servers/server", "id"), "1");
    const zkq::XmlElement server = *xml.Find("/servers/server[id=1]");
    EXPECT_EQ(*server.Name(), "server");
    EXPECT_EQ(*server.OwnAttribute("id"), "1");
    EXPECT_EQ(*server.Value("/server/name"), "alpha");
    EXPECT_EQ(*server.Find("/server/name")->OwnValue(), "alpha");
}

TEST(CppXml, IsWalked)
{
    const zkq::Xml xml = *zkq::Xml::Parse(kServers);
    auto begun = xml.Walk("/servers");
    ASSERT_TRUE(begun) << begun.text();
    zkq::XmlWalk walk = support::ExpectMoves(std::move(*begun));
    std::string ids;
    while (const zkq::XmlElement server = walk.Next())
        ids += *server.OwnAttribute("id");
    EXPECT_EQ(ids, "12");
    EXPECT_FALSE(walk.Next());
    walk = support::ExpectReplaces(std::move(walk), *xml.Walk("/servers"));
    EXPECT_TRUE(walk.Next());
    EXPECT_FALSE(zkq::XmlWalk().Next());
}

TEST(CppXml, IsChanged)
{
    zkq::Xml xml = *zkq::Xml::Parse(kServers);
    EXPECT_TRUE(xml.SetValue("/servers/server/name", std::string_view("betas", 4)));
    EXPECT_TRUE(xml.Add("/servers/server[id=2]", "name", "gamma"));
    EXPECT_TRUE(xml.SetAttribute("/servers/server[id=2]", "kind", "k"));
    EXPECT_TRUE(xml.FindOrAdd("/servers/server[id=3]"));
    EXPECT_TRUE(xml.Delete("/servers/server[id=1]"));
    xml = support::ExpectReplaces(*zkq::Xml::Parse(""), std::move(xml));
    const auto text = xml.Close();
    ASSERT_TRUE(text) << text.text();
    EXPECT_FALSE(xml);
    const zkq::Xml again = *zkq::Xml::Parse(*text);
    EXPECT_EQ(*again.Value("/servers/server[id=2]/name"), "gamma");
    EXPECT_EQ(*again.Attribute("/servers/server", "kind"), "k");
    EXPECT_TRUE(again.Find("/servers/server[id=3]"));
    EXPECT_FALSE(again.Find("/servers/server[id=1]"));
}

TEST(CppXml, IsWrittenToItsFileWhenReleased)
{
    const support::TempDir dir;
    {
        const zkq::Xml xml = *zkq::Xml::Open(dir.File("x.xml"), true);
        EXPECT_TRUE(xml.Add("/root", "child", "text"));
    }
    EXPECT_EQ(*zkq::Xml::Open(dir.File("x.xml"))->Value("/root/child"), "text");
}

TEST(CppXml, Failures)
{
    const support::TempDir dir;
    auto missing = zkq::Xml::Open(dir.File("none"));
    EXPECT_EQ(missing.code(), -2);
    const std::string reason = WQXXMLH_Misc_GetExternalError();
    EXPECT_NE(reason, "");
    support::ExpectKeepsReason(missing, reason.c_str(), [] { WQXXMLH_Misc_SetExternalError("another"); });
    zkq::Xml none = std::move(*missing); // what a failed call gives is harmless
    EXPECT_FALSE(none);
    EXPECT_EQ(none.Close().code(), EINVAL);
    for (const int code :
         {none.Find("/a").code(), none.FindOrAdd("/a").code(), none.Value("/a").code(),
          none.Attribute("/a", "b").code(), none.Walk("/a").code(), none.Add("/a", "b", "c").code(),
          none.SetAttribute("/a", "b", "c").code(), none.SetValue("/a", "b").code(), none.Delete("/a").code(),
          none.Name().code(), none.OwnValue().code(), none.OwnAttribute("a").code()})
        EXPECT_NE(code, 0);
    const zkq::Xml xml = *zkq::Xml::Parse(kServers);
    EXPECT_EQ(xml.Find("/servers/none").code(), 20);
    EXPECT_STREQ(xml.Find("/servers/none").text(), strerror(20));
    EXPECT_EQ(xml.Attribute("/servers/server", "none").code(), ENOENT);
    EXPECT_FALSE(*xml.Find("/servers/none"));
}

TEST(CppXmlTree, ReadChangedAndPrinted)
{
    auto parsed = zkq::XmlTree::Parse(kServers);
    ASSERT_TRUE(parsed) << parsed.text();
    zkq::XmlTree tree = support::ExpectMoves(std::move(*parsed));
    const zkq::XmlNode root = *tree.Root();
    EXPECT_EQ(*root.Name(), "servers");
    EXPECT_EQ(*root.ChildCount(), 2);
    EXPECT_EQ(*root.Child(1)->Attribute("id"), "2");
    EXPECT_EQ(*root.Child(0)->Child(0)->Value(), "alpha");
    EXPECT_TRUE(root.Child(1)->AddChild("name", std::string_view("betas", 4)));
    EXPECT_TRUE(root.Child(1)->SetAttribute("id", "5"));
    EXPECT_TRUE(tree.Delete(*root.Child(0)));
    tree = support::ExpectReplaces(*zkq::XmlTree::Parse("<x/>"), std::move(tree));
    const zkq::XmlTree again = *zkq::XmlTree::Parse(*tree.Print());
    EXPECT_EQ(*again.Root()->ChildCount(), 1);
    EXPECT_EQ(*again.Root()->Child(0)->Attribute("id"), "5");
    EXPECT_EQ(*again.Root()->Child(0)->Child(0)->Value(), "beta");
}

TEST(CppXmlTree, IsMadeFromNothing)
{
    zkq::XmlTree tree;
    const auto root = tree.AddRoot("root");
    ASSERT_TRUE(root) << root.text();
    EXPECT_TRUE(tree);
    EXPECT_TRUE(root->AddChild("child"));
    EXPECT_EQ(*tree.Root()->Child(0)->Name(), "child");
    EXPECT_TRUE(tree.Delete(*root));
    EXPECT_FALSE(tree) << "it is empty again";
}

TEST(CppXmlTree, Failures)
{
    auto failed = zkq::XmlTree::Parse("");
    EXPECT_EQ(failed.code(), EINVAL);
    support::ExpectKeepsReason(failed, strerror(EINVAL), FailOtherwise);
    const zkq::XmlTree none;
    EXPECT_FALSE(none.Root());
    EXPECT_EQ(none.Print().value_or("failed"), "");
    const zkq::XmlNode node;
    EXPECT_EQ(node.Name().code(), EINVAL);
    EXPECT_EQ(node.Value().code(), EINVAL);
    EXPECT_EQ(node.Attribute("a").code(), EINVAL);
    EXPECT_EQ(node.ChildCount().code(), EINVAL);
    EXPECT_EQ(node.Child(0).code(), EINVAL);
    EXPECT_EQ(node.AddChild("a").code(), EINVAL);
    EXPECT_EQ(node.SetAttribute("a", "b").code(), EINVAL);
    zkq::XmlTree tree = *zkq::XmlTree::Parse("<a/>");
    EXPECT_EQ(tree.Root(1).code(), ENOENT);
    EXPECT_EQ(tree.Delete(node).code(), EINVAL);
    EXPECT_EQ(tree.AddRoot("").code(), EINVAL);
}

std::string Der()
{
    using namespace support::der; // NOLINT: certificates are written in it
    Certificate certificate;
    certificate.extensions = Extension("2.5.29.14", "key id") + Extension("1.2.3", "\0b"s, kTrue);
    return certificate.Der();
}

TEST(CppCertificate, IsRead)
{
    auto parsed = zkq::Certificate::Parse(Der());
    ASSERT_TRUE(parsed) << parsed.text();
    const zkq::Certificate certificate = support::ExpectMoves(std::move(*parsed));
    EXPECT_EQ(*certificate.Number(ZKQ_CERT_VERSION), 2);
    EXPECT_EQ(*certificate.TextOf(ZKQ_CERT_SERIAL), "0123");
    EXPECT_EQ(*certificate.TextOf(ZKQ_CERT_NOT_BEFORE), "2025-01-02 11:04:05");
    EXPECT_EQ(*certificate.DataOf(ZKQ_CERT_SIGNATURE), "the signature");
    const auto issuer = *certificate.Issuer();
    ASSERT_EQ(issuer.size(), 2U);
    EXPECT_EQ(issuer[0].oid, "2.5.4.6");
    EXPECT_EQ(issuer[1].value, "Issuer");
    ASSERT_EQ(certificate.Subject()->size(), 1U);
    EXPECT_EQ(certificate.Subject()->front().value, "Subject");
    const auto extensions = *certificate.Extensions();
    ASSERT_EQ(extensions.size(), 2U);
    EXPECT_EQ(extensions[0].oid, "2.5.29.14");
    EXPECT_FALSE(extensions[0].critical);
    EXPECT_EQ(extensions[0].value, "key id");
    EXPECT_TRUE(extensions[1].critical);
    EXPECT_EQ(extensions[1].value, "\0b"s);
}

TEST(CppCertificate, IsOpenedAndReplaced)
{
    const support::TempDir dir;
    support::WriteFile(dir.File("c.der"), Der());
    auto opened = zkq::Certificate::Open(std::string_view(dir.File("c.der")));
    ASSERT_TRUE(opened) << opened.text();
    EXPECT_TRUE(support::ExpectReplaces(*zkq::Certificate::Parse(Der()), std::move(*opened)).Subject());
}

TEST(CppCertificate, Failures)
{
    auto bad = zkq::Certificate::Parse("0");
    EXPECT_EQ(bad.code(), EINVAL);
    support::ExpectKeepsReason(bad, strerror(EINVAL), FailOtherwise);
    // No bytes are no path.
    EXPECT_EQ(zkq::Certificate::Parse("").code(), EINVAL);
    EXPECT_EQ(zkq::Certificate::Parse({}).code(), EINVAL);
    EXPECT_FALSE(zkq::Certificate::Open("/no such file"));
    const zkq::Certificate& none = *bad; // what a failed call gives is harmless
    EXPECT_FALSE(none);
    EXPECT_EQ(none.Number(ZKQ_CERT_VERSION).code(), EINVAL);
    EXPECT_EQ(none.TextOf(ZKQ_CERT_SERIAL).code(), EINVAL);
    EXPECT_EQ(none.DataOf(ZKQ_CERT_KEY).code(), EINVAL);
    EXPECT_EQ(none.Subject().code(), EINVAL);
    EXPECT_EQ(none.Issuer().code(), EINVAL);
    EXPECT_EQ(none.Extensions().code(), EINVAL);
    EXPECT_EQ(zkq::Certificate::Parse(Der())->Number(12345).code(), EINVAL);
}

} // namespace
