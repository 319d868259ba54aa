// qxvc-demo --out DIR writes into a new folder of its own and leaves whatever
// DIR held as it was, even when the run fails.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "ChildProcess.h"

namespace fs = std::filesystem;

TEST(DemoOutputTest, RunWritesIntoAFreshFolderAndLeavesForeignFilesAlone) {
    char tmpl[] = "/tmp/velmorin-demo-out.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const fs::path out = tmpl;
    std::ofstream(out / "keep.txt") << "not the demo's\n";
    fs::create_directories(out / "run-old");

    // A phone that cannot start fails the demo early, after it made its folder.
    ChildProcess::Setup setup;
    setup.argv = {"/bin/sh", "-c",
                  "QXVC_PHONE=/bin/false exec " QXVC_DEMO_BINARY " --out=" + out.string()};
    setup.logPath = (out / "demo.log").string();
    std::string error;
    auto demo = ChildProcess::start(std::move(setup), error);
    ASSERT_NE(demo, nullptr) << error;
    EXPECT_EQ(demo->waitExit(60), 1);

    EXPECT_TRUE(fs::exists(out / "keep.txt"));
    EXPECT_TRUE(fs::exists(out / "run-old"));
    int runs = 0;
    for (const auto& entry : fs::directory_iterator(out)) {
        const auto name = entry.path().filename().string();
        if (name.rfind("run-2", 0) == 0) {
            ++runs;
            EXPECT_TRUE(fs::exists(entry.path() / "chat-config.json")) << name;
        }
    }
    EXPECT_EQ(runs, 1);
    fs::remove_all(out);
}
