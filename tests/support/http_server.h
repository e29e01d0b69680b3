// A server that does as it is told: takes one connection after the other, records what it is asked byte for byte, and
// answers each as its script says.
#pragma once

#include <sys/eventfd.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "loopback.h"

namespace support {

class ScriptedServer {
public:
    /// What happens on a connection once the request is there.
    using Script = std::function<void(Fd& connection)>;

    explicit ScriptedServer(std::vector<Script> scripts, int family = AF_INET)
        : listener_(family), stop_(eventfd(0, EFD_CLOEXEC)), thread_([this, scripts] { Run(scripts); })
    {}
    explicit ScriptedServer(const std::string& answer) : ScriptedServer({Reply(answer)}) {}
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer()
    {
        const uint64_t one = 1;
        EXPECT_EQ(write(stop_.Get(), &one, sizeof one), static_cast<ssize_t>(sizeof one));
        thread_.join();
    }

    /// Answers and closes.
    static Script Reply(const std::string& answer)
    {
        return [answer](Fd& connection) { WriteAll(connection.Get(), answer); };
    }
    /// Answers piece by piece and closes.
    static Script Drip(const std::vector<std::string>& pieces, useconds_t pause = 5000)
    {
        return [pieces, pause](Fd& connection) {
            for (const std::string& piece : pieces) {
                WriteAll(connection.Get(), piece);
                usleep(pause);
            }
        };
    }
    /// Answers and then does nothing more until the client closes.
    static Script Stall(const std::string& answer)
    {
        return [answer](Fd& connection) {
            WriteAll(connection.Get(), answer);
            ReadBytes(connection.Get(), 1);
        };
    }
    /// The same for ever: every connection gets the last script.
    void RepeatLast() { repeats_ = true; }

    int Port() const { return listener_.Port(); }
    std::string Authority() const
    {
        const std::string host = listener_.Host();
        return (host == "::1" ? "[::1]" : host) + ":" + std::to_string(Port());
    }
    std::string Url(const std::string& path = "/x") const { return "http://" + Authority() + path; }
    std::vector<std::string> Requests() const
    {
        const std::lock_guard lock(mutex_);
        return requests_;
    }
    /// The only request, or the last.
    std::string Request() const
    {
        const std::vector<std::string> requests = Requests();
        return requests.empty() ? "" : requests.back();
    }

private:
    bool WaitForClient() const
    {
        pollfd entries[] = {{listener_.Get(), POLLIN, 0}, {stop_.Get(), POLLIN, 0}};
        poll(entries, 2, -1);
        return entries[1].revents == 0;
    }
    void Run(const std::vector<Script>& scripts)
    {
        for (size_t i = 0; (i < scripts.size() || repeats_) && WaitForClient(); ++i) {
            Fd connection = listener_.Accept();
            std::string request = ReadRequest(connection.Get());
            {
                const std::lock_guard lock(mutex_);
                requests_.push_back(std::move(request));
            }
            scripts[std::min(i, scripts.size() - 1)](connection);
        }
    }
    static std::string ReadRequest(int fd)
    {
        std::string request;
        size_t end = std::string::npos;
        while ((end = request.find("\r\n\r\n")) == std::string::npos) {
            const std::string byte = ReadBytes(fd, 1);
            if (byte.empty())
                return request;
            request += byte;
        }
        const size_t length = request.find("Content-Length:");
        if (length != std::string::npos)
            request += ReadBytes(fd, std::stoul(request.substr(length + strlen("Content-Length:"))));
        return request;
    }

    Listener listener_;
    Fd stop_;
    std::atomic<bool> repeats_ = false;
    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

/// A whole response.
inline std::string Response(const std::string& body, const std::string& headers = "",
                            const std::string& status = "200 OK")
{
    return "HTTP/1.1 " + status + "\r\n" + headers + "\r\n" + body;
}

/// A header line with the length of a body.
inline std::string LengthHeader(size_t length)
{
    return "Content-Length: " + std::to_string(length) + "\r\n";
}

} // namespace support
