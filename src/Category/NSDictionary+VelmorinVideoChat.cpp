#include "VelmorinVideoChat/Category/NSDictionary+VelmorinVideoChat.h"

#include <exception>

std::string qxvc_toString(const nlohmann::json& dictionary) {
    if (!dictionary.is_object()) {
        return "{}";
    }
    try {
        return dictionary.dump(-1, ' ', false, nlohmann::json::error_handler_t::strict);
    } catch (const std::exception&) {
        return "{}";  // invalid UTF-8 inside a string
    }
}
