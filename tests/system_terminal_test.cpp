// Passwords, read from terminals that the tests make.
#include <ZKQ_general/system.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "support/buffer.h"
#include "support/child.h"
#include "support/error_text.h"
#include "support/signals.h"
#include "support/temp_dir.h"

namespace {

/// A terminal, from both sides.
class Terminal {
public:
    Terminal() : keyboard_(posix_openpt(O_RDWR | O_NOCTTY))
    {
        if (keyboard_ < 0 || grantpt(keyboard_) != 0 || unlockpt(keyboard_) != 0)
            support::SkipChild("no terminal");
        char name[100];
        if (ptsname_r(keyboard_, name, sizeof name) != 0)
            support::SkipChild("no terminal name");
        slave_ = open(name, O_RDWR | O_NOCTTY);
        termios settings = Settings();
        settings.c_cc[VMIN] = 0; // a program before has left it so
        settings.c_cc[VTIME] = 1;
        tcsetattr(slave_, TCSANOW, &settings);
    }
    ~Terminal()
    {
        close(keyboard_);
        close(slave_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    int Get() const { return slave_; }
    void Type(const std::string& text) const
    {
        EXPECT_EQ(write(keyboard_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    /// What is to be seen on the screen by now.
    std::string Screen() const
    {
        std::string shown;
        pollfd ready = {keyboard_, POLLIN, 0};
        while (poll(&ready, 1, 50) == 1) {
            char bytes[1000];
            const ssize_t count = read(keyboard_, bytes, sizeof bytes);
            if (count <= 0)
                break;
            shown.append(bytes, static_cast<size_t>(count));
        }
        return shown;
    }
    termios Settings() const
    {
        termios settings = {};
        EXPECT_EQ(tcgetattr(slave_, &settings), 0);
        return settings;
    }
    bool IsHidden() const { return (Settings().c_lflag & (ICANON | ECHO)) == 0; }

private:
    int keyboard_;
    int slave_ = -1;
};

/// Waits for the library to hide what is typed, so that nothing is shown before.
void TypeWhenHidden(const Terminal& terminal, const std::string& text)
{
    if (fork() == 0) {
        signal(SIGALRM, SIG_DFL);
        alarm(10);
        while (!terminal.IsHidden())
            usleep(1000);
        terminal.Type(text);
        _exit(0);
    }
}

struct Row {
    const char* typed;
    int size;
    int display;
    const char* password;
    const char* shown; ///< on the screen, behind the prompt
};

TEST(Password, IsReadFromStandardInput)
{
    RUN_IN_CHILD([] {
        const Row rows[] = {
            {"secret\n", 20, 0, "secret", "\r\n"},
            {"secret\r", 20, 1, "secret", "******\r\n"},
            {"\n", 20, 1, "", "\r\n"},
            {"secret", 3, 1, "sec", "***\r\n"},
            {"x", 0, 1, "", "\r\n"},
            {"a b\t\xFF\xC4\xE3\x80\n", 20, -1, "a b\t\xFF\xC4\xE3\x80", "********\r\n"},
            {"a\x7F\x08\n", 20, 0, "a\x7F\x08", "\r\n"},
        };
        for (const Row& row : rows) {
            SCOPED_TRACE(row.password);
            const Terminal terminal;
            dup2(terminal.Get(), STDIN_FILENO);
            const std::unique_ptr<FILE, int (*)(FILE*)> out(fdopen(dup(terminal.Get()), "w"), fclose);
            const std::unique_ptr<FILE, int (*)(FILE*)> in(fdopen(dup(STDIN_FILENO), "r"), fclose);
            const termios before = terminal.Settings();
            if (row.size > 0)
                TypeWhenHidden(terminal, row.typed);
            support::Buffer buffer(static_cast<size_t>(row.size) + 1);
            support::MarkErrorText();
            EXPECT_TRUE(
                ZKQGeneral_ReadPasswordString("Password: ", in.get(), out.get(), buffer.Data(), row.size, row.display));
            EXPECT_TRUE(support::ErrorTextIsMarked());
            EXPECT_EQ(buffer.Text(), row.password);
            EXPECT_TRUE(buffer.GuardIntact());
            EXPECT_EQ(terminal.Screen(), std::string("Password: ") + row.shown);
            const termios after = terminal.Settings();
            EXPECT_EQ(memcmp(&before, &after, sizeof before), 0) << "as it was";
            wait(nullptr);
        }
    });
}

TEST(Password, WithNullStreamsUsesTheStandardOnes)
{
    RUN_IN_CHILD([] {
        const Terminal terminal;
        fflush(stdout);
        const int realOut = dup(STDOUT_FILENO);
        dup2(terminal.Get(), STDIN_FILENO);
        dup2(terminal.Get(), STDOUT_FILENO);
        TypeWhenHidden(terminal, "abc\n");
        char buffer[10];
        EXPECT_TRUE(ZKQGeneral_ReadPasswordString(nullptr, nullptr, nullptr, buffer, 9, 1));
        fflush(stdout);
        dup2(realOut, STDOUT_FILENO);
        EXPECT_STREQ(buffer, "abc");
        EXPECT_EQ(terminal.Screen(), "***\r\n");
        EXPECT_FALSE(terminal.IsHidden());
        wait(nullptr);
    });
}

TEST(Password, SettingsArePutBackOnStandardInputOnly)
{
    RUN_IN_CHILD([] {
        const Terminal terminal;
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        FILE* const in = fdopen(terminal.Get(), "r");
        FILE* const out = fopen("/dev/null", "w");
        TypeWhenHidden(terminal, "abc\n");
        char buffer[10];
        EXPECT_TRUE(ZKQGeneral_ReadPasswordString("", in, out, buffer, 9, 0));
        EXPECT_STREQ(buffer, "abc");
        EXPECT_TRUE(terminal.IsHidden());
        wait(nullptr);
        fclose(out);
    });
}

TEST(Password, SignalsDoNotEndTheReading)
{
    RUN_IN_CHILD([] {
        const Terminal terminal;
        dup2(terminal.Get(), STDIN_FILENO);
        FILE* const out = fopen("/dev/null", "w");
        if (fork() == 0) {
            while (!terminal.IsHidden())
                usleep(1000);
            for (const char* const part : {"a", "b", "c\n"}) {
                usleep(20'000);
                terminal.Type(part);
            }
            _exit(0);
        }
        char buffer[10];
        {
            const support::SignalStorm storm;
            EXPECT_TRUE(ZKQGeneral_ReadPasswordString(nullptr, stdin, out, buffer, 9, 0));
        }
        EXPECT_STREQ(buffer, "abc");
        wait(nullptr);
        fclose(out);
    });
}

TEST(Password, NeedsATerminal)
{
    const support::TempDir dir;
    const std::string prompt = dir.File("out");
    FILE* const in = fopen("/dev/null", "r");
    FILE* const out = fopen(prompt.c_str(), "w");
    char buffer[10] = "before";
    EXPECT_FALSE(ZKQGeneral_ReadPasswordString("Who? ", in, out, buffer, 9, 0));
    EXPECT_SYSTEM_ERROR(ENOTTY);
    EXPECT_STREQ(buffer, "before");
    EXPECT_EQ(support::ReadFile(prompt), "Who? ") << "the prompt comes first, the line feed not at all";
    char bytes[] = "x\n";
    FILE* const memory = fmemopen(bytes, 2, "r");
    EXPECT_FALSE(ZKQGeneral_ReadPasswordString("", memory, out, buffer, 9, 0));
    EXPECT_SYSTEM_ERROR(EBADF);
    fclose(memory);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_ReadPasswordString("", in, out, nullptr, 9, 0));
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_FALSE(ZKQGeneral_ReadPasswordString("", in, out, buffer, -1, 0));
    EXPECT_SYSTEM_ERROR(EINVAL);
    fclose(in);
    fclose(out);
}

} // namespace
