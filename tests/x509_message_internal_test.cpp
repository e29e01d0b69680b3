// What messages tell in the library's own log, byte for byte, and how they keep their books.
#include <errno.h>

#include <filesystem>
#include <functional>
#include <optional>

#include "../src/internal/log.h"
#include "../src/internal/x509_message.h"
#include "support/bare_iconv.h"
#include "support/error_text.h"
#include "support/log_context.h"
#include "support/message.h"

namespace {

using namespace support;

TEST(MessageStack, GrowsOntoTheHeapAndKeepsItsOrder)
{
    GrowingStack<int, 2> stack;
    for (int i = 0; i < 1000; ++i)
        ASSERT_TRUE(stack.Push(i));
    EXPECT_EQ(stack[0], 0);
    EXPECT_EQ(stack[2], 2);
    for (int i = 999; i >= 0; --i) {
        EXPECT_EQ(stack.Top(), i);
        stack.Pop();
    }
    EXPECT_TRUE(stack.IsEmpty());
}

TEST(MessageKinds, AreTwoFixedSets)
{
    std::string arrays;
    std::string pointers;
    for (int kind = -40; kind < 80; ++kind) {
        if (IsArrayKind(kind))
            arrays += std::to_string(kind) + " ";
        if (IsPointerKind(kind))
            pointers += std::to_string(kind) + " ";
    }
    EXPECT_EQ(arrays, "6 7 8 9 12 13 14 ");
    EXPECT_EQ(pointers, "5 7 9 11 13 14 ");
}

TEST(MessageRoom, OfAnInlineArrayEndsAtTheNextField)
{
    const GENERAL_MSG_TEMPLATE& field = kAll[11];
    EXPECT_EQ(InlineRoom(All_it(), sizeof(All), field), sizeof(Leaf[3]));
    EXPECT_EQ(InlineRoom(All_it(), offsetof(All, records) + 4, field), 4u);
    EXPECT_EQ(InlineRoom(All_it(), 4, field), 0u);
}

class MessageLog : public testing::Test {
protected:
    MessageLog() : info_(dir_), saved_(g_General_LogCtx)
    {
        info_.bAlwaysLog = ZKQ_LOG_ALL;
        context_.emplace(info_);
        g_General_LogCtx = static_cast<LOGCTX*>(context_->Get());
        MarkErrorText();
    }
    ~MessageLog() override
    {
        g_General_LogCtx = saved_;
        EXPECT_TRUE(ErrorTextIsMarked()) << "the error text is left alone";
    }

    /// The last thing of this family's that a call tells, as UTF-8.
    std::string Told(const std::function<void()>& call)
    {
        const size_t before = Log().size();
        call();
        const Converted utf8 = BareIconv("UTF-8", "GBK")(Log().substr(before));
        EXPECT_EQ(utf8.error, 0) << "in GBK";
        std::string told;
        for (size_t at = 0; at < utf8.bytes.size();) {
            const size_t end = utf8.bytes.find('\n', at);
            const std::string line = utf8.bytes.substr(at, end - at);
            const size_t source = line.find(" - x509,");
            if (source != std::string::npos) {
                EXPECT_EQ(line.substr(0, 8), "[Error] ");
                EXPECT_GT(std::stoi(line.substr(source + 8)), 0) << line;
                told = line.substr(8, source - 8);
            }
            at = end + 1;
        }
        return told;
    }

private:
    std::string Log() const { return std::filesystem::exists(dir_.OwnLog()) ? ReadFile(dir_.OwnLog()) : ""; }

    LogDir dir_;
    AppInfo info_;
    std::optional<LogContext> context_;
    LOGCTX* saved_;
};

TEST_F(MessageLog, TellsWhatThereIsNoRoomFor)
{
    int ints[] = {1};
    unsigned char bytes[] = {1};
    All all = {};
    all.bytePtr = bytes;
    all.bytePtrCount = 1;
    all.intPtr = ints;
    all.intPtrCount = 1;
    all.recordCount = 1;
    const struct {
        size_t field;
        int max; ///< of which two go to the record's header
        const char* told;
    } rows[] = {{0, 0, "封装数据时输出数据类型时缓冲区不足！"},
                {0, 1, "封装数据时输出数据长度时缓冲区不足！"},
                {0, 2, "封装数据时输出数据类型时缓冲区不足！"},
                {0, 3, "封装数据时输出数据长度时缓冲区不足！"},
                {0, 7, "封装INT32数据时缓冲区不足！"},
                {1, 7, "封装INT64数据时缓冲区不足！"},
                {2, 7, "封装INT64数据时缓冲区不足！"},
                {3, 4, "封装BYTEARRAY数据时缓冲区不足！"},
                {6, 4, "封装BYTEARRAY数据时缓冲区不足！"},
                {8, 7, "封装INTARRAY数据时缓冲区不足！"},
                {12, 7, "封装数据时输出结构对象数组ASN编码头时缓冲区不足！"}};
    for (const auto& row : rows) {
        const GENERAL_MSG_ITEM it = {1, 0, &kAll[row.field], 1, 0, "", nullptr, nullptr, 0};
        const std::string told = Told([&] {
            unsigned char buffer[16];
            unsigned char* out = buffer;
            ZKQGeneral_MSG_i2d(&all, &out, row.max, &it, 0);
        });
        EXPECT_EQ(told, row.told) << row.field << " with " << row.max;
    }
}

TEST_F(MessageLog, TellsWhatIsWrongWithTheBytes)
{
    const struct {
        size_t field;
        const char* bytes;
        const char* told;
    } rows[] = {{0, "", "解析数据检查长度时越界！"},
                {0, "30 05 01 04", "解析数据检查长度时越界！"},
                {0, "30", "解析数据获取长度时内存越界！"},
                {0, "30 85", "解析数据时遇到了长度占用超过四个字节，这是不可能的事！"},
                {0, "30 84 01 00 00 00", "解析数据时获取的数据长度超过了0xffffff！"},
                {0, "31 00", "解析数据时得到的数据类型和期望的类型不一致！"},
                {0, "30 03 01 01 00", "解析INT32数据时长度不正确！"},
                {1, "30 03 02 01 00", "解析INT64数据时长度不正确！"},
                {2, "30 03 03 01 00", "解析INT64数据时长度不正确！"},
                {3, "30 0f 04 0d 31 32 33 34 35 36 37 38 39 31 32 33 00", "解析BYTEARRAY数据时缓冲区不足以存储数据！"},
                {5, "30 0b 06 09 31 32 33 34 35 36 37 38 39", "解析BYTEARRAY数据时缓冲区不足以存储数据！"},
                {7, "30 13 08 11 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
                 "解析INTARRAY数据时缓冲区不足以存储数据！"},
                {12, "30 01 40", "解析结构数组类型的数据头时越界！"},
                {12, "30 06 41 04 00 00 00 00", "解析结构数组类型的数据头时类型不正确！"},
                {12, "30 06 40 05 00 00 00 00", "解析结构数组类型的数据头时长度不正确！"},
                {4, "30 01 05", "解析指针类型数据时头信息不正确！"},
                {4, "30 03 05 01 61", "解析STRINGPTR数据时缺少结束符！"}};
    for (const auto& row : rows) {
        const GENERAL_MSG_ITEM it = {1, 0, &kAll[row.field], 1, 0, "", nullptr, nullptr, 0};
        const std::string told = Told([&] {
            const ExactBytes input(FromHex(row.bytes));
            All all;
            EXPECT_LT(ZKQGeneral_MSG_d2i(&all, sizeof all, input.Data(), input.Size(), &it, 0), 0);
        });
        EXPECT_EQ(told, row.told) << row.bytes;
    }
}

TEST_F(MessageLog, TellsWhatIsWrongWithTemplates)
{
    GENERAL_MSG_ITEM item = *ZKQGeneral_INT32_it();
    item.DataType = 12;
    const int number = 0;
    const ExactBytes input(FromHex("0c 00"));
    int copy = 0;
    EXPECT_EQ(Told([&] { Encoded(&number, &item); }), "封装简单类型数据时遇到了不支持的类型！");
    EXPECT_EQ(Told([&] { ZKQGeneral_MSG_d2i(&copy, 4, input.Data(), 2, &item, 0); }),
              "解析简单类型数据时遇到了未知的类型！");
    item.IsStruct = 7;
    EXPECT_EQ(Told([&] { ZKQGeneral_MSG_d2i(&copy, 4, input.Data(), 2, &item, 0); }), "解析数据时IsStruct信息不正确！");
}

TEST_F(MessageLog, TellsWhatIsWrongWithPaths)
{
    Leaf leaf = {1};
    struct One {
        Leaf* leaves;
        int count;
    };
    One one = {&leaf, 1};
    const struct {
        const char* path;
        const char* encoding;
        const char* decoding;
    } rows[] = {
        {nullptr, "封装数据时未指定XPath信息！", "解析结构数组类型的数据时未指定XPath信息！"},
        {"/a/b", "封装数据时结构数组指针指定的XPath信息不合法！", "解析结构数组类型的数据时指定的XPath信息不合法！"},
        {"/a[x]/b/c", "封装结构数组指针类型数据时查找父节点失败！", ""},
        {"/r/b/@", "封装结构数组指针类型数据时添加总数失败！", ""}};
    for (const auto& row : rows) {
        const GENERAL_MSG_TEMPLATE field = ZKQ_MSG_RECORDSPTR(One, leaves, count, Leaf_it, "", row.path);
        const GENERAL_MSG_ITEM it = {1, 0, &field, 1, 0, "", nullptr, nullptr, 0};
        EXPECT_EQ(Told([&] { Encoded(&one, &it, 1); }), row.encoding);
        One copy;
        EXPECT_EQ(Told([&] { DecodeText(&copy, "<r></r>", &it, 1); }), row.decoding);
    }
}

TEST_F(MessageLog, TellsWhatDoesNotFit)
{
    const GENERAL_MSG_ITEM text = {1, 0, &kAll[3], 1, 0, "", nullptr, nullptr, 0};
    const GENERAL_MSG_ITEM bytes = {1, 0, &kAll[5], 1, 0, "", nullptr, nullptr, 0};
    All all;
    EXPECT_EQ(Told([&] { DecodeText(&all, "<all><text>123456789012</text></all>", &text, 1); }),
              "解析STRING数据时缓冲区不足以存储数据！");
    EXPECT_EQ(Told([&] { DecodeText(&all, "{\"text\":\"123456789012\"}", &text, 2); }),
              "解析STRING数据时缓冲区不足以存储数据！");
    EXPECT_EQ(Told([&] { DecodeText(&all, "{\"bytes\":\"010203040506070809\"}", &bytes, 2); }),
              "解析字节数组数据时缓冲区不足以存储数据！");
}

TEST_F(MessageLog, SaysNothingAboutSuccess)
{
    All all = {};
    const ExactBytes input(Encoded(&all, All_it()));
    EXPECT_EQ(Told([&] {
                  Encoded(&all, All_it());
                  ZKQGeneral_MSG_d2i(&all, sizeof all, input.Data(), input.Size(), All_it(), 0);
                  ZKQGeneral_MSG_free(&all, All_it(), 0, 0);
              }),
              "");
}

} // namespace
