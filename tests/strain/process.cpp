// What the threads of a process share: a log context, certificates, and a server for their requests.
#include <ZKQ_general/log.h>
#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "strain.h"

namespace strain {
namespace {

constexpr int kBacklog = 128;
constexpr time_t kServerPatience = kPatience;

/// The same as the operations expect.
std::string Body(size_t size)
{
    std::string body(size, '\0');
    for (size_t i = 0; i < size; ++i)
        body[i] = static_cast<char>('a' + (i * 7 + size) % 26);
    return body;
}

std::string Hex(size_t number)
{
    char text[20];
    snprintf(text, sizeof text, "%zx", number);
    return text;
}

std::string Chunks(const std::string& body)
{
    constexpr size_t kChunk = 1000;
    std::string text;
    for (size_t at = 0; at < body.size(); at += kChunk) {
        const std::string chunk = body.substr(at, kChunk);
        text += Hex(chunk.size()) + "\r\n" + chunk + "\r\n";
    }
    return text + "0\r\n\r\n";
}

std::string WithLength(const std::string& body)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string AnswerTo(const std::string& head, const std::string& sent)
{
    const std::string path = head.substr(head.find(' ') + 1, head.find(' ', head.find(' ') + 1) - head.find(' ') - 1);
    if (path == "/echo")
        return WithLength(sent);
    const std::string body = Body(std::stoul(path.substr(path.rfind('/') + 1)));
    if (path.starts_with("/chunks/"))
        return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + Chunks(body);
    if (path.starts_with("/close/"))
        return "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + body;
    return WithLength(body);
}

/// Reads a request; false if the client has gone before it was whole.
bool ReadRequest(int fd, std::string& head, std::string& body)
{
    std::string got;
    size_t end = std::string::npos;
    size_t length = 0;
    char piece[4096];
    for (;;) {
        if (end == std::string::npos && (end = got.find("\r\n\r\n")) != std::string::npos) {
            const size_t field = got.find("Content-Length: ");
            length = field < end ? std::stoul(got.substr(field + 16)) : 0;
        }
        if (end != std::string::npos && got.size() >= end + 4 + length)
            break;
        const ssize_t size = recv(fd, piece, sizeof piece, 0);
        if (size < 0 && errno == EINTR) // programs end; with a time limit no handler lets a call go on
            continue;
        if (size <= 0)
            return false;
        got.append(piece, static_cast<size_t>(size));
    }
    head = got.substr(0, end);
    body = got.substr(end + 4, length);
    return true;
}

void Answer(int fd)
{
    const timeval patience = {kServerPatience, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    std::string head;
    std::string body;
    if (!ReadRequest(fd, head, body))
        return;
    const std::string answer = AnswerTo(head, body);
    for (size_t at = 0; at < answer.size();) {
        const ssize_t sent = send(fd, answer.data() + at, answer.size() - at, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return;
        at += static_cast<size_t>(sent);
    }
}

} // namespace

struct Process::Server {
    Server() : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)), stop(eventfd(0, EFD_CLOEXEC))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener, kBacklog) != 0 ||
            getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
            throw std::runtime_error("no server for the requests");
        port = ntohs(address.sin_port);
        for (std::thread& thread : threads)
            thread = std::thread([this] { Run(); });
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server()
    {
        const uint64_t enough = 1;
        if (write(stop, &enough, sizeof enough) != static_cast<ssize_t>(sizeof enough))
            abort();
        for (std::thread& thread : threads)
            thread.join();
        close(listener);
        close(stop);
    }
    void Run() const
    {
        pollfd entries[] = {{listener, POLLIN, 0}, {stop, POLLIN, 0}};
        while (poll(entries, 2, -1) < 0 || entries[1].revents == 0) {
            const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0)
                continue; // the other thread was faster
            Answer(fd);
            close(fd);
        }
    }

    int listener;
    int stop;
    int port = 0;
    std::thread threads[2];
};

Process::Process(const Site& theSite, int theNumber)
    : site(theSite), number(theNumber), program(std::filesystem::read_symlink("/proc/self/exe"))
{
    commandLine = ReadWhole("/proc/self/cmdline");
    while (!commandLine.empty() && commandLine.back() == '\0')
        commandLine.pop_back();
    std::replace(commandLine.begin(), commandLine.end(), '\0', ' ');
    for (const auto& entry : std::filesystem::directory_iterator(site.corpus)) {
        const std::string bytes = ReadWhole(entry.path());
        int error = 0;
        const std::string told = TellCertificate(bytes, &error);
        if (error != 0)
            continue; // the corpus has its share of what is none
        certificates.push_back(bytes);
        certificatesAsTold.push_back(told);
    }
    APPLOGINFO info = {};
    info.Version = 3;
    info.ProjectName = "strain";
    const std::string logs = site.directory + "/l";
    info.TempPath = logs.c_str();
    info.RecordTime = 1;
    info.bAlwaysLog = ZKQ_LOG_ALL;
    if (certificates.empty() || !ZKQGeneral_IsNeedLogFile(&info, &log) ||
        !ZKQGeneral_SetAppLogFile(log, site.log.c_str()))
        throw std::runtime_error("a process cannot begin");
    server_ = std::make_unique<Server>();
    httpPort = server_->port;
}

Process::~Process()
{
    ZKQGeneral_FreeLogCtx(log);
}

} // namespace strain
