// qxvc-turn DIR: coturn on loopback for calls by hand, through the same
// launcher the tests use. Prints the TURN URL; the fresh shared secret goes
// to DIR/turn-secret (readable by this user only), for the chat server's
// --turn-secret-file. Runs until SIGINT or SIGTERM; coturn goes with it.
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "TurnProcess.h"

namespace {

volatile std::sig_atomic_t stopping = 0;

void onSignal(int) {
    stopping = 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || argv[1][0] == '-') {
        std::fprintf(stderr, "usage: qxvc-turn DIR\n");
        return 2;
    }
    const std::string dir = argv[1];
    std::error_code ignored;
    std::filesystem::create_directories(dir, ignored);
    TurnProcess turn(dir);
    std::string error;
    if (!turn.start(error)) {
        std::fprintf(stderr, "qxvc-turn: %s\n", error.c_str());
        return 1;
    }
    const std::string secretPath = dir + "/turn-secret";
    std::filesystem::remove(secretPath, ignored);
    const mode_t previous = umask(077);
    std::ofstream(secretPath, std::ios::trunc) << turn.secret() << "\n";
    umask(previous);
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    std::printf("%s secret in %s, log in %s\n", turn.url().c_str(), secretPath.c_str(),
                turn.logPath().c_str());
    std::fflush(stdout);
    while (!stopping && turn.running()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    turn.stop();
    return 0;
}
