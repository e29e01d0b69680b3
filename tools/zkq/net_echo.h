// Something to try connections with: a server that sends back what it gets, and a client for any server.
#pragma once

#include <string>

struct ServeOptions {
    std::string host = "127.0.0.1";
    int port = 0;
    long count = 0; ///< connections to serve, 0 for all
};

struct ConnectOptions {
    std::string host;
    int port = 0;
    int timeout = 20;
};

void ServeEcho(const ServeOptions& options);
void ConnectTo(const ConnectOptions& options);
