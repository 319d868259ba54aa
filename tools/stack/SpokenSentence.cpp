#include "SpokenSentence.h"

#include <chrono>
#include <thread>

bool makeSentence(const std::string& path, const std::string& text, std::string& error) {
    ChildProcess::Setup setup;
    setup.argv = {"espeak-ng", "-w", path, text};
    auto child = ChildProcess::start(std::move(setup), error);
    if (!child) {
        return false;
    }
    if (child->waitExit(30) != 0) {
        error = "espeak-ng could not write " + path;
        return false;
    }
    return true;
}

std::optional<SpokenSentence> speakAndRecord(SoundServerProcess& sound, const std::string& speaker,
                                             const std::vector<std::string>& listeners,
                                             const std::string& file, const std::string& basePath,
                                             int times, std::string& error) {
    std::vector<std::string> sources = {speaker + "_mic"};
    std::vector<std::string> files = {basePath + "-said.wav"};
    for (size_t i = 0; i < listeners.size(); ++i) {
        sources.push_back(listeners[i]);
        files.push_back(basePath + "-heard-" + std::to_string(i + 1) + ".wav");
    }
    auto recording = sound.record(sources, files, error);
    if (!recording) {
        return std::nullopt;
    }
    // The recorder starts in the background; its files all begin at its start.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    for (int i = 0; i < times; ++i) {
        if (!sound.play(speaker, file, error)) {
            return std::nullopt;
        }
    }
    // What is still on its way arrives.
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    if (!recording->stop()) {
        error = "the recording did not end cleanly";
        return std::nullopt;
    }
    SpokenSentence sentence;
    for (size_t i = 0; i < files.size(); ++i) {
        auto signal = readAudioFile(files[i], error);
        if (!signal) {
            return std::nullopt;
        }
        (i == 0 ? sentence.said : sentence.heard.emplace_back()) = std::move(*signal);
    }
    auto span = speechSpan(sentence.said);
    if (!span) {
        error = speaker + "'s microphone heard no speech";
        return std::nullopt;
    }
    sentence.speech = *span;
    return sentence;
}
