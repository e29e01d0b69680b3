// What of the network cards cannot be reached from outside: names in the device table, the library's own log.
#include <sys/resource.h>

#include "../src/internal/log.h"
#include "../src/internal/netcard.h"
#include "support/error_text.h"
#include "support/log_context.h"
#include "support/network_namespace.h"

namespace {

TEST(NetCardTable, NamesEndAtTheirColon)
{
    const struct {
        const char* line;
        const char* name; ///< null if there is none
    } rows[] = {
        {"eth0: 1 2 3\n", "eth0"},
        {"    lo:       0\n", "lo"},
        {"\t eth0:1\n", "eth0"},
        {"v0:1234", "v0"},
        {"v0:1234 5:6", "v0"},
        {"v0:1: 5", "v0:1"},
        {"v0:12:34", "v0:12"},
        {"v0::1", "v0"},
        {"v0:1:2:3", "v0:1"},
        {"v0:", "v0"},
        {"fifteen_bytes_x: 1", "fifteen_bytes_x"},
        {"fifteen_bytes_x:1", "fifteen_bytes_x"},
        {"sixteen_bytes_xy: 1", nullptr},
        {"thirteen_byte:1: 1", "thirteen_byte:1"},
        {"thirteen_bytes:1: 1", nullptr},
        {"v0", nullptr},
        {"v 0: 1", nullptr},
        {":1", nullptr},
        {"", nullptr},
        {"\n", nullptr},
        {"../v0: 1", nullptr},
        {"..: 1", nullptr},
    };
    for (const auto& row : rows) {
        const std::string line = row.line;
        const std::vector<char> copy(line.c_str(), line.c_str() + line.size() + 1);
        char name[IFNAMSIZ] = "";
        EXPECT_EQ(get_name(copy.data(), name), row.name != nullptr) << line;
        if (row.name != nullptr) {
            EXPECT_STREQ(name, row.name) << line;
        }
    }
}

/// The library logs into a directory of the test's own while this lives.
class LibraryLog {
public:
    LibraryLog() : info_(dir_), saved_(g_General_LogCtx)
    {
        info_.bAlwaysLog = ZKQ_LOG_ALL;
        context_ = std::make_unique<support::LogContext>(info_);
        g_General_LogCtx = static_cast<LOGCTX*>(context_->Get());
    }
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;
    ~LibraryLog() { g_General_LogCtx = saved_; }
    std::string Text() const { return support::ReadFile(dir_.OwnLog()); }

private:
    support::LogDir dir_;
    support::AppInfo info_;
    std::unique_ptr<support::LogContext> context_;
    LOGCTX* saved_;
};

TEST(NetCardLog, ATableThatCannotBeOpenedIsRecorded)
{
    const support::TempDir root;
    RUN_IN_CHILD([&] {
        const LibraryLog log;
        support::EnterPrivateMounts();
        if (mount(root.Path().c_str(), "/proc", "none", MS_BIND, nullptr) != 0)
            support::SkipChild("mount on /proc");
        long count = 0;
        EXPECT_FALSE(Network_GetNetCardNumber(&count));
        EXPECT_SYSTEM_ERROR(ENOENT);
        EXPECT_NE(log.Text().find("[Error] open dev file failed - netcard.c,"), std::string::npos) << log.Text();
    });
}

} // namespace
