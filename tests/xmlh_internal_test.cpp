// What of the XML handles cannot be seen from outside: their records, and what they tell the library's own log.
#include <errno.h>
#include <iconv.h>
#include <sys/stat.h>

#include <functional>
#include <optional>

#include "../src/internal/log.h"
#include "../src/internal/xmlh.h"
#include "messages_gbk.h"
#include "support/log_context.h"
#include "support/xml_handle.h"

namespace {

using support::AppInfo;
using support::LogContext;
using support::LogDir;
using support::ReadFile;
using support::WriteFile;
using support::XmlHandle;

TEST(XmlHandleRecord, HoldsWhatWasOpened)
{
    const support::TempDir dir;
    for (const int mode : {0, 1, 5, -1}) {
        WriteFile(dir.File("d.xml"), "<r/>");
        const XmlHandle handle = XmlHandle::Of(dir.File("d.xml"), mode);
        const auto* const record = static_cast<WQXXMLH*>(handle.Get());
        EXPECT_EQ(record->MagicNum, 0x12653487);
        EXPECT_EQ(record->FileName, dir.File("d.xml"));
        EXPECT_NE(record->xml, nullptr);
        ASSERT_NE(record->HashTable, nullptr);
        EXPECT_EQ(*static_cast<unsigned int*>(record->HashTable), 256u) << "buckets";
        EXPECT_EQ(record->Mode, mode);
        EXPECT_EQ(record->Modified, FALSE);
        EXPECT_STREQ(record->Version, "");
        EXPECT_STREQ(record->Encodeing, "");
        EXPECT_STREQ(record->Standalone, "");
    }
    const XmlHandle text("<?xml version='1.0' encoding='GBK'?><r/>", 3);
    const auto* const record = static_cast<WQXXMLH*>(text.Get());
    EXPECT_STREQ(record->FileName, "");
    EXPECT_EQ(record->Mode, 3);
    EXPECT_STREQ(record->Encodeing, "");
}

TEST(XmlHandleRecord, IsModifiedFromTheFirstChangeOn)
{
    const XmlHandle handle("<r><a/></r>", 0);
    const auto* const record = static_cast<WQXXMLH*>(handle.Get());
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle.Node("/r/a"), "/a", "1"), 0);
    EXPECT_EQ(record->Modified, FALSE) << "an element does not know its handle";
    EXPECT_EQ(WQXXMLH_SetDeclaration(handle, "1.0", "", nullptr), 0);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/b", "1"), kXmlBadPath);
    EXPECT_EQ(record->Modified, FALSE);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/a", "1"), 0);
    EXPECT_EQ(record->Modified, TRUE);
    EXPECT_EQ(WQXXMLH_ChangeElementValue(handle, "/r/b", "1"), kXmlBadPath);
    WQXXMLH_RecordTempFile(handle);
    EXPECT_EQ(record->Modified, TRUE);
}

TEST(XmlIterationRecord, CountsWhatIsLeft)
{
    const XmlHandle handle("<r>x<a><c/></a>y<b/></r>", 7);
    void* walk = nullptr;
    void* node = nullptr;
    ASSERT_EQ(WQXXMLH_BeginIterate(handle, "/r", &walk), 0);
    const auto* const record = static_cast<WQXXMLH_ITERATENODE*>(walk);
    EXPECT_EQ(record->MagicNum, 0x12653489);
    EXPECT_EQ(record->CurChildNode, nullptr);
    EXPECT_EQ(record->ChildNode, handle.Node("/r/a"));
    EXPECT_EQ(record->Count, 2);
    EXPECT_EQ(record->Mode, 7);
    EXPECT_EQ(WQXXMLH_Iterate(walk, &node), 0);
    EXPECT_EQ(record->CurChildNode, handle.Node("/r/a"));
    EXPECT_EQ(record->ChildNode, handle.Node("/r/b"));
    EXPECT_EQ(record->Count, 1);
    void* inner = nullptr;
    ASSERT_EQ(WQXXMLH_BeginIterate2(walk, &inner), 0);
    EXPECT_EQ(static_cast<WQXXMLH_ITERATENODE*>(inner)->Mode, 7);
    EXPECT_EQ(static_cast<WQXXMLH_ITERATENODE*>(inner)->Count, 1);
    WQXXMLH_EndIterate(inner);
    ASSERT_EQ(WQXXMLH_BeginIterateEx(node, &inner), 0);
    EXPECT_EQ(static_cast<WQXXMLH_ITERATENODE*>(inner)->Mode, 0);
    WQXXMLH_EndIterate(inner);
    ASSERT_EQ(WQXXMLH_BeginIterate(handle.Node("/r/a"), "/a", &inner), 0);
    EXPECT_EQ(static_cast<WQXXMLH_ITERATENODE*>(inner)->Mode, 0) << "no handle, no mode";
    WQXXMLH_EndIterate(inner);
    EXPECT_EQ(WQXXMLH_Iterate(walk, &node), 0);
    EXPECT_EQ(WQXXMLH_Iterate(walk, &node), ENOENT);
    EXPECT_EQ(record->CurChildNode, handle.Node("/r/b"));
    EXPECT_EQ(record->ChildNode, nullptr);
    EXPECT_EQ(record->Count, 0);
    WQXXMLH_EndIterate(walk);
}

TEST(XmlNameCheck, LooksAtTheNameOnly)
{
    for (const char* name : {"", "a", "a/b", "a=b", "\t", "\n", "[]", "\"", "&", "\x80\xff"})
        EXPECT_EQ(WQXXMLH_Misc_CheckNamenValueValid(name, " <>@"), 0) << name;
    for (const char* name : {" ", "<", ">", "@", "ab c", "a<", "a@b"})
        EXPECT_EQ(WQXXMLH_Misc_CheckNamenValueValid(name, nullptr), EINVAL) << name;
    EXPECT_EQ(WQXXMLH_Misc_CheckNamenValueValid(nullptr, "v"), EINVAL);
}

// The log

std::string ToGbk(std::string utf8)
{
    std::string output(utf8.size() + 1, '\0');
    char* in = utf8.data();
    char* out = output.data();
    size_t inLeft = utf8.size();
    size_t outLeft = output.size();
    const iconv_t converter = iconv_open("GBK", "UTF-8");
    EXPECT_EQ(iconv(converter, &in, &inLeft, &out, &outLeft), 0u);
    iconv_close(converter);
    output.resize(output.size() - outLeft);
    return output;
}

/// The library's own log in a directory of the test.
class XmlHandleLog : public testing::Test {
protected:
    XmlHandleLog() : info_(dir_), saved_(g_General_LogCtx)
    {
        info_.bAlwaysLog = ZKQ_LOG_ALL;
        context_.emplace(info_);
        g_General_LogCtx = static_cast<LOGCTX*>(context_->Get());
    }
    ~XmlHandleLog() override { g_General_LogCtx = saved_; }

    /// The texts of the records since the last call, without level and place; joined by "|".
    std::string Told()
    {
        const std::string log = ReadFile(dir_.OwnLog());
        std::string told;
        for (size_t at = shown_; at < log.size();) {
            const size_t end = std::min(log.find('\n', at), log.size());
            const std::string line = log.substr(at, end - at);
            EXPECT_TRUE(line.starts_with("[Error] ")) << line;
            told += (told.empty() ? "" : "|") + line.substr(8, line.rfind(" - ") - 8);
            at = end + 1;
        }
        shown_ = log.size();
        return told;
    }

    LogDir dir_;

private:
    AppInfo info_;
    std::optional<LogContext> context_;
    LOGCTX* saved_;
    size_t shown_ = 0;
};

struct Failing {
    std::function<int(XmlHandle&)> run;
    int result;
    const char* told; ///< in UTF-8
};

TEST_F(XmlHandleLog, TellsWhyACallFails)
{
    void* none = nullptr;
    char* text = nullptr;
    const std::string invalid = strerror(EINVAL);
    const std::string notFound = strerror(ENOENT);
    const Failing rows[] = {
        {[&](XmlHandle&) { return WQXXMLH_Open(nullptr, 0, &none); }, EINVAL, "参数错误：文件名不能为NULL"},
        {[&](XmlHandle&) { return WQXXMLH_Open("", 1, nullptr); }, EINVAL, "参数错误：文件名不能为NULL"},
        {[&](XmlHandle&) { return WQXXMLH_Open("x", 1, nullptr); }, EINVAL, "参数错误：输出句柄不能为NULL"},
        {[&](XmlHandle&) { return WQXXMLH_Open(std::string(300, 'x').c_str(), 1, &none); }, ENOMEM,
         "文件名长度超过系统允许的范围"},
        {[&](XmlHandle&) { return WQXXMLH_Open("no/such/file", 0, &none); }, -2, notFound.c_str()},
        {[&](XmlHandle&) { return WQXXMLH_Open("no/such/file", 1, &none); }, ENOENT, notFound.c_str()},
        {[&](XmlHandle&) { return WQXXMLH_Open2(nullptr, 0, &none); }, EINVAL,
         "参数错误：只读模式下XML和Habdle不能为NULL"},
        {[&](XmlHandle&) { return WQXXMLH_Open2("<r/>", 0, nullptr); }, EINVAL,
         "参数错误：只读模式下XML和Habdle不能为NULL"},
        {[&](XmlHandle&) { return WQXXMLH_Open2("<r/>", 1, nullptr); }, EINVAL, "参数错误：读写模式下Habdle不能为NULL"},
        {[&](XmlHandle&) { return WQXXMLH_SetDeclaration(nullptr, "", "", ""); }, 9, "句柄指针为空"},
        {[&](XmlHandle& h) { return WQXXMLH_SetDeclaration(h.Node("/r"), "", "", ""); }, 9, "XMLH句柄非法"},
        {[&](XmlHandle& h) { return WQXXMLH_SetDeclaration(h, std::string(32, 'x').c_str(), "", ""); }, -9,
         "系统内存不足。"},
        {[&](XmlHandle&) { return WQXXMLH_GetNodeFromPath(nullptr, "/r", &none); }, 9, "句柄指针为空"},
        {[&](XmlHandle& h) { return WQXXMLH_GetNodeFromPath(h, nullptr, &none); }, 9, "路径指针为空"},
        {[&](XmlHandle& h) { return WQXXMLH_GetNodeFromPath(h, "r", &none); }, 20, "路径格式错误"},
        {[&](XmlHandle& h) { return WQXXMLH_GetNodeFromPath(h, "/", &none); }, 20, "路径格式错误"},
        {[&](XmlHandle& h) { return WQXXMLH_GetNodeFromPath(h, "//", &none); }, 20,
         "路径//信息解析错误|查找节点//失败!"},
        {[&](XmlHandle& h) { return WQXXMLH_GetNodeFromPath(h, "/s", &none); }, 20, "查找节点/s失败!"},
        {[&](XmlHandle& h) { return WQXXMLH_GetNodeFromPath(h, "/r/%s%n", &none); }, 20,
         "找不到子结点：%s%n|查找节点/r/%s%n失败!"},
        {[&](XmlHandle& h) { return WQXXMLH_GetNodeFromPath(h, "/r/a[k=w]", &none); }, ENOENT,
         "没有找到对应属性节点|查找节点/r/a[k=w]失败!"},
        {[&](XmlHandle& h) { return WQXXMLH_GetNodeFromPath(h, "/r/a[x=1][%n=2]", &none); }, 20,
         "路径(a[x=1][%n=2])不正确，路径最多只能有一个中括号|查找节点/r/a[x=1][%n=2]失败!"},
        {[&](XmlHandle& h) { return WQXXMLH_GetNodeFromPath(h, "/r/a[x]", &none); }, 20,
         "子路径信息解析错误|查找节点/r/a[x]失败!"},
        {[&](XmlHandle&) { return WQXXMLH_GetNodeFromPath(XmlHandle(" "), "/r", &none); }, ENOENT, "查找节点/r失败!"},
        {[&](XmlHandle& h) { return WQXXMLH_GetElementValue(h, "/r", nullptr); }, EINVAL,
         "WQXXMLH_GetElementValue参数错误!"},
        {[&](XmlHandle& h) { return WQXXMLH_GetElementValue(h, "/r", &text); }, EINVAL, invalid.c_str()},
        {[&](XmlHandle& h) { return WQXXMLH_GetElementAttribute(h, "/r", nullptr, &text); }, EINVAL,
         "WQXXMLH_GetElementAttribute参数错误!"},
        {[&](XmlHandle& h) { return WQXXMLH_GetElementAttribute(h, "/r", "x", nullptr); }, EINVAL,
         "WQXXMLH_GetElementAttribute参数错误!"},
        {[&](XmlHandle& h) { return WQXXMLH_GetElementAttribute(h, "/r", "x", &text); }, ENOENT, notFound.c_str()},
        {[&](XmlHandle& h) { return WQXXMLH_AddElementValue(h, "/r", "", ""); }, EINVAL, invalid.c_str()},
        {[&](XmlHandle& h) { return WQXXMLH_ChangeElementAttribute(h, "/r", "x", ""); }, ENOENT, notFound.c_str()},
        {[&](XmlHandle& h) { return WQXXMLH_ChangeElementValue(h, "/r", ""); }, EINVAL, invalid.c_str()},
        {[&](XmlHandle& h) { return WQXXMLH_BeginIterate(h, "/r", nullptr); }, EINVAL, "WQXXMLH_BeginIterate参数错误!"},
        {[&](XmlHandle&) { return WQXXMLH_BeginIterate2(nullptr, &none); }, 9, "句柄指针为空"},
        {[&](XmlHandle& h) { return WQXXMLH_BeginIterate2(h, &none); }, 9, "未知句柄"},
        {[&](XmlHandle&) { return WQXXMLH_Iterate(nullptr, &none); }, 9, "句柄指针为空"},
        {[&](XmlHandle& h) { return WQXXMLH_Iterate(h, &none); }, 9, "未知句柄"},
        {[&](XmlHandle& h) { return WQXXMLH_EndIterate(h); }, 9, "未知句柄"},
        {[&](XmlHandle&) { return WQXXMLH_EndIterate(nullptr); }, 0, ""},
        {[&](XmlHandle&) { return WQXXMLH_Iterate_GetValue(nullptr, &text); }, EINVAL, "WQXXMLH_GetValue参数错误!"},
        {[&](XmlHandle& h) { return WQXXMLH_Iterate_GetValue(h.Node("/r"), nullptr); }, EINVAL,
         "WQXXMLH_GetValue参数错误!"},
        {[&](XmlHandle&) { return WQXXMLH_Iterate_GetAttribute(nullptr, "k", &text); }, EINVAL,
         "WQXXMLH_GetAttribute参数错误!"},
        {[&](XmlHandle& h) { return WQXXMLH_Iterate_GetAttribute(h.Node("/r"), "k", &text); }, ENOENT,
         notFound.c_str()},
        {[&](XmlHandle&) { return WQXXMLH_Iterate_GetElement(nullptr, &text); }, EINVAL, "WQXXMLH_GetElement参数错误!"},
        {[&](XmlHandle& h) {
             void* walk = nullptr;
             WQXXMLH_BeginIterate(h, "/r", &walk);
             const int error = WQXXMLH_BeginIterate2(walk, &none);
             WQXXMLH_EndIterate(walk);
             return error;
         },
         EINVAL, "指定的迭代句柄中无可用的节点信息（该迭代句柄至少已经调用过WQXXMLH_Iterate函数一次！）"},
    };
    XmlHandle handle("<r><a k='v'/></r>");
    Told();
    for (const Failing& row : rows) {
        EXPECT_EQ(row.run(handle), row.result) << row.told;
        EXPECT_EQ(Told(), ToGbk(row.told)) << row.told;
    }
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", nullptr, ""), EINVAL);
    EXPECT_EQ(Told(), ToGbk("节点名称不能为NULL！"));
}

TEST_F(XmlHandleLog, SaysNothingAboutSuccess)
{
    XmlHandle handle(" ");
    void* walk = nullptr;
    void* node = nullptr;
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r/a[k=v]", "b", "1"), 0);
    EXPECT_EQ(handle.Value("/r/a/b"), "1");
    EXPECT_EQ(WQXXMLH_BeginIterate(handle, "/r", &walk), 0);
    EXPECT_EQ(WQXXMLH_Iterate(walk, &node), 0);
    EXPECT_EQ(WQXXMLH_EndIterate(walk), 0);
    EXPECT_EQ(WQXXMLH_Copy(handle, "/r/a", handle, "/r"), 0);
    EXPECT_EQ(WQXXMLH_DeleteElement(handle, "/r/a"), 0);
    handle.Finish();
    EXPECT_EQ(Told(), "");
}

TEST_F(XmlHandleLog, TellsThatAFileCouldNotBeWritten)
{
    mkdir(dir_.File("sub").c_str(), 0777);
    XmlHandle handle = XmlHandle::Of(dir_.File("sub/d.xml"));
    EXPECT_EQ(WQXXMLH_AddElementValue(handle, "/r", "a", ""), 0);
    std::filesystem::remove_all(dir_.File("sub"));
    Told();
    WQXXMLH_RecordTempFile(handle);
    EXPECT_EQ(Told(), strerror(ENOENT));
    handle.Close();
    EXPECT_EQ(Told(), strerror(ENOENT));
}

TEST_F(XmlHandleLog, TellsOfBadHandlesToClose)
{
    const XmlHandle handle("<r/>");
    WQXXMLH_Close(handle.Node("/r"));
    EXPECT_EQ(Told(), ToGbk("XMLH句柄非法"));
    WQXXMLH_Close2(handle.Node("/r"), nullptr);
    EXPECT_EQ(Told(), ToGbk("XMLH句柄非法"));
    WQXXMLH_RecordTempFile(handle.Node("/r"));
    EXPECT_EQ(Told(), ToGbk("XMLH句柄非法"));
}

TEST_F(XmlHandleLog, CutsLongTexts)
{
    XmlHandle handle("<r/>");
    for (const size_t length : {500u, 511u, 512u, 513u, 2000u, 5000u, 100000u}) {
        const std::string name(length, 'n');
        EXPECT_EQ(handle.Value("/r/" + name), "(20)");
        EXPECT_EQ(handle.Value("/r/" + name + "[a][b]"), "(20)");
        EXPECT_EQ(handle.Value("/" + name), "(20)");
    }
    const std::string told = Told();
    EXPECT_NE(told.find(ToGbk("找不到子结点：") + "nnnn"), std::string::npos);
    EXPECT_LT(told.size(), 300000u);
}

} // namespace
