// velmorin-chat-server: the Velmorin chat service over WebSocket.
//
// Prints "velmorin-chat-server listening on <host>:<port>" on stdout once it
// accepts connections; stops cleanly on SIGTERM or SIGINT. Exit codes: 0 after
// a clean stop, 1 when it cannot listen, 2 for bad options (among them no users,
// or no TURN server and secret), a bad config file or a database it cannot use.
#include <pthread.h>
#include <csignal>
#include <cstdio>
#include <iostream>

#include "ChatServer.h"
#include "ChatServerConfig.h"
#include "ServerLog.h"
#include "SqliteChatStore.h"

using namespace velmorin::server;

namespace {

int run(int argc, char** argv) {
    const auto commandLine = parseCommandLine(argc, argv);
    if (commandLine.help) {
        std::cout << usage();
        return 0;
    }
    if (!commandLine.config) {
        std::cerr << "velmorin-chat-server: " << commandLine.error << "; see --help\n";
        return 2;
    }
    const ServerConfig& config = *commandLine.config;
    setLogLevel(config.logLevel);

    std::string error;
    auto store = SqliteChatStore::open(config.dbPath, error);
    if (!store) {
        std::cerr << "velmorin-chat-server: " << error << "\n";
        return 2;
    }
    auto service = velmorin::ChatService::create(config.settings, nullptr, store);
    if (error = setUpService(*service, config); !error.empty()) {
        std::cerr << "velmorin-chat-server: " << error << "\n";
        return 2;
    }

    // The signals are taken by sigwait below, never by a handler on some thread.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    ChatServerOptions options;
    options.host = config.host;
    options.port = config.port;
    options.tokens = tokensOf(config);
    options.storeId = store->storeId();
    ChatServer server(service, options);
    if (error = server.start(); !error.empty()) {
        std::cerr << "velmorin-chat-server: " << error << "\n";
        return 1;
    }
    log(LogLevel::Info, std::to_string(config.users.size()) + " users, " +
                            std::to_string(config.channels.size()) + " channels, database " +
                            (config.dbPath.empty() ? std::string("in memory") : config.dbPath) +
                            ", TURN server " + config.settings.turnServer);
    std::printf("velmorin-chat-server listening on %s:%u\n", server.host().c_str(),
                static_cast<unsigned>(server.port()));
    std::fflush(stdout);

    int received = 0;
    sigwait(&signals, &received);
    log(LogLevel::Info, std::string("stopping on ") + (received == SIGINT ? "SIGINT" : "SIGTERM"));
    server.stop();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "velmorin-chat-server: " << e.what() << "\n";
    }
    return 1;
}
