// The C++ layer: texts and bytes as arguments, results, owners and buffers.
#include <ZKQ_general.hpp>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "support/error_text.h"
#include "support/owner.h"

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

static_assert(!std::is_copy_constructible_v<zkq::Text> && !std::is_move_constructible_v<zkq::Text>);
static_assert(!std::is_convertible_v<std::u16string, zkq::Bytes>, "its elements are no bytes");
static_assert(!std::is_convertible_v<const char*, zkq::Bytes>, "who says where it ends?");
static_assert(sizeof(zkq::Result<>) == sizeof(void*));

// The address of what reaches C.
const char* Pass(const zkq::Text& text)
{
    return text.c_str();
}

TEST(CppText, PassesWhatIsTerminatedWithoutCopy)
{
    const char* const literal = "literal";
    const std::string string(100, 's');
    EXPECT_EQ(Pass(literal), literal);
    EXPECT_EQ(Pass(string), string.c_str());
    EXPECT_EQ(Pass(nullptr), nullptr);
}

TEST(CppText, TerminatesAView)
{
    // Exactly as many bytes as the view has, with none behind them to be read.
    for (const size_t size : {0, 1, 62, 63, 64, 65, 1000}) {
        const std::unique_ptr<char[]> bytes(new char[size]);
        memset(bytes.get(), 'v', size);
        const zkq::Text text(std::string_view(bytes.get(), size));
        EXPECT_NE(text.c_str(), bytes.get());
        EXPECT_EQ(text.c_str(), std::string(size, 'v'));
    }
    EXPECT_STREQ(zkq::Text(std::string_view()).c_str(), "");
    EXPECT_STREQ(zkq::Text("a\0b"sv).c_str(), "a");
}

std::string Seen(zkq::Bytes bytes)
{
    return bytes.str();
}

TEST(CppBytes, ViewEverythingThatHoldsBytes)
{
    const std::string string = "a\0b"s;
    const std::vector<unsigned char> vector = {1, 0, 255};
    const std::array<std::byte, 2> array = {std::byte(1), std::byte(2)};
    const unsigned char plain[] = {7, 0};
    const char full[3] = {'x', 'y', 'z'};
    char terminated[8] = "xy";
    EXPECT_EQ(Seen(string), string);
    EXPECT_EQ(zkq::Bytes(string).data(), reinterpret_cast<const unsigned char*>(string.data()));
    EXPECT_EQ(Seen("a\0b"sv), string);
    EXPECT_EQ(Seen(vector), "\1\0\xFF"s);
    EXPECT_EQ(Seen(array), "\1\2");
    EXPECT_EQ(Seen(plain), "\7\0"s);
    EXPECT_EQ(Seen("literal"), "literal");
    EXPECT_EQ(Seen(full), "xyz");
    EXPECT_EQ(Seen(terminated), "xy");
    EXPECT_EQ(Seen({string.data(), 1}), "a");
    EXPECT_EQ(Seen({}), "");
}

TEST(CppBytes, AreWalked)
{
    const zkq::Bytes bytes("abc");
    std::string walked;
    for (const unsigned char byte : bytes)
        walked += static_cast<char>(byte);
    EXPECT_EQ(walked, "abc");
    EXPECT_EQ(bytes[2], 'c');
    EXPECT_EQ(bytes.size(), 3U);
    EXPECT_FALSE(bytes.empty());
    EXPECT_EQ(bytes.view(), "abc");
    const zkq::Bytes none;
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(none.begin(), none.end());
    EXPECT_EQ(none.data(), nullptr);
}

TEST(CppResult, Value)
{
    zkq::Result<std::string> result("value"s);
    EXPECT_TRUE(result);
    EXPECT_TRUE(result.ok());
    EXPECT_EQ(result.code(), 0);
    EXPECT_STREQ(result.text(), "");
    EXPECT_EQ(result.error().text, "");
    EXPECT_EQ(result.error().code, 0);
    EXPECT_EQ(*result, "value");
    EXPECT_EQ(result->size(), 5U);
    EXPECT_EQ(&result.value(), &*result);
    const zkq::Result<std::string>& constant = result;
    EXPECT_EQ(constant.value() + *constant, "valuevalue");
    EXPECT_EQ(constant->size(), 5U);
    EXPECT_EQ(std::move(result).value_or("other"), "value");
}

TEST(CppResult, Failure)
{
    zkq::Result<std::string> result(zkq::Error{7, "reason"});
    EXPECT_FALSE(result);
    EXPECT_EQ(result.code(), 7);
    EXPECT_STREQ(result.text(), "reason");
    EXPECT_EQ(*result, "");
    EXPECT_EQ(std::move(result).value_or("other"), "other");
    EXPECT_EQ(*zkq::Result<int>(zkq::Error()), 0);
}

TEST(CppResult, FailureIsHandedOn)
{
    const zkq::Result<int> inner(zkq::Error{7, "reason"});
    const zkq::Result<std::vector<int>> outer = inner.error();
    EXPECT_EQ(outer.code(), 7);
    EXPECT_STREQ(outer.text(), "reason");
    EXPECT_TRUE(outer->empty());
    const zkq::Result<> none = outer.error();
    EXPECT_STREQ(none.text(), "reason");
    EXPECT_TRUE(zkq::Result<>());
}

TEST(CppResult, TakesTheTextWhenItHappens)
{
    ASSERT_FALSE(ZKQGeneral_IsFileExist("/no such file"));
    const zkq::Result<int> result = zkq::LastError();
    ASSERT_FALSE(ZKQGeneral_IsFileExist(nullptr));
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_STREQ(result.text(), strerror(ENOENT));
    EXPECT_EQ(result.code(), 0);
}

TEST(CppResult, TextsOfCodes)
{
    EXPECT_EQ(zkq::CodeError(ENOENT).text, strerror(ENOENT));
    EXPECT_EQ(zkq::CodeError(ENOENT).code, ENOENT);
    EXPECT_NE(zkq::CodeError(-8).text, zkq::CodeError(-9).text);
    WQXXMLH_Misc_SetExternalError("external");
    const zkq::Error error = zkq::CodeError(-2);
    WQXXMLH_Misc_SetExternalError("changed");
    EXPECT_EQ(error.text, "external");
}

// Released handles, in their order.
std::vector<void*> g_released;

int Release(void* handle)
{
    g_released.push_back(handle);
    return 0;
}

using Recorder = zkq::Owner<zkq::Ref, &Release>;

TEST(CppOwner, ReleasesOnceAndNeverNull)
{
    int a = 0;
    int b = 0;
    g_released.clear();
    {
        Recorder empty;
        Recorder first(&a);
        Recorder moved = support::ExpectMoves(std::move(first));
        EXPECT_TRUE(g_released.empty());
        moved = Recorder(&b);
        EXPECT_EQ(g_released, std::vector<void*>{&a});
        moved.reset();
        EXPECT_EQ(g_released, (std::vector<void*>{&a, &b}));
        moved.reset();
        Recorder last(&a);
    }
    EXPECT_EQ(g_released, (std::vector<void*>{&a, &b, &a}));
}

TEST(CppBuffer, MovesWithItsLength)
{
    zkq::Result<zkq::Buffer> made = zkq::Base64Encode<zkq::Buffer>("abc");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->view(), "YWJj");
    EXPECT_EQ(made->str(), "YWJj");
    zkq::Buffer buffer = support::ExpectMoves(std::move(*made));
    EXPECT_EQ(made->size(), 0U);
    EXPECT_EQ(made->view(), "");
    EXPECT_TRUE(made->empty());
    zkq::Buffer taken(std::move(buffer));
    EXPECT_EQ(taken.size(), 4U);
    EXPECT_EQ(taken.data()[0], 'Y');
    EXPECT_EQ(buffer.size(), 0U); // NOLINT: that it is empty is what is tested
    taken = *zkq::Base64Encode<zkq::Buffer>("");
    EXPECT_EQ(taken.size(), 0U);
    EXPECT_TRUE(taken);
}

} // namespace
