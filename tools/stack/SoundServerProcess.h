// A private PulseAudio daemon on a socket of its own, for the demo and the
// end-to-end tests: no sound hardware and no system daemon is touched. Every
// user gets three devices (48 kHz mono):
//   <user>_speaker  a null sink: the phone's speaker (--speaker);
//   <user>_room     a null sink: what the user's microphone hears, fed with
//                   speech (play()); a phone whose speaker is the room
//                   (--speaker <user>_room) hears itself, an acoustic echo;
//   <user>_mic      the room's monitor as a source: the phone's microphone.
// Recordings of any sources run in one GStreamer process, so their timelines
// line up (each file starts at the recording's start).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"

class SoundServerProcess {
  public:
    /// `workDir` receives the daemon's log; the socket lives in a short
    /// folder of its own under /tmp.
    SoundServerProcess(std::string workDir, std::vector<std::string> users);
    ~SoundServerProcess();
    SoundServerProcess(const SoundServerProcess&) = delete;
    SoundServerProcess& operator=(const SoundServerProcess&) = delete;

    /// Starts the daemon and waits until it answers.
    bool start(std::string& error);
    void stop();
    bool running() const { return process_ != nullptr; }

    /// What a client of this daemon needs in its environment.
    std::vector<std::string> clientEnvironment() const;
    /// The phone flags that make `user` use its devices.
    std::vector<std::string> phoneArgs(const std::string& user) const;

    /// Plays a sound file into `user`'s room and waits until it has played.
    bool play(const std::string& user, const std::string& file, std::string& error);
    /// Records `sources` (names of this daemon's sources, e.g. "alice_mic" or
    /// "bob_speaker.monitor") into `files` (16-bit 48 kHz mono WAV) until the
    /// returned recording is stopped or destroyed.
    class Recording {
      public:
        ~Recording();
        /// Ends the recording and completes its files.
        bool stop();

      private:
        friend class SoundServerProcess;
        std::unique_ptr<ChildProcess> process_;
    };
    std::unique_ptr<Recording> record(const std::vector<std::string>& sources,
                                      const std::vector<std::string>& files, std::string& error);

    /// Runs a pactl command against this daemon; its output, or nullopt.
    bool pactl(const std::vector<std::string>& args, std::string* output, std::string& error);

  private:
    std::string workDir_;
    std::vector<std::string> users_;
    std::string socketDir_;
    std::unique_ptr<ChildProcess> process_;
};
