#include "PhoneProcess.h"

#include <sstream>

#include "ToolPaths.h"

long PhoneLine::number(const std::string& key) const {
    const std::string value = field(key);
    char* end = nullptr;
    const long parsed = std::strtol(value.c_str(), &end, 10);
    return value.empty() || *end != '\0' ? -1 : parsed;
}

std::optional<PhoneLine> parsePhoneLine(const std::string& text) {
    std::istringstream words(text);
    PhoneLine line;
    line.text = text;
    if (!(words >> line.kind) || line.kind.empty() ||
        line.kind.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") != std::string::npos) {
        return std::nullopt;
    }
    std::string word;
    while (words >> word) {
        const auto equals = word.find('=');
        if (equals == std::string::npos) {
            if (line.kind == "EVENT" && line.name.empty()) {
                line.name = word;
            }
            continue;
        }
        line.fields.emplace(word.substr(0, equals), word.substr(equals + 1));
    }
    line.t = line.number("t");
    line.wall = line.field("wall");
    return line;
}

std::unique_ptr<PhoneProcess> PhoneProcess::launch(Setup setup, std::string& error) {
    ChildProcess::Setup child;
    child.argv = {phoneBinary(), "--server",  setup.server, "--user",     setup.user,
                  "--token",     setup.token, "--channel",  setup.channel};
    if (!setup.snapshotDir.empty()) {
        child.argv.insert(child.argv.end(), {"--snapshot-dir", setup.snapshotDir});
    }
    child.argv.insert(child.argv.end(), setup.extraArgs.begin(), setup.extraArgs.end());
    child.logPath = setup.logPath;
    child.environment = setup.environment;
    child.pipeStdin = true;
    if (setup.onLine) {
        child.onLine = [onLine = setup.onLine](const std::string& text) {
            if (auto line = parsePhoneLine(text)) {
                onLine(*line);
            }
        };
    }
    auto process = ChildProcess::start(std::move(child), error);
    if (!process) {
        return nullptr;
    }
    auto phone = std::make_unique<PhoneProcess>();
    phone->user_ = setup.user;
    phone->process_ = std::move(process);
    return phone;
}

std::unique_ptr<PhoneProcess> PhoneProcess::start(Setup setup, std::string& error,
                                                  double readySeconds) {
    const std::string log = setup.logPath;
    auto phone = launch(std::move(setup), error);
    if (!phone) {
        return nullptr;
    }
    if (!phone->waitKind("READY", readySeconds)) {
        error = "qxvc-phone for " + phone->user_ + " did not log in; see " + log;
        phone->process_->stop();
        return nullptr;
    }
    return phone;
}

bool PhoneProcess::send(const std::string& command) {
    return process_->writeLine(command);
}

std::optional<PhoneLine> PhoneProcess::waitEvent(
    const std::string& name, double seconds, const std::function<bool(const PhoneLine&)>& match) {
    std::optional<PhoneLine> found;
    const long index = process_->waitForLine(
        [&](const std::string& text) {
            auto line = parsePhoneLine(text);
            if (line && line->kind == "EVENT" && line->name == name && (!match || match(*line))) {
                found = std::move(line);
                return true;
            }
            return false;
        },
        seconds, cursors_[name]);
    if (index < 0) {
        return std::nullopt;
    }
    cursors_[name] = static_cast<size_t>(index) + 1;
    return found;
}

std::optional<PhoneLine> PhoneProcess::waitKind(const std::string& kind, double seconds,
                                                size_t from) {
    std::optional<PhoneLine> found;
    const long index = process_->waitForLine(
        [&](const std::string& text) {
            auto line = parsePhoneLine(text);
            if (line && line->kind == kind) {
                found = std::move(line);
                return true;
            }
            return false;
        },
        seconds, from);
    return index < 0 ? std::nullopt : found;
}

std::optional<PhoneLine> PhoneProcess::stats(double seconds) {
    const size_t from = lineCount();
    if (!send("stats")) {
        return std::nullopt;
    }
    return waitKind("STATS", seconds, from);
}

std::vector<PhoneLine> PhoneProcess::parsedLines() const {
    std::vector<PhoneLine> out;
    for (const auto& text : process_->lines()) {
        if (auto line = parsePhoneLine(text)) {
            out.push_back(std::move(*line));
        }
    }
    return out;
}

std::vector<PhoneLine> PhoneProcess::events(const std::string& name) const {
    std::vector<PhoneLine> out;
    for (auto& line : parsedLines()) {
        if (line.kind == "EVENT" && (name.empty() || line.name == name)) {
            out.push_back(std::move(line));
        }
    }
    return out;
}

int PhoneProcess::quit(double seconds) {
    send("quit");
    process_->closeStdin();
    const int status = process_->waitExit(seconds);
    return status >= 0 ? status : process_->stop();
}
