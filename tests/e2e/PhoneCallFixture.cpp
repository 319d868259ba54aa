#include "PhoneCallFixture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "SignallingAudit.h"

void PhoneCallTest::SetUp() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    char tmpl[] = "/tmp/velmorin-e2e.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    workDir_ = std::string(tmpl) + "/" + info->test_suite_name() + "." + info->name();
    std::filesystem::create_directories(workDir_);
    stack_ = std::make_unique<LocalCallStack>(workDir_);
    std::string error;
    ASSERT_TRUE(stack_->start(error)) << error;
}

void PhoneCallTest::TearDown() {
    for (auto& phone : phones_) {
        phone->quit(5);
    }
    phones_.clear();
    if (!stack_) {
        return;
    }
    const std::string turnSecret = stack_->turn().secret();
    stack_->stop();
    if (std::filesystem::exists(stack_->server().dbPath())) {
        const auto audit = auditSignalling(stack_->server().dbPath());
        // At the default log level no TURN secret or password reaches the output.
        if (!std::getenv("QXVC_PHONE_ARGS")) {
            auto secrets = audit.turnPasswords;
            secrets.push_back(turnSecret);
            for (const auto& entry : std::filesystem::directory_iterator(workDir_)) {
                const auto name = entry.path().filename().string();
                std::ifstream in(entry.path());
                for (std::string line; name.rfind("phone-", 0) == 0 && std::getline(in, line);) {
                    for (const auto& secret : secrets) {
                        EXPECT_TRUE(secret.empty() || line.find(secret) == std::string::npos)
                            << name << " shows a TURN credential: " << line;
                    }
                }
            }
        }
        EXPECT_EQ(audit.error, "");
        for (const auto& leak : audit.leaks) {
            ADD_FAILURE() << "signalling carried a non-relay candidate: " << leak;
        }
        if (expectRelayCandidates_) {
            EXPECT_GT(audit.relayCandidates, 0) << "no relay candidate reached the database";
        }
    }
    if (HasFailure()) {
        std::printf("logs and database kept in %s\n", workDir_.c_str());
    } else {
        std::error_code ignored;
        std::filesystem::remove_all(std::filesystem::path(workDir_).parent_path(), ignored);
    }
    stack_.reset();
}

PhoneProcess& PhoneCallTest::phone(const std::string& user, const std::vector<std::string>& args,
                                   bool loggedIn) {
    std::string error;
    auto started = stack_->startPhone(user, args, error, loggedIn);
    if (!started) {
        ADD_FAILURE() << error;
        started = stack_->startPhone(user, args, error, false);
    }
    phones_.push_back(std::move(started));
    return *phones_.back();
}

std::optional<PhoneLine> PhoneCallTest::expectEvent(
    PhoneProcess& phone, const std::string& name, double seconds,
    const std::function<bool(const PhoneLine&)>& match) {
    auto event = phone.waitEvent(name, seconds, match);
    if (!event) {
        ADD_FAILURE() << phone.user() << " did not hear " << name << " within " << seconds << " s";
    }
    return event;
}

std::function<bool(const PhoneLine&)> PhoneCallTest::fieldIs(const std::string& key,
                                                             const std::string& value) {
    return [key, value](const PhoneLine& line) { return line.field(key) == value; };
}

std::string PhoneCallTest::establishCall(PhoneProcess& caller, PhoneProcess& callee,
                                         bool audioOnly) {
    expectRelayCandidates_ = true;
    caller.send(audioOnly ? "call audio" : "call video");
    auto started = expectEvent(caller, "startCallCompleted", kStep, fieldIs("error", "0"));
    auto sent = expectEvent(caller, "didSendStartCall");
    auto ringing = expectEvent(callee, "didReceiveStartCall");
    if (!started || !sent || !ringing) {
        return "";
    }
    EXPECT_EQ(sent->field("call"), ringing->field("call"));
    EXPECT_EQ(ringing->field("role"), "callee");
    callee.send("accept");
    expectEvent(callee, "acceptCompleted", kStep, fieldIs("error", "0"));
    expectEvent(callee, "didSendAcceptCall");
    expectEvent(caller, "didReceiveAcceptCall");
    auto callerOpen = expectEvent(caller, "didOpenCall");
    auto calleeOpen = expectEvent(callee, "didOpenCall");
    if (!callerOpen || !calleeOpen) {
        return "";
    }
    EXPECT_EQ(callerOpen->field("call"), calleeOpen->field("call"));
    EXPECT_EQ(callerOpen->field("state"), "opened");
    if (!audioOnly) {
        expectEvent(caller, "firstRemoteFrame");
        expectEvent(callee, "firstRemoteFrame");
    }
    return callerOpen->field("call");
}

long PhoneCallTest::remoteFrames(PhoneProcess& phone) {
    auto stats = phone.stats();
    return stats ? stats->number("frames") : -1;
}

bool PhoneCallTest::eventually(double seconds, const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < deadline) {
        if (done()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return false;
}

bool PhoneCallTest::framesGrowBeyond(PhoneProcess& phone, long frames, double seconds) {
    return eventually(seconds, [&] { return remoteFrames(phone) > frames; });
}

void PhoneCallTest::endCall(PhoneProcess& ender, PhoneProcess& other, const std::string& endType) {
    ender.send("end");
    expectEvent(ender, "endCompleted", kStep, fieldIs("error", "0"));
    expectEvent(ender, "didSendEndCall", kStep, fieldIs("endType", endType));
    expectEvent(other, "didReceiveEndCall", kStep, fieldIs("endType", endType));
}

PhoneLine PhoneCallTest::endHeard(PhoneProcess& phone, double seconds) {
    PhoneLine found;
    const long index = phone.process().waitForLine(
        [&](const std::string& text) {
            auto line = parsePhoneLine(text);
            if (line && line->kind == "EVENT" &&
                (line->name == "didSendEndCall" || line->name == "didReceiveEndCall")) {
                found = *line;
                return true;
            }
            return false;
        },
        seconds);
    if (index < 0) {
        ADD_FAILURE() << phone.user() << " saw no end of the call within " << seconds << " s";
    }
    return found;
}
