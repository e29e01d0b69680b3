// Threads with documents of their own fail at the same moment: the text that they share is whole all the same.
#include <ZKQ_general/WQXXMLH.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <thread>
#include <vector>

namespace {

constexpr int kExternalError = -2;
constexpr int kThreads = 4;
constexpr int kRounds = 200;

TEST(XmlhThreads, FailuresOfSeveralThreadsLeaveAWholeText)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([] {
            for (int round = 0; round < kRounds; ++round) {
                void* handle = nullptr;
                EXPECT_NE(WQXXMLH_Open("/nowhere/at/all.xml", 0, &handle), 0);
                char text[256];
                EXPECT_STREQ(WQXXMLH_GetErrorInfo(kExternalError, text), strerror(ENOENT));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST(XmlhThreads, TextsMixButAreTerminated)
{
    const std::string texts[] = {std::string(255, 'a'), std::string(100, 'b'), ""};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            for (int round = 0; round < kRounds; ++round) {
                WQXXMLH_Misc_SetExternalError(texts[(i + round) % 3].c_str());
                char text[256];
                memset(text, 'x', sizeof text);
                WQXXMLH_GetErrorInfo(kExternalError, text);
                EXPECT_LT(strnlen(text, sizeof text), sizeof text);
                EXPECT_EQ(strspn(text, "ab"), strnlen(text, sizeof text));
                WQXXMLH_GetErrorInfo(round % 2 == 0 ? ENOMEM : EINVAL, text);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
