#include "VelmorinVideoChat/Utils/QXVCFormat.h"

#include <cinttypes>
#include <cstdio>

namespace qxvc {

namespace {

// The conversion pattern is assembled from a validated format piece and the
// argument's own type, so a non-literal format is safe here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::string printf1(const std::string& pattern, auto value) {
    char small[128];
    const int n = std::snprintf(small, sizeof small, pattern.c_str(), value);
    if (n < 0) {
        return {};
    }
    if (static_cast<size_t>(n) < sizeof small) {
        return std::string(small, static_cast<size_t>(n));
    }
    std::string big(static_cast<size_t>(n) + 1, '\0');
    std::snprintf(big.data(), big.size(), pattern.c_str(), value);
    big.resize(static_cast<size_t>(n));
    return big;
}
#pragma GCC diagnostic pop

// The argument's value as text, for conversions that take text (%@, %s).
std::string asText(const FormatArg& arg) {
    if (arg.isNull) {
        return "(null)";
    }
    return std::visit(
        [](const auto& v) -> std::string {
            using V = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<V, std::monostate>) {
                return "(null)";
            } else if constexpr (std::is_same_v<V, std::string>) {
                return v;
            } else if constexpr (std::is_same_v<V, FormatArg::Pointer>) {
                return printf1("%p", v.address);
            } else if constexpr (std::is_same_v<V, double>) {
                return printf1("%g", v);
            } else {
                return std::to_string(v);
            }
        },
        arg.value);
}

int64_t asSigned(const FormatArg& arg) {
    if (const auto* i = std::get_if<int64_t>(&arg.value)) {
        return *i;
    }
    if (const auto* u = std::get_if<uint64_t>(&arg.value)) {
        return static_cast<int64_t>(*u);
    }
    if (const auto* d = std::get_if<double>(&arg.value)) {
        return static_cast<int64_t>(*d);
    }
    if (const auto* p = std::get_if<FormatArg::Pointer>(&arg.value)) {
        return static_cast<int64_t>(reinterpret_cast<uintptr_t>(p->address));
    }
    return 0;
}

double asDouble(const FormatArg& arg) {
    if (const auto* d = std::get_if<double>(&arg.value)) {
        return *d;
    }
    if (const auto* u = std::get_if<uint64_t>(&arg.value)) {
        return static_cast<double>(*u);
    }
    return static_cast<double>(asSigned(arg));
}

bool isNumeric(const FormatArg& arg) {
    return std::holds_alternative<int64_t>(arg.value) ||
           std::holds_alternative<uint64_t>(arg.value) || std::holds_alternative<double>(arg.value);
}

}  // namespace

std::string formatArgs(std::string_view format, const std::vector<FormatArg>& args) {
    std::string out;
    out.reserve(format.size() + 16 * args.size());
    size_t next = 0;
    size_t i = 0;
    while (i < format.size()) {
        const char c = format[i];
        if (c != '%') {
            out.push_back(c);
            ++i;
            continue;
        }
        // Collect flags, width, precision and length modifiers.
        size_t j = i + 1;
        std::string flags;
        while (j < format.size() &&
               std::string_view("-+ #0'").find(format[j]) != std::string_view::npos) {
            if (format[j] != '\'') {
                flags.push_back(format[j]);
            }
            ++j;
        }
        std::string widthPrecision;
        while (j < format.size() && ((format[j] >= '0' && format[j] <= '9') || format[j] == '.')) {
            widthPrecision.push_back(format[j++]);
        }
        while (j < format.size() &&
               std::string_view("hlqLzjt").find(format[j]) != std::string_view::npos) {
            ++j;  // lengths are implied by the argument's own type
        }
        if (j >= format.size()) {
            out.append(format.substr(i));  // a dangling '%': keep it as text
            break;
        }
        const char conv = format[j];
        i = j + 1;
        if (conv == '%') {
            out.push_back('%');
            continue;
        }
        const FormatArg* arg = next < args.size() ? &args[next] : nullptr;
        ++next;
        if (arg == nullptr) {
            continue;
        }
        const std::string head = "%" + flags + widthPrecision;
        switch (conv) {
            case '@':
            case 's':
                out += printf1(head + "s", asText(*arg).c_str());
                break;
            case 'd':
            case 'i':
                out += isNumeric(*arg) ? printf1(head + PRId64, asSigned(*arg)) : asText(*arg);
                break;
            case 'u':
            case 'x':
            case 'X':
            case 'o': {
                const std::string pattern = head + (conv == 'u'   ? PRIu64
                                                    : conv == 'x' ? PRIx64
                                                    : conv == 'X' ? PRIX64
                                                                  : PRIo64);
                out += isNumeric(*arg) ? printf1(pattern, static_cast<uint64_t>(asSigned(*arg)))
                                       : asText(*arg);
                break;
            }
            case 'f':
            case 'F':
            case 'e':
            case 'E':
            case 'g':
            case 'G':
            case 'a':
            case 'A':
                out += isNumeric(*arg) ? printf1(head + conv, asDouble(*arg)) : asText(*arg);
                break;
            case 'c':
                out.push_back(static_cast<char>(asSigned(*arg)));
                break;
            case 'p':
                if (const auto* p = std::get_if<FormatArg::Pointer>(&arg->value)) {
                    out += printf1("%p", p->address);
                } else {
                    out += asText(*arg);
                }
                break;
            default:
                out.push_back(conv);  // unknown conversion: keep the letter
                break;
        }
    }
    return out;
}

}  // namespace qxvc
