#include "DemoReport.h"

#include <algorithm>
#include <cstdio>

std::optional<long> wallMs(const PhoneLine& line) {
    int h = 0, m = 0, s = 0, ms = 0;
    if (std::sscanf(line.wall.c_str(), "%d:%d:%d.%dZ", &h, &m, &s, &ms) != 4) {
        return std::nullopt;
    }
    return ((h * 60L + m) * 60L + s) * 1000L + ms;
}

namespace {

/// The first line of `side` with this kind and name (for CMD lines: whose text
/// contains `name`).
std::optional<PhoneLine> first(const DemoSide& side, const std::string& kind,
                               const std::string& name) {
    for (const auto& line : side.lines) {
        if (line.kind != kind) {
            continue;
        }
        if (kind == "EVENT" ? line.name == name : line.text.find(" " + name) != std::string::npos) {
            return line;
        }
    }
    return std::nullopt;
}

void figure(const char* label, const std::optional<PhoneLine>& from,
            const std::optional<PhoneLine>& to) {
    auto a = from ? wallMs(*from) : std::nullopt;
    auto b = to ? wallMs(*to) : std::nullopt;
    if (a && b) {
        std::printf("  %-44s %6ld ms\n", label, *b - *a);
    } else {
        std::printf("  %-44s    n/a (the event was not seen)\n", label);
    }
}

}  // namespace

namespace {

void printSound(const DemoSide& caller, const DemoSide& callee, const DemoSound& sound) {
    std::printf("\n== Sound and pictures (through the private sound server) ==\n");
    for (const auto& speech : sound.speech) {
        if (speech.match) {
            std::printf("  %s -> %s: mouth to ear %4.0f ms, match of the speech %.2f\n",
                        speech.from.c_str(), speech.to.c_str(), speech.match->lagMs,
                        speech.match->correlation);
        } else {
            std::printf("  %s -> %s: n/a (the speech was not measured)\n", speech.from.c_str(),
                        speech.to.c_str());
        }
    }
    if (sound.echoAtMicrophoneDb && sound.echoReturnedDb) {
        std::printf(
            "  echo: %.1f dBFS of alice at bob's microphone, %.1f dBFS back at alice: "
            "attenuated by %.1f dB\n",
            *sound.echoAtMicrophoneDb, *sound.echoReturnedDb,
            *sound.echoAtMicrophoneDb - *sound.echoReturnedDb);
    } else {
        std::printf("  echo: n/a (not measured)\n");
    }
    for (const auto* side : {&caller, &callee}) {
        const auto* other = side == &caller ? &callee : &caller;
        const std::string delay =
            side->finalStats ? side->finalStats->field("videoDelayMs") : std::string();
        std::printf("  glass to glass %s -> %s: %s\n", other->user.c_str(), side->user.c_str(),
                    delay.empty() || delay == "-"
                        ? "n/a (no tagged pictures)"
                        : (delay + " ms (clock drawn in the frames)").c_str());
    }
    for (const auto& file : sound.recordings) {
        std::printf("  received audio: %s\n", file.c_str());
    }
    for (const auto* side : {&caller, &callee}) {
        for (const auto& shot : side->snapshots) {
            std::printf("  %s sees %s's %s camera: %s\n", side->user.c_str(),
                        shot.field("remoteUser").c_str(), shot.field("remoteCamera").c_str(),
                        shot.field("file").c_str());
        }
    }
}

}  // namespace

void printDemoReport(const DemoSide& caller, const DemoSide& callee, const DemoSound& sound,
                     const SignallingAudit& audit) {
    std::printf("\n== Timeline (UTC, both phones) ==\n");
    struct Row {
        long ms;
        std::string text;
    };
    std::vector<Row> rows;
    for (const auto* side : {&caller, &callee}) {
        for (const auto& line : side->lines) {
            if (line.kind != "EVENT" && line.kind != "CMD") {
                continue;
            }
            auto ms = wallMs(line);
            if (!ms) {
                continue;
            }
            std::string what = line.name;
            if (line.kind == "CMD") {
                const auto at = line.text.find(' ', line.text.find("line="));
                what = "> " + (at == std::string::npos ? line.text : line.text.substr(at + 1));
            }
            std::string extra;
            for (const char* key :
                 {"call", "state", "error", "endType", "audio", "video", "width", "height"}) {
                if (line.fields.count(key) && line.field(key) != "-") {
                    extra += std::string(" ") + key + "=" + line.field(key);
                }
            }
            char text[512];
            std::snprintf(text, sizeof text, "%s  %-6s %-28s%s", line.wall.c_str(),
                          side->user.c_str(), what.c_str(), extra.c_str());
            rows.push_back({*ms, text});
        }
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Row& a, const Row& b) { return a.ms < b.ms; });
    for (const auto& row : rows) {
        std::printf("  %s\n", row.text.c_str());
    }

    std::printf("\n== Figures (from the phones' callbacks) ==\n");
    const auto call = first(caller, "CMD", "call");
    const auto accept = first(callee, "CMD", "accept");
    figure("start -> ringing at the callee", call, first(callee, "EVENT", "didReceiveStartCall"));
    figure("start -> accept heard by the caller", call,
           first(caller, "EVENT", "didReceiveAcceptCall"));
    figure("accept -> open, caller", accept, first(caller, "EVENT", "didOpenCall"));
    figure("accept -> open, callee", accept, first(callee, "EVENT", "didOpenCall"));
    figure("accept -> first remote frame, caller", accept,
           first(caller, "EVENT", "firstRemoteFrame"));
    figure("accept -> first remote frame, callee", accept,
           first(callee, "EVENT", "firstRemoteFrame"));
    for (const auto* side : {&caller, &callee}) {
        const auto* other = side == &caller ? &callee : &caller;
        if (side->finalStats) {
            std::printf("  frames %s -> %s: %ld (%ldx%ld), %s previewed %ld local frames\n",
                        other->user.c_str(), side->user.c_str(), side->finalStats->number("frames"),
                        side->finalStats->number("width"), side->finalStats->number("height"),
                        side->user.c_str(), side->finalStats->number("localFrames"));
        } else {
            std::printf("  frames %s -> %s: n/a (no stats)\n", other->user.c_str(),
                        side->user.c_str());
        }
    }
    for (const auto* side : {&caller, &callee}) {
        const auto* other = side == &caller ? &callee : &caller;
        const auto& a = side->firstStats;
        const auto& b = side->steadyStats;
        const double seconds =
            a && b ? static_cast<double>(b->number("countersUs") - a->number("countersUs")) / 1e6
                   : 0;
        if (seconds <= 0) {
            std::printf("  bitrate %s -> %s: n/a (no engine counters)\n", other->user.c_str(),
                        side->user.c_str());
            continue;
        }
        auto rate = [&](const char* key) {
            return static_cast<double>(b->number(key) - a->number(key)) * 8 / seconds / 1000;
        };
        std::printf(
            "  bitrate %s -> %s, %.1f s of steady media: video %.0f kbit/s, audio %.0f kbit/s\n",
            other->user.c_str(), side->user.c_str(), seconds, rate("videoBytesReceived"),
            rate("audioBytesReceived"));
    }

    printSound(caller, callee, sound);

    std::printf("\n== Signalling (chat server database) ==\n");
    if (!audit.error.empty()) {
        std::printf("  %s\n", audit.error.c_str());
        return;
    }
    std::printf("  %d messages, %zu bytes in all\n", audit.all.messages, audit.all.bytes);
    for (const auto& [id, totals] : audit.byCall) {
        std::printf("  call %-40s %3d messages %7zu bytes\n", id.c_str(), totals.messages,
                    totals.bytes);
    }
    for (const auto& [sender, totals] : audit.bySender) {
        std::printf("  from %-40s %3d messages %7zu bytes\n", sender.c_str(), totals.messages,
                    totals.bytes);
    }
    for (const auto& [command, count] : audit.byCommand) {
        std::printf("  %-45s %3d\n", command.c_str(), count);
    }
    std::printf("  relay candidates seen: %d; host or server-reflexive ones: %zu\n",
                audit.relayCandidates, audit.leaks.size());
    for (const auto& leak : audit.leaks) {
        std::printf("    LEAK %s\n", leak.c_str());
    }
}
