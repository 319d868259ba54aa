// Where the programs the demo and the end-to-end tests start live: QXVC_PHONE
// or VELMORIN_CHAT_SERVER when set; else beside the running program (an
// installed qxvc-demo finds the installed phone and server); else the build's
// own binaries.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

inline std::string toolPath(const char* variable, const char* name, const char* built) {
    if (const char* value = std::getenv(variable); value && *value) {
        return value;
    }
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        const auto sibling = self.parent_path() / name;
        if (access(sibling.c_str(), X_OK) == 0) {
            return sibling.string();
        }
    }
    return built;
}

inline std::string phoneBinary() {
    return toolPath("QXVC_PHONE", "qxvc-phone", QXVC_PHONE_BINARY);
}

inline std::string chatServerBinary() {
    return toolPath("VELMORIN_CHAT_SERVER", "velmorin-chat-server", VELMORIN_CHAT_SERVER_BINARY);
}
