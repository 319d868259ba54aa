// qxvc-phone's answer to bad input: flags, scripts and push files it cannot use
// are refused with a clear message and status 2 before it connects anywhere;
// a server nobody answers, a script step that fails, or one whose completion
// reports an error, makes the phone exit with status 1.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "ChildProcess.h"
#include "PhoneCallFixture.h"
#include "ToolPaths.h"

namespace {

struct Outcome {
    int status = -1;
    std::string output;  ///< stdout and stderr
};

std::string writeTemp(const std::string& content) {
    char tmpl[] = "/tmp/velmorin-phone-file.XXXXXX";
    const int fd = mkstemp(tmpl);
    if (fd >= 0) {
        close(fd);
    }
    std::ofstream(tmpl) << content;
    return tmpl;
}

Outcome runPhone(const std::vector<std::string>& args) {
    ChildProcess::Setup setup;
    setup.argv = {phoneBinary()};
    setup.argv.insert(setup.argv.end(), args.begin(), args.end());
    setup.logPath = writeTemp("");
    std::string error;
    auto process = ChildProcess::start(setup, error);
    Outcome outcome;
    if (!process) {
        outcome.output = error;
        return outcome;
    }
    outcome.status = process->waitExit(20);
    process->stop();
    std::ifstream in(setup.logPath);
    std::stringstream text;
    text << in.rdbuf();
    outcome.output = text.str();
    std::remove(setup.logPath.c_str());
    return outcome;
}

std::vector<std::string> validWith(std::vector<std::string> extra) {
    extra.insert(extra.begin(),
                 {"--server", "127.0.0.1:1", "--user", "alice", "--channel", "alice-bob"});
    return extra;
}

}  // namespace

TEST(PhoneInputTest, BadFlagsScriptsAndPushFilesAreRefusedWithAReason) {
    const auto badScript = writeTemp("call video\nwait didOpenCall 5\ndial bob\n");
    const auto badWait = writeTemp("wait didEverything\n");
    const auto notJson = writeTemp("{\"aps\": ");
    const auto notObjects = writeTemp("[1, 2]");
    const struct {
        std::vector<std::string> args;
        const char* reason;
        int status = 2;
    } cases[] = {
        {{"--bogus"}, "unknown flag '--bogus'"},
        {{"--user", "alice", "--channel", "c"}, "--server HOST:PORT is required"},
        {{"--server", "localhost"}, "--server wants HOST:PORT"},
        {{"--server=127.0.0.1:70000", "--user", "a", "--channel", "c"}, "--server wants"},
        {{"--server", "127.0.0.1:1", "--channel", "c"}, "--user is required"},
        {{"--server", "127.0.0.1:1", "--user", "a"}, "--channel is required"},
        {validWith({"--start-call-timeout", "10"}), "from 30 to 60"},
        {validWith({"--start-call-timeout=forty"}), "from 30 to 60"},
        {validWith({"--push-mode", "later"}), "handle or build"},
        {validWith({"--log-level"}), "--log-level needs a value"},
        {validWith({"--user="}), "--user needs a value"},
        {validWith({"--auto-accept=yes"}), "--auto-accept takes no value"},
        {validWith({"--script", "/nonexistent/script"}),
         "cannot read script /nonexistent/script: No such file or directory"},
        {validWith({"--script", "/tmp"}), "cannot read script /tmp: Is a directory"},
        {validWith({"--script", badScript}), ":3: unknown command 'dial'"},
        {validWith({"--script", badWait}), "unknown event 'didEverything'"},
        {validWith({"--push-file", "/nonexistent/push.json"}),
         "cannot read push file /nonexistent/push.json: No such file or directory"},
        {validWith({"--push-file", notJson}), "is not JSON"},
        {validWith({"--push-file", notObjects}), "must be a JSON object"},
        // Well-formed, but nobody answers: a start failure, not a hang.
        {validWith({}), "cannot log in to 127.0.0.1:1 as alice", 1},
    };
    for (const auto& c : cases) {
        const auto outcome = runPhone(c.args);
        EXPECT_EQ(outcome.status, c.status) << c.reason << "\n" << outcome.output;
        EXPECT_NE(outcome.output.find(c.reason), std::string::npos)
            << "expected \"" << c.reason << "\" in:\n"
            << outcome.output;
        // The reason alone: the usage is for --help.
        EXPECT_EQ(outcome.output.find("usage:"), std::string::npos) << outcome.output;
    }
    for (const auto& path : {badScript, badWait, notJson, notObjects}) {
        std::remove(path.c_str());
    }
}

TEST_F(PhoneCallTest, ScriptStepThatTimesOutFailsThePhoneAndForeignPushIsIgnored) {
    const auto script = writeTemp("stats\nwait didOpenCall 1\nstats\n");
    const auto push =
        writeTemp(R"({"aps": {"category": "other"}, "velmorin": {"custom_type": "x"}})");
    auto& alice = phone("alice", {"--script", script, "--push-file", push}, false);
    EXPECT_EQ(alice.process().waitExit(kStep), 1);
    const auto lines = alice.parsedLines();
    int stats = 0;
    bool failed = false;
    for (const auto& line : lines) {
        stats += line.kind == "STATS";
        failed = failed || (line.kind == "FAIL" &&
                            line.text.find("no didOpenCall within 1 s") != std::string::npos);
    }
    EXPECT_TRUE(failed);
    EXPECT_EQ(stats, 1) << "the script must stop at the failed step";
    auto handled = alice.events("pushHandled");
    ASSERT_EQ(handled.size(), 1u);
    EXPECT_EQ(handled[0].field("result"), "0");
    std::remove(script.c_str());
    std::remove(push.c_str());
}

TEST_F(PhoneCallTest, StartThatCompletesWithAnErrorFailsThePhoneAndSaysWhy) {
    const auto script = writeTemp("call video\nwait startCallCompleted 20\n");
    // A channel alice is not in: the library refuses the start.
    auto& alice = phone("alice", {"--script=" + script, "--channel=no-such-channel"}, false);
    EXPECT_EQ(alice.process().waitExit(kStep), 1);
    const auto completed = alice.events("startCallCompleted");
    ASSERT_EQ(completed.size(), 1u);
    EXPECT_NE(completed[0].field("error"), "0");
    // The code comes with its text: "error=820401 (...)".
    EXPECT_NE(completed[0].text.find(" (", completed[0].text.find("error=")), std::string::npos)
        << completed[0].text;
    std::remove(script.c_str());
}
