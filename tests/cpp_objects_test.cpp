// The C++ layer's owners of logs, packets, memory objects and shared blocks.
#include <ZKQ_general.hpp>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/shm.h>

#include <string>
#include <vector>

#include "support/error_text.h"
#include "support/ipc_namespace.h"
#include "support/owner.h"
#include "support/temp_dir.h"

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

// Fails, with the text of ENOENT.
void FailOtherwise()
{
    EXPECT_FALSE(ZKQGeneral_IsFileExist("/no such file"));
    EXPECT_SYSTEM_ERROR(ENOENT);
}

TEST(CppLog, RecordsAndMoves)
{
    const support::TempDir dir;
    auto opened = zkq::Log::Always("server"sv, dir.Path());
    ASSERT_TRUE(opened) << opened.text();
    const zkq::Log log = support::ExpectMoves(std::move(*opened));
    EXPECT_EQ(*log.Path(), dir.File("server.log"));
    EXPECT_TRUE(log.Record(ZKQ_LOG_INFO, "/src/main.cpp", 7, "a text"));
    EXPECT_TRUE(log.Record(ZKQ_LOG_ERROR, "main.cpp", 8, std::string_view("viewed", 4)));
    EXPECT_TRUE(log.Dump(ZKQ_LOG_WARN, "AB", "dump"));
    const std::string content = support::ReadFile(dir.File("server.log"));
    EXPECT_NE(content.find("[Info ] a text - main.cpp,7\n"), std::string::npos) << content;
    EXPECT_NE(content.find("[Error] view - main.cpp,8\n"), std::string::npos) << content;
    EXPECT_NE(content.find("[Warn ] dump[Length: 2]"), std::string::npos) << content;
}

TEST(CppLog, Levels)
{
    const support::TempDir dir;
    const zkq::Log log = *zkq::Log::Always("server", dir.Path(), ZKQ_LOG_ERROR);
    EXPECT_TRUE(log.Record(ZKQ_LOG_INFO, "main.cpp", 1, "info"));
    EXPECT_TRUE(log.Record(ZKQ_LOG_ERROR, "main.cpp", 2, "error"));
    EXPECT_EQ(support::ReadFile(dir.File("server.log")), "[Error] error - main.cpp,2\n");
}

TEST(CppLog, Replaced)
{
    const support::TempDir dir;
    zkq::Log log =
        support::ExpectReplaces(*zkq::Log::Always("one", dir.Path()), *zkq::Log::Always("other", dir.Path()));
    EXPECT_EQ(*log.Path(), dir.File("other.log"));
    EXPECT_TRUE(log.SetPath(dir.File("third.log")));
    EXPECT_EQ(*log.Path(), dir.File("third.log"));
    EXPECT_STREQ(log.SetPath(nullptr).text(), strerror(EINVAL));
}

TEST(CppLog, Failures)
{
    auto failed = zkq::Log::Open(APPLOGINFO());
    support::ExpectKeepsReason(failed, strerror(EINVAL), FailOtherwise);
    EXPECT_FALSE(*failed);
    EXPECT_FALSE(failed->Record(ZKQ_LOG_INFO, "main.cpp", 1, "text"));
    EXPECT_FALSE(failed->Dump(ZKQ_LOG_INFO, "x", "dump"));
    EXPECT_STREQ(failed->Path().text(), strerror(EINVAL));
    EXPECT_STREQ(zkq::Log::Always(std::string(32, 'n'), "/tmp").text(), strerror(EINVAL));
}

TEST(CppPacket, ItemsThereAndBack)
{
    auto made = zkq::Packet::Make();
    ASSERT_TRUE(made) << made.text();
    zkq::Packet packet = support::ExpectMoves(std::move(*made));
    EXPECT_TRUE(packet.Add("a\0b"s));
    EXPECT_TRUE(packet.AddInt(-7));
    EXPECT_TRUE(packet.Add({}));
    EXPECT_EQ(*packet.Count(), 3);
    EXPECT_EQ(packet.At(0)->view(), "a\0b"sv);
    EXPECT_EQ(*packet.IntAt(1), -7);
    EXPECT_TRUE(packet.At(2)->empty());

    auto received = zkq::Packet::From(*packet.Whole());
    ASSERT_TRUE(received) << received.text();
    EXPECT_EQ(received->Whole()->view(), packet.Whole()->view());
    EXPECT_NE(received->Whole()->data(), packet.Whole()->data());
    EXPECT_EQ(*received->IntAt(1), -7);
    EXPECT_EQ(*support::ExpectReplaces(std::move(packet), std::move(*received)).Count(), 3);
}

TEST(CppPacket, Oids)
{
    zkq::Packet packet = *zkq::Packet::Make(16);
    EXPECT_TRUE(packet.Oids());
    EXPECT_TRUE(packet.Oids()->empty());
    EXPECT_TRUE(packet.AddOid(1, "by\0tes"s));
    EXPECT_TRUE(packet.AddOidText(2, std::string_view("texts", 4)));
    EXPECT_TRUE(packet.AddOidInt(3, 42));
    EXPECT_TRUE(packet.AddOid(4, "no NUL"));
    EXPECT_EQ(packet.Oid(1)->view(), "by\0tes"sv);
    EXPECT_EQ(*packet.OidText(2), "text");
    EXPECT_EQ(*packet.OidInt(3), 42);
    EXPECT_EQ(*packet.Oids(), (std::vector<int>{1, 2, 3, 4}));
    auto missing = packet.Oid(9);
    support::ExpectKeepsReason(missing, strerror(ENOMEDIUM), FailOtherwise);
    EXPECT_STREQ(packet.OidText(4).text(), strerror(EBADMSG));
    EXPECT_STREQ(packet.OidText(9).text(), strerror(ENOMEDIUM));
    EXPECT_STREQ(packet.OidInt(1).text(), strerror(ERANGE));
}

TEST(CppPacket, Failures)
{
    auto bad = zkq::Packet::From("no packet");
    support::ExpectKeepsReason(bad, strerror(EBADMSG), FailOtherwise);
    EXPECT_STREQ(zkq::Packet::From({"", size_t{INT_MAX} + 1}).text(), strerror(EBADMSG));
    zkq::Packet none = std::move(*bad); // what a failed call gives is harmless
    EXPECT_FALSE(none);
    EXPECT_STREQ(none.Add("x").text(), strerror(EINVAL));
    EXPECT_FALSE(none.AddInt(1));
    EXPECT_FALSE(none.AddOid(1, "x"));
    EXPECT_FALSE(none.AddOidText(1, "x"));
    EXPECT_FALSE(none.AddOidInt(1, 1));
    EXPECT_FALSE(none.Count());
    EXPECT_FALSE(none.Whole());
    EXPECT_FALSE(none.At(0));
    EXPECT_FALSE(none.IntAt(0));
    EXPECT_FALSE(none.Oid(0));
    EXPECT_FALSE(none.OidInt(0));
    EXPECT_FALSE(none.Oids());
    zkq::Packet packet = *zkq::Packet::Make();
    EXPECT_STREQ(packet.Add({"", size_t{INT_MAX} + 1}).text(), strerror(EINVAL));
    EXPECT_STREQ(packet.IntAt(0).text(), strerror(EINVAL));
    EXPECT_STREQ(packet.At(0).text(), strerror(EBADMSG));
}

TEST(CppMemory, WritesReadsAndHandsOver)
{
    auto made = zkq::Memory::Make(1);
    ASSERT_TRUE(made) << made.text();
    zkq::Memory memory = support::ExpectMoves(std::move(*made));
    EXPECT_TRUE(memory.Write("one"));
    EXPECT_TRUE(memory.Write({}));
    EXPECT_TRUE(memory.Write("two"s));
    char room[4];
    EXPECT_EQ(memory.Read(room, sizeof room), 4U);
    EXPECT_EQ(std::string(room, 4), "onet");
    const zkq::Buffer taken = memory.Take();
    EXPECT_EQ(taken.view(), "onetwo");
    EXPECT_TRUE(memory.Take().empty());
    EXPECT_TRUE(memory.Write("again"));
    memory = support::ExpectReplaces(*zkq::Memory::Make(), std::move(memory));
    EXPECT_EQ(memory.Take().view(), "again");
    EXPECT_EQ(memory.Read(room, sizeof room), 0U);
}

TEST(CppMemory, Failures)
{
    zkq::Memory none;
    auto failed = none.Write("x");
    support::ExpectKeepsReason(failed, strerror(EINVAL), FailOtherwise);
    EXPECT_EQ(failed.code(), EINVAL);
    EXPECT_STREQ(none.Write({}).text(), strerror(EINVAL));
    char room[1];
    EXPECT_EQ(none.Read(room, 1), 0U);
    EXPECT_FALSE(none.Take());
    EXPECT_STREQ(zkq::Memory::Make()->Write({"", size_t{INT_MAX} + 1}).text(), strerror(ENOMEM));
}

constexpr unsigned long kLockKey = 0x5A4B6101;
constexpr unsigned long kMemoryKey = kLockKey + 1;

bool MemoryExists()
{
    return shmget(static_cast<key_t>(kMemoryKey), 0, 0) >= 0;
}

TEST(CppSharedBlock, IsSharedUnderItsLock)
{
    RUN_ALONE([] {
        auto created = zkq::SharedBlock::Create(100, kLockKey, kMemoryKey);
        ASSERT_TRUE(created) << created.text();
        zkq::SharedBlock block = support::ExpectMoves(std::move(*created));
        auto other = zkq::SharedBlock::Connect(100, kLockKey, kMemoryKey);
        ASSERT_TRUE(other) << other.text();
        {
            auto lock = block.Acquire();
            ASSERT_TRUE(lock) << lock.text();
            EXPECT_EQ(lock->size(), 100U);
            strcpy(static_cast<char*>(lock->data()), "shared");
            auto busy = other->Acquire(-1);
            support::ExpectKeepsReason(busy, strerror(ETIME), FailOtherwise);
            EXPECT_EQ(busy->data(), nullptr);
            EXPECT_EQ(busy->size(), 0U);
            const zkq::SharedBlock::Lock moved = support::ExpectMoves(std::move(*lock));
            EXPECT_EQ(lock->data(), nullptr);
            EXPECT_FALSE(other->Acquire(-1)) << "a moved lock is held";
        }
        const auto lock = other->Acquire(-1);
        ASSERT_TRUE(lock) << lock.text();
        EXPECT_STREQ(static_cast<const char*>(lock->data()), "shared");
    });
}

TEST(CppSharedBlock, StaysUntilItIsDestroyed)
{
    RUN_ALONE([] {
        {
            zkq::SharedBlock block = *zkq::SharedBlock::Create(100, kLockKey, kMemoryKey);
            EXPECT_TRUE(block);
        }
        zkq::SharedBlock block = *zkq::SharedBlock::Connect(100, kLockKey, kMemoryKey);
        ASSERT_TRUE(block);
        zkq::SharedBlock moved = std::move(block);
        block.Destroy(); // NOLINT: it has nothing to destroy
        EXPECT_TRUE(MemoryExists());
        moved.Destroy();
        EXPECT_FALSE(moved);
        EXPECT_FALSE(MemoryExists());
        moved.Destroy();
        auto gone = zkq::SharedBlock::Connect(100, kLockKey, kMemoryKey);
        support::ExpectKeepsReason(gone, strerror(ENOENT), [] { EXPECT_FALSE(ZKQGeneral_IsFileExist(nullptr)); });
        EXPECT_STREQ(gone->Acquire().text(), strerror(EINVAL));
    });
}

TEST(CppSharedBlock, FailedCreationLeavesNothing)
{
    RUN_ALONE([] {
        const zkq::SharedBlock first = *zkq::SharedBlock::Create(100, kLockKey, kMemoryKey);
        EXPECT_STREQ(zkq::SharedBlock::Create(100, kLockKey, kMemoryKey + 1).text(), strerror(EEXIST));
        EXPECT_TRUE(first.Acquire(-1)) << "another's lock is not removed";
        // A lock is made, but not the memory: there is some that is smaller.
        EXPECT_STREQ(zkq::SharedBlock::Create(10'000'000, kLockKey + 5, kMemoryKey).text(), strerror(EEXIST));
        EXPECT_LT(ZKQGeneral_SysConnectSemaphore(0, 0, static_cast<int>(kLockKey + 5)), 0) << "its lock is left";
        EXPECT_STREQ(zkq::SharedBlock::Create(-1, kLockKey + 6, kMemoryKey).text(), strerror(EINVAL));
    });
}

} // namespace
