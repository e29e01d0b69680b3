// Networks of a test's own: interfaces and names that nobody else sees, and another host at the end of a cable.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "child.h"
#include "temp_dir.h"

namespace support {

/// Runs a command of the shell; false if it fails.
inline bool Shell(const std::string& command)
{
    return system(("{ " + command + "; } >/dev/null 2>&1").c_str()) == 0;
}

/// In a child: from here on it has a network with nothing but the loopback interface, and host names of its own.
inline void EnterNetwork()
{
    EnterPrivateMounts();
    if (unshare(CLONE_NEWNET | CLONE_NEWUTS) != 0)
        SkipChild("network namespace");
    if (!Shell("ip link set lo up"))
        SkipChild("ip");
}

/// In a child with a network of its own: /sys shows it, and not the one outside.
inline void ShowNetworkInSys()
{
    if (mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0)
        SkipChild("mount of /sys");
}

/// What a command of the shell prints, without the last line feed.
inline std::string Output(const std::string& command)
{
    std::string output;
    FILE* const pipe = popen(command.c_str(), "r");
    char part[4096];
    for (size_t size = 0; (size = fread(part, 1, sizeof part, pipe)) > 0;)
        output.append(part, size);
    EXPECT_EQ(pclose(pipe), 0) << command;
    if (output.ends_with('\n'))
        output.pop_back();
    return output;
}

/// In a child with private mounts: puts a text in the place of a file of the system.
inline void ReplaceSystemFile(const TempDir& dir, const std::string& file, const std::string& text)
{
    const std::string own = dir.File(file.substr(file.rfind('/') + 1));
    std::ofstream(own) << text;
    if (mount(own.c_str(), file.c_str(), "none", MS_BIND, nullptr) != 0)
        SkipChild("mount on " + file);
}

/// In a child with a network of its own: another host, a process that has one, too. A cable leads there from interface v0
/// with 192.0.2.1 and 2001:db8::1 to v1 with 192.0.2.2 and 2001:db8::2.
class OtherHost {
public:
    OtherHost()
    {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        pid_ = fork();
        if (pid_ == 0) {
            if (unshare(CLONE_NEWNET) != 0)
                _exit(1);
            EXPECT_EQ(write(ready[1], "", 1), 1);
            for (;;)
                pause();
        }
        char byte = 1;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
        close(ready[1]);
        if (!Shell("ip link add v0 type veth peer name v1 netns " + std::to_string(pid_)))
            SkipChild("veth");
        EXPECT_TRUE(Shell(SetUp("v0", "1")));
        EXPECT_TRUE(Run(SetUp("v1", "2")));
        int tries = 50; // until the interfaces have found each other
        while (!Shell("ping -c 1 -W 0.1 2001:db8::2"))
            if (--tries == 0)
                SkipChild("ping");
    }
    OtherHost(const OtherHost&) = delete;
    OtherHost& operator=(const OtherHost&) = delete;
    ~OtherHost()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }

    /// Runs a command there.
    bool Run(const std::string& command) const
    {
        return Shell("nsenter -n -t " + std::to_string(pid_) + " sh -c '" + command + "'");
    }

private:
    static std::string SetUp(const std::string& device, const std::string& host)
    {
        const std::string dev = " dev " + device;
        return "ip link set addrgenmode none" + dev + " && ip addr add 192.0.2." + host + "/24" + dev +
               " && ip addr add 2001:db8::" + host + "/64 nodad" + dev + " && ip link set up" + dev;
    }

    pid_t pid_;
};

} // namespace support
