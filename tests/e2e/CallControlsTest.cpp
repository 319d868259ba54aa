// Calls that go through: a video call with every media control, then an
// audio-only call between the same phones.
#include <fstream>

#include "PhoneCallFixture.h"

namespace {

/// Size of the file when it starts like a PNG, else 0.
size_t pngSize(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    char signature[8] = {};
    in.read(signature, sizeof signature);
    if (!in || std::string(signature, 8) != "\x89PNG\r\n\x1a\n") {
        return 0;
    }
    in.seekg(0, std::ios::end);
    return static_cast<size_t>(in.tellg());
}

}  // namespace

TEST_F(PhoneCallTest, VideoCallCarriesMediaAndEveryControlThenAnAudioOnlyCallOpensAndEnds) {
    auto& alice = phone("alice");
    auto& bob = phone("bob");
    const auto callId = establishCall(alice, bob);
    ASSERT_FALSE(callId.empty());

    // Media both ways, and both remote views can be written out. The engine's
    // byte counters grow with the frames.
    auto bobBefore = bob.stats();
    EXPECT_TRUE(framesGrowBeyond(alice, 30));
    EXPECT_TRUE(framesGrowBeyond(bob, 30));
    auto bobAfter = bob.stats();
    ASSERT_TRUE(bobBefore && bobAfter);
    EXPECT_GT(bobAfter->number("videoBytesReceived"), bobBefore->number("videoBytesReceived"));
    // A new test sound server holds back its rooms' first block for a second or
    // two, so the microphones' sound may start after the pictures.
    EXPECT_TRUE(eventually(kStep, [&] {
        auto now = bob.stats();
        return now && now->number("audioBytesReceived") > bobBefore->number("audioBytesReceived");
    }));
    EXPECT_GT(bobAfter->number("videoBytesSent"), bobBefore->number("videoBytesSent"));
    // Each picture says whose camera took it.
    for (auto [viewer, other] : {std::pair{&alice, "bob"}, std::pair{&bob, "alice"}}) {
        viewer->send("snapshot " + viewer->user() + ".png");
        auto shot = viewer->waitKind("SNAPSHOT", kStep);
        ASSERT_TRUE(shot) << viewer->user();
        EXPECT_GT(pngSize(shot->field("file")), 100u);
        EXPECT_GT(shot->number("width"), 0);
        EXPECT_EQ(shot->field("remoteUser"), other);
        EXPECT_EQ(shot->field("remoteCamera"), "front");
    }

    // Each update is heard by the other side with the new value.
    alice.send("mute");
    expectEvent(bob, "didOpponentAudioStateChange", kStep, fieldIs("audio", "0"));
    alice.send("unmute");
    expectEvent(bob, "didOpponentAudioStateChange", kStep, fieldIs("audio", "1"));
    bob.send("video-off");
    expectEvent(alice, "didOpponentVideoStateChange", kStep, fieldIs("video", "0"));
    bob.send("video-on");
    expectEvent(alice, "didOpponentVideoStateChange", kStep, fieldIs("video", "1"));
    alice.send("video-off");
    expectEvent(bob, "didOpponentVideoStateChange", kStep, fieldIs("video", "0"));
    alice.send("video-on");
    expectEvent(bob, "didOpponentVideoStateChange", kStep, fieldIs("video", "1"));
    alice.send("speaker-off");
    alice.send("speaker-on");

    // After a camera switch the video keeps coming, from the other camera.
    const long before = remoteFrames(bob);
    alice.send("switch-camera");
    EXPECT_TRUE(framesGrowBeyond(bob, before + 30));
    EXPECT_TRUE(eventually(kStep, [&] {
        auto stats = bob.stats();
        return stats && stats->field("remoteCamera") == "back";
    }));

    // Neither side dropped on the way, and the call id never changed.
    EXPECT_TRUE(alice.events("didDropCall").empty());
    EXPECT_TRUE(bob.events("didDropCall").empty());
    for (const auto& event : bob.events("didOpponentVideoStateChange")) {
        EXPECT_EQ(event.field("call"), callId);
    }
    EXPECT_TRUE(alice.events("didOpponentAudioStateChange").empty())
        << "bob never touched his microphone";

    endCall(alice, bob, "end");

    // The next call is audio only; it too opens, carries the updates and ends.
    ASSERT_FALSE(establishCall(alice, bob, /*audioOnly*/ true).empty());
    bob.send("mute");
    expectEvent(alice, "didOpponentAudioStateChange", kStep, fieldIs("audio", "0"));
    bob.send("unmute");
    expectEvent(alice, "didOpponentAudioStateChange", kStep, fieldIs("audio", "1"));
    endCall(bob, alice, "end");
    EXPECT_EQ(alice.quit(), 0);
    EXPECT_EQ(bob.quit(), 0);
}
