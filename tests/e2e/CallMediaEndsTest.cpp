// The ends of a call as a person meets them: speech said into one phone's
// microphone comes out of the other's speaker, a muted microphone sends
// silence, echo cancellation removes what the speaker plays back into the
// microphone, and the window shows the other side's picture.
#include <cstdio>

#include "PhoneCallFixture.h"
#include "RTCGstFrameTag.h"
#include "SpokenSentence.h"

namespace {

/// Below what speech through a working call reaches, above unrelated sound
/// (measured 0.85-0.95 through Opus; see the demo's report).
constexpr double kSpeechMatch = 0.6;
/// What a muted microphone may still deliver.
constexpr double kSilenceDb = -60;
/// What echo cancellation must take off the echo.
constexpr double kEchoAttenuationDb = 20;

}  // namespace

class CallMediaEndsTest : public PhoneCallTest {
  protected:
    /// A spoken sentence, made now.
    std::string sentence(const std::string& name, const std::string& text) {
        const std::string path = stack().workDir() + "/" + name + ".wav";
        std::string error;
        EXPECT_TRUE(makeSentence(path, text, error)) << error;
        return path;
    }

    /// `speaker` says `file` while its microphone and `listener`'s loudspeaker
    /// (or room) are recorded.
    std::optional<SpokenSentence> say(const std::string& speaker, const std::string& listening,
                                      const std::string& file, const std::string& tag,
                                      int times = 1) {
        std::string error;
        auto spoken = speakAndRecord(stack().sound(), speaker, {listening}, file,
                                     stack().workDir() + "/" + tag, times, error);
        if (!spoken) {
            ADD_FAILURE() << error;
        }
        return spoken;
    }
};

TEST_F(CallMediaEndsTest, SpeechCrossesBothWaysAndAMutedMicrophoneSendsSilence) {
    auto& alice = phone("alice");
    auto& bob = phone("bob");
    ASSERT_FALSE(establishCall(alice, bob, true).empty());
    const auto hello = sentence("alice-says", "Hello Bob, this is Alice calling you today.");
    const auto reply = sentence("bob-says", "Hi Alice, I can hear you very well.");

    for (auto [speaker, listener, file] :
         {std::tuple{"alice", "bob", hello}, std::tuple{"bob", "alice", reply}}) {
        auto heard = say(speaker, std::string(listener) + "_speaker.monitor", file,
                         std::string(speaker) + "-to-" + listener);
        ASSERT_TRUE(heard);
        auto match =
            matchAudio(heard->said, heard->heard[0], heard->speech.first, heard->speech.second);
        std::printf("%s -> %s: match %.3f, mouth to ear %.0f ms\n", speaker, listener,
                    match.correlation, match.lagMs);
        EXPECT_GT(match.correlation, kSpeechMatch) << speaker << " to " << listener;
    }

    alice.send("mute");
    expectEvent(bob, "didOpponentAudioStateChange", kStep, fieldIs("audio", "0"));
    auto muted = say("alice", "bob_speaker.monitor", hello, "alice-muted");
    ASSERT_TRUE(muted);
    EXPECT_GT(levelDb(muted->said, muted->speech.first, muted->speech.second), -40)
        << "alice did speak";
    const double arrived =
        levelDb(muted->heard[0], muted->speech.first, muted->speech.second + 1.0);
    std::printf("muted: %.1f dBFS arrived\n", arrived);
    EXPECT_LT(arrived, kSilenceDb);
    endCall(alice, bob, "end");
}

TEST_F(CallMediaEndsTest, EchoCancellationRemovesTheSpeakerLoopedIntoTheMicrophone) {
    const auto hello = sentence("alice-says", "Hello Bob, can you hear an echo of my voice?");
    auto& alice = phone("alice");
    // What alice hears of herself while bob is silent: over her whole speech
    // (three sentences), and from her second sentence on, once the canceller
    // has measured the echo's way (it takes one to two seconds of echo). The
    // same stretches are measured with the canceller off.
    struct Echo {
        double whole = 0;
        double adapted = 0;
    };
    auto echoLevel = [&](const std::string& cancellation) -> std::optional<Echo> {
        // Bob's speaker plays into the room his microphone hears.
        auto& bob = phone("bob", {"--speaker", "bob_room", "--echo-cancellation", cancellation});
        if (establishCall(alice, bob, true).empty()) {
            return std::nullopt;
        }
        auto heard = say("alice", "alice_speaker.monitor", hello, "echo-" + cancellation, 3);
        endCall(alice, bob, "end");
        EXPECT_EQ(bob.quit(), 0);
        if (!heard) {
            return std::nullopt;
        }
        const auto [from, to] = heard->speech;
        return Echo{levelDb(heard->heard[0], from, to + 1.0),
                    levelDb(heard->heard[0], from + (to - from) / 3, to + 1.0)};
    };
    const auto off = echoLevel("off");
    const auto on = echoLevel("on");
    ASSERT_TRUE(off && on);
    std::printf(
        "echo: %.1f dBFS without cancellation, %.1f dBFS with from the second sentence "
        "(attenuated by %.1f dB; over the whole speech by %.1f dB)\n",
        off->adapted, on->adapted, off->adapted - on->adapted, off->whole - on->whole);
    EXPECT_GT(off->adapted, -45) << "the echo path carries alice's voice back";
    EXPECT_GE(off->adapted - on->adapted, kEchoAttenuationDb);
}

TEST_F(CallMediaEndsTest, WindowShowsTheOtherSidesPictureAndClosesWithTheCall) {
    std::string error;
    ASSERT_TRUE(stack().startDisplay(error)) << error;
    auto& alice = phone("alice");
    auto& bob = phone("bob", {"--window"});
    ASSERT_FALSE(establishCall(alice, bob).empty());
    auto shown = [](const std::string& what) {
        return [what](const std::string& line) { return line.find(what) != std::string::npos; };
    };
    ASSERT_GE(bob.process().waitForLine(shown("window=open"), kStep), 0);
    EXPECT_TRUE(framesGrowBeyond(bob, remoteFrames(bob) + 30));

    auto screen = stack().display().screenshot(error);
    ASSERT_FALSE(screen.empty()) << error;
    // The window sits at the top-left corner of the bare screen, the remote
    // picture at its size (640x480).
    auto tag = RTCGstReadFrameTag(screen.data(), 640, 480, XServerProcess::kWidth);
    ASSERT_TRUE(tag.has_value()) << "no tagged picture on the screen";
    EXPECT_EQ(tag->label, "alice - front");

    endCall(alice, bob, "end");
    EXPECT_GE(bob.process().waitForLine(shown("window=closed"), kStep), 0);
    EXPECT_EQ(bob.quit(), 0);
}
