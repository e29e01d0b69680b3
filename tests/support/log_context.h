// A log context in a directory of its own.
#pragma once

#include <ZKQ_general/inifile.h>
#include <ZKQ_general/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "temp_dir.h"

namespace support {

/// The executable's name as the shared logs show it.
inline std::string ProgramName()
{
    return std::filesystem::read_symlink("/proc/self/exe").stem();
}

class LogDir {
public:
    const std::string& Path() const { return dir_.Path(); }
    std::string File(const std::string& name) const { return dir_.File(name); }
    std::string OwnLog(const std::string& project = "server") const { return File(project + ".log"); }
    std::string SharedLog() const { return File(ProgramName() + "[" + std::to_string(getpid()) + "].log"); }
    std::string SharedLog2() const { return File(ProgramName() + "[" + std::to_string(getpid()) + "]_2.log"); }

    void Switch(const std::string& key, int value) const
    {
        ASSERT_TRUE(ZKQGeneral_WritePrivateProfileString("applog", key.c_str(), std::to_string(value).c_str(),
                                                         File("tamor.ini").c_str()));
    }

private:
    TempDir dir_;
};

/// The description of the project "server", logging into a directory; change it before making a context.
class AppInfo : public APPLOGINFO {
public:
    explicit AppInfo(const LogDir& dir, int version = 3) : APPLOGINFO(), project_("server"), path_(dir.Path())
    {
        Version = version;
        ProjectName = project_.data();
        TempPath = path_.data();
    }
    AppInfo(const AppInfo&) = delete;
    AppInfo& operator=(const AppInfo&) = delete;

private:
    std::string project_;
    std::string path_;
};

class LogContext {
public:
    explicit LogContext(APPLOGINFO& info) { EXPECT_TRUE(ZKQGeneral_IsNeedLogFile(&info, &ctx_)); }
    LogContext(const LogContext&) = delete;
    LogContext& operator=(const LogContext&) = delete;
    ~LogContext() { ZKQGeneral_FreeLogCtx(ctx_); }

    void* Get() const { return ctx_; }
    BOOL Write(int level, const char* text = "text") const
    {
        return ZKQGeneral_RecordLogInfoEx(ctx_, level, "main.c", 120, text);
    }

private:
    void* ctx_ = nullptr;
};

} // namespace support
