// Calls that go through: a video call with every media control, then an
// audio-only call between the same phones.
#include <filesystem>
#include <fstream>

#include "PhoneCallFixture.h"

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
        std::string signature(8, '\0');
        std::ifstream(shot->field("file"), std::ios::binary).read(signature.data(), 8);
        EXPECT_EQ(signature, "\x89PNG\r\n\x1a\n");
        EXPECT_GT(std::filesystem::file_size(shot->field("file")), 100u);
        EXPECT_GT(shot->number("width"), 0);
        EXPECT_EQ(shot->field("remoteUser"), other);
        EXPECT_EQ(shot->field("remoteCamera"), "front");
    }

    // Each update is heard by the other side with the new value.
    for (auto [from, to, kind, off, on] :
         {std::tuple{&alice, &bob, "audio", "mute", "unmute"},
          std::tuple{&bob, &alice, "video", "video-off", "video-on"},
          std::tuple{&alice, &bob, "video", "video-off", "video-on"}}) {
        const std::string event = kind == std::string("audio") ? "didOpponentAudioStateChange"
                                                               : "didOpponentVideoStateChange";
        from->send(off);
        expectEvent(*to, event, kStep, fieldIs(kind, "0"));
        from->send(on);
        expectEvent(*to, event, kStep, fieldIs(kind, "1"));
    }
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
