// The SDK as an application gets it: installed into a prefix that is then
// moved, examples/call built against it with find_package and with a plain
// compiler line from pkg-config, and each build calling a phone.
#include <filesystem>
#include <fstream>
#include <sstream>

#include "PhoneCallFixture.h"

namespace fs = std::filesystem;

namespace {

/// Runs `command` through the shell; its output goes to `log`. The exit status.
int shell(const std::string& command, const std::string& log) {
    ChildProcess::Setup setup;
    setup.argv = {"/bin/sh", "-c", command};
    setup.logPath = log;
    std::string error;
    auto process = ChildProcess::start(std::move(setup), error);
    return process ? process->waitExit(900) : -1;
}

std::string readText(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

TEST_F(PhoneCallTest, InstalledSdkBuildsTheExampleBothWaysAndItCallsAPhone) {
    const fs::path work = stack().workDir() + "/sdk";
    const fs::path log = work / "build.log";
    const std::string example = VELMORIN_SOURCE_DIR "/examples/call";
    fs::create_directories(work);
    ASSERT_EQ(shell(std::string(CMAKE_COMMAND " --install " VELMORIN_BUILD_DIR " --prefix ") +
                        (work / "staged").string(),
                    log),
              0)
        << readText(log);
    // Moved after the install: only relative paths can still lead anywhere.
    fs::rename(work / "staged", work / "sdk");
    const fs::path sdk = work / "sdk";
    for (const auto& entry : fs::recursive_directory_iterator(sdk)) {
        const auto ext = entry.path().extension();
        if (ext == ".cmake" || ext == ".pc") {
            const auto text = readText(entry.path());
            for (const auto& path :
                 std::vector<std::string>{VELMORIN_BUILD_DIR, VELMORIN_SOURCE_DIR, work.string()}) {
                EXPECT_EQ(text.find(path), std::string::npos) << entry.path() << " names " << path;
            }
        }
    }

    const std::string cmakeBuild = (work / "with-cmake").string();
    ASSERT_EQ(shell(std::string(CMAKE_COMMAND) + " -S " + example + " -B " + cmakeBuild +
                        " -DCMAKE_PREFIX_PATH=" + sdk.string() + " && " CMAKE_COMMAND " --build " +
                        cmakeBuild,
                    log),
              0)
        << readText(log);
    const std::string pcProgram = (work / "with-pkg-config").string();
    ASSERT_EQ(
        shell("export PKG_CONFIG_PATH=" + sdk.string() +
                  "/" VELMORIN_INSTALL_LIBDIR "/pkgconfig; " CMAKE_CXX_COMPILER " -std=c++20 " +
                  example + "/velmorin-call.cpp -o " + pcProgram +
                  " $(" PKG_CONFIG_EXECUTABLE
                  " --cflags --libs velmorin_gstreamer velmorin_chat_websocket)",
              log),
        0)
        << readText(log);

    std::string token;
    for (const auto& user : stack().server().config().users) {
        token = user.id == "alice" ? user.token : token;
    }
    auto& bob = phone("bob", {"--auto-accept"});
    for (const auto& program : std::vector<std::string>{cmakeBuild + "/velmorin-call", pcProgram}) {
        SCOPED_TRACE(program);
        const std::string output = work.string() + "/call.log";
        EXPECT_EQ(shell(program + " " + stack().server().address() + " alice " + token +
                            " alice-bob call 2 >" + output,
                        log),
                  0)
            << readText(log);
        const std::string printed = readText(output);
        for (const char* line : {"callback didSendStartCall", "callback didReceiveAcceptCall",
                                 "callback didOpenCall", "callback didSendEndCall"}) {
            EXPECT_NE(printed.find(line), std::string::npos) << line << " missing in\n" << printed;
        }
        expectEvent(bob, "didOpenCall");
        expectEvent(bob, "didReceiveEndCall");
    }
    expectRelayCandidates_ = true;
}
