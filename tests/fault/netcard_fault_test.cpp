// Failing systems: each call that the functions for network devices make is made to fail in turn.
#include <ZKQ_general/ip.h>
#include <ZKQ_general/netcard.h>

#include <algorithm>
#include <functional>

#include "../../src/internal/log.h"
#include "../support/error_text.h"
#include "../support/log_context.h"
#include "../support/network_namespace.h"
#include "fault.h"

namespace {

struct Operation {
    const char* name;
    std::function<BOOL()> run;
    std::vector<std::string> tolerated; ///< functions whose failure the operation gets over
};

/// Lets each call of a function fail in turn, until the operation makes no more; how many there were.
int FailEachCall(const Operation& operation, const std::string& function)
{
    for (int call = 1;; ++call) {
        SCOPED_TRACE(std::string(operation.name) + ": " + function + " call " + std::to_string(call));
        support::MarkErrorText();
        const int before = fault::OpenDescriptors();
        fault::Arm(function, call, {ENOSYS, false});
        const BOOL succeeded = operation.run();
        const bool hit = fault::Disarm();
        EXPECT_EQ(fault::OpenDescriptors(), before);
        if (!hit) {
            EXPECT_TRUE(succeeded) << support::ErrorText();
            return call - 1;
        }
        const auto& tolerated = operation.tolerated;
        EXPECT_TRUE(!succeeded || std::find(tolerated.begin(), tolerated.end(), function) != tolerated.end());
        EXPECT_TRUE(succeeded || !support::ErrorTextIsMarked());
    }
}

TEST(NetworkFaults, EveryFailureIsReportedAndNothingLeaks)
{
    RUN_IN_CHILD([] {
        support::EnterNetwork();
        support::ShowNetworkInSys();
        if (!support::Shell("ip link add v0 type veth peer name v1 && ip link add br0 type bridge && "
                            "ip addr add 192.0.2.1/24 dev br0 && ip link set v0 master br0 && ip link set br0 up"))
            support::SkipChild("bridge");
        const Operation operations[] = {
            {"cards",
             [] {
                 NETCARDINFO cards[4];
                 int count = 0;
                 return Network_GetNetCardInfo(cards, &count);
             },
             {"ioctl"}}, // what cannot be asked about is gone
            {"bridges",
             [] {
                 BRIDGEINFO bridges[4];
                 int count = 0;
                 return Network_GetBridgeInfo(bridges, &count);
             },
             {}},
            {"stp", [] { return Network_SetBridgeStp("br0", 1); }, {}},
            {"up", [] { return Network_StartStopNetworkDevice("v1", 1); }, {}},
            {"set", [] { return Network_SetDevAddress("v1", "198.51.100.1", "255.255.255.0"); }, {}},
            {"address",
             [] {
                 char text[46];
                 return Network_GetIPAddress("br0", 0, text, 0);
             },
             {}},
            {"route",
             [] {
                 const BOOL isSet = Network_SetDefaultGateway("br0", 0, "192.0.2.2");
                 const fault::Pause pause;
                 support::Shell("ip route del default");
                 return isSet;
             },
             {}},
        };
        for (const Operation& operation : operations) {
            int hits = 0;
            for (const std::string& function : fault::NetworkFunctions())
                hits += FailEachCall(operation, function);
            EXPECT_GT(hits, 0) << operation.name;
        }
    });
}

TEST(NetworkFaults, AMemberThatCannotBeAddedTakesTheBridgeAway)
{
    RUN_IN_CHILD([] {
        support::EnterNetwork();
        if (!support::Shell("ip link add v0 type veth peer name v1 && ip link add br0 type bridge && ip link del br0"))
            support::SkipChild("bridge");
        BRIDGEINFO info = {};
        strcpy(info.Name, "br0");
        strcpy(info.DevList[0], "v0");
        for (int call = 1;; ++call) { // each of them has an older call in reserve
            fault::Arm("ioctl", call, {ENOSYS, false});
            EXPECT_TRUE(Network_AddBridge(&info)) << support::ErrorText();
            const bool hit = fault::Disarm();
            EXPECT_TRUE(support::Shell("ip link show master br0 | grep v0"));
            EXPECT_TRUE(support::Shell("ip link del br0"));
            if (!hit)
                break;
        }
        fault::Arm("ioctl", 0, {ENOSYS, false});
        EXPECT_FALSE(Network_AddBridge(&info));
        EXPECT_TRUE(fault::Disarm());
        EXPECT_SYSTEM_ERROR(ENOSYS);
        EXPECT_FALSE(support::Shell("ip link show br0"));
    });
}

TEST(NetworkFaults, InterruptedCallsAreRepeated)
{
    for (const char* const function : {"sendto", "recvmsg"}) {
        for (int call = 1; call <= 2; ++call) {
            char text[46];
            fault::Arm(function, call, {EINTR, false});
            EXPECT_TRUE(Network_GetIPAddress("lo", 0, text, 0)) << function << support::ErrorText();
            EXPECT_TRUE(fault::Disarm());
        }
    }
}

TEST(NetworkFaults, WithoutMemoryTheFilterFails)
{
    for (const char* const function : {"realloc", "reallocarray"}) {
        char text[46];
        fault::Arm(function, 1, {ENOMEM, false});
        EXPECT_FALSE(Network_GetIPAddress("lo", 0, text, 0));
        EXPECT_TRUE(fault::Disarm());
        EXPECT_EQ(support::ErrorText(), "call filter fail");
        EXPECT_STREQ(text, "");
    }
}

TEST(NetworkFaults, TheSystemsReasonsAreTold)
{
    const struct {
        const char* function;
        int call;
        std::string text;
    } rows[] = {
        {"socket", 1, strerror(ENFILE)}, {"setsockopt", 2, strerror(ENFILE)},
        {"bind", 1, strerror(ENFILE)},   {"getsockname", 1, strerror(ENFILE)},
        {"sendto", 1, strerror(ENFILE)}, {"sendto", 2, strerror(ENFILE)},
        {"recvmsg", 1, "OVERRUN"},
    };
    for (const auto& row : rows) {
        fault::Arm(row.function, row.call, {ENFILE, false});
        char text[46];
        EXPECT_FALSE(Network_GetIPAddress("lo", 0, text, 0));
        EXPECT_TRUE(fault::Disarm());
        EXPECT_EQ(support::ErrorText(), row.text) << row.function;
    }
    fault::Arm("sendto", 2, {ENFILE, false}); // behind the dump of the links
    EXPECT_FALSE(Network_DeleteDefaultGateway("lo"));
    EXPECT_TRUE(fault::Disarm());
    EXPECT_EQ(support::ErrorText(), "Cannot talk to rtnetlink");
    long count = 0;
    fault::Arm("socket", 1, {EMFILE, false});
    EXPECT_FALSE(Network_GetNetCardNumber(&count));
    EXPECT_TRUE(fault::Disarm());
    EXPECT_SYSTEM_ERROR(EMFILE);
    fault::Arm("reallocarray", 1, {ENOMEM, false});
    EXPECT_FALSE(Network_GetNetCardNumber(&count));
    EXPECT_TRUE(fault::Disarm());
    EXPECT_SYSTEM_ERROR(ENOMEM);
}

TEST(NetworkFaults, AreRecordedInTheLibrarysLog)
{
    const support::LogDir dir;
    support::AppInfo info(dir);
    info.bAlwaysLog = ZKQ_LOG_ALL;
    const support::LogContext context(info);
    LOGCTX* const saved = std::exchange(g_General_LogCtx, static_cast<LOGCTX*>(context.Get()));
    long count = 0;
    BRIDGEINFO bridge = {};
    strcpy(bridge.Name, "br0");
    const std::function<BOOL()> calls[] = {
        [&] { return Network_GetNetCardNumber(&count); },
        [&] { return Network_AddBridge(&bridge); },
        [] { return Network_DelBridge("br0"); },
        [] { return Network_StartStopNetworkDevice("br0", 1); },
        [] { return Network_SetDevAddress("br0", "192.0.2.1", "255.255.255.0"); },
    };
    const auto records = [&](const std::string& text) {
        const std::string log = support::ReadFile(dir.OwnLog());
        const std::string wanted = "[Error] " + text + " - netcard.c,";
        size_t found = 0;
        for (size_t at = log.find(wanted); at != std::string::npos; at = log.find(wanted, at + 1))
            ++found;
        return found;
    };
    size_t number = 0;
    for (const auto& call : calls) {
        fault::Arm("socket", 1, {EMFILE, false});
        EXPECT_FALSE(call());
        EXPECT_TRUE(fault::Disarm());
        EXPECT_SYSTEM_ERROR(EMFILE);
        EXPECT_EQ(records("create socket failed"), ++number);
    }
    fault::Arm("reallocarray", 1, {ENOMEM, false});
    EXPECT_FALSE(Network_GetNetCardNumber(&count));
    EXPECT_TRUE(fault::Disarm());
    EXPECT_EQ(records("malloc buffer failed"), 1);
    g_General_LogCtx = saved;
}

} // namespace
