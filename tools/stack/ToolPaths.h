// Where the programs the demo and the end-to-end tests start live: the build's
// own binaries, unless QXVC_PHONE or VELMORIN_CHAT_SERVER name others.
#pragma once

#include <cstdlib>
#include <string>

inline std::string toolPathFromEnvironment(const char* variable, const char* built) {
    const char* value = std::getenv(variable);
    return value && *value ? value : built;
}

inline std::string phoneBinary() {
    return toolPathFromEnvironment("QXVC_PHONE", QXVC_PHONE_BINARY);
}

inline std::string chatServerBinary() {
    return toolPathFromEnvironment("VELMORIN_CHAT_SERVER", VELMORIN_CHAT_SERVER_BINARY);
}
