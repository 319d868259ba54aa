#include "VelmorinVideoChat/Category/NSDictionary+VelmorinVideoChat.h"

#include <cmath>
#include <exception>
#include <vector>

namespace {

/// False when some value inside has no JSON text: a NaN or infinite number, or
/// binary data. Walks with an explicit stack, so any depth is fine.
bool representable(const nlohmann::json& root) {
    std::vector<const nlohmann::json*> pending{&root};
    while (!pending.empty()) {
        const nlohmann::json* value = pending.back();
        pending.pop_back();
        if (value->is_binary()) {
            return false;
        }
        if (value->is_number_float() && !std::isfinite(value->get<double>())) {
            return false;
        }
        if (value->is_structured()) {
            for (const auto& child : *value) {
                pending.push_back(&child);
            }
        }
    }
    return true;
}

}  // namespace

std::string qxvc_toString(const nlohmann::json& dictionary) {
    if (!dictionary.is_object() || !representable(dictionary)) {
        return "{}";
    }
    try {
        return dictionary.dump(-1, ' ', false, nlohmann::json::error_handler_t::strict);
    } catch (const std::exception&) {
        return "{}";  // invalid UTF-8 inside a string
    }
}
