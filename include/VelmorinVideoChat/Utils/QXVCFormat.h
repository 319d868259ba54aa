// printf-style formatting with "%@" for objects, the formatter behind the
// library's logging call.
//
// Supported conversions: %@ (an object's description: anything with a
// `description()` member, a std::string, a C string, a (smart) pointer to a
// describable object; a null pointer prints "(null)"), %d %i %u %x %X %o with
// the length modifiers h hh l ll z j t q, %f %e %g %a (and upper-case forms),
// %s, %c, %p and %%. Flags, width and precision are honoured ('*' is not).
// A conversion whose argument has another type is formatted as well as it can
// be (a number for %@ prints the number; text for %d prints the text); a
// missing argument prints nothing; surplus arguments are ignored. Never throws.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace qxvc {

template <typename T>
concept Describable = requires(const T& t) {
    { t.description() } -> std::convertible_to<std::string>;
};

/// One argument of a format, already reduced to a printable kind.
struct FormatArg {
    struct Pointer {
        const void* address;
    };
    std::variant<std::monostate, int64_t, uint64_t, double, std::string, Pointer> value;
    bool isNull = false;  // a null object pointer, printed "(null)" for %@ and %s
};

template <typename T>
FormatArg makeFormatArg(const T& v) {
    using D = std::decay_t<T>;
    FormatArg a;
    if constexpr (std::is_same_v<D, bool>) {
        a.value = static_cast<int64_t>(v ? 1 : 0);
    } else if constexpr (std::is_enum_v<D>) {
        if constexpr (std::is_signed_v<std::underlying_type_t<D>>) {
            a.value = static_cast<int64_t>(v);
        } else {
            a.value = static_cast<uint64_t>(v);
        }
    } else if constexpr (std::is_integral_v<D> && std::is_signed_v<D>) {
        a.value = static_cast<int64_t>(v);
    } else if constexpr (std::is_integral_v<D>) {
        a.value = static_cast<uint64_t>(v);
    } else if constexpr (std::is_floating_point_v<D>) {
        a.value = static_cast<double>(v);
    } else if constexpr (std::is_same_v<D, std::string> || std::is_same_v<D, std::string_view>) {
        a.value = std::string(v);
    } else if constexpr (std::is_array_v<T>) {  // string literals
        a.value = std::string(v);
    } else if constexpr (std::is_same_v<D, const char*> || std::is_same_v<D, char*>) {
        if (v == nullptr) {
            a.isNull = true;
        } else {
            a.value = std::string(v);
        }
    } else if constexpr (std::is_same_v<D, std::optional<std::string>>) {
        if (v) {
            a.value = *v;
        } else {
            a.isNull = true;
        }
    } else if constexpr (Describable<D>) {
        a.value = std::string(v.description());
    } else if constexpr (requires {
                             v.get();
                             *v;
                         }) {  // smart pointers
        if (!v) {
            a.isNull = true;
        } else {
            if constexpr (Describable<std::decay_t<decltype(*v)>>) {
                a.value = std::string(v->description());
            } else {
                a.value = FormatArg::Pointer{static_cast<const void*>(v.get())};
            }
        }
    } else if constexpr (std::is_pointer_v<D>) {
        if (v == nullptr) {
            a.isNull = true;
        } else if constexpr (Describable<std::remove_cv_t<std::remove_pointer_t<D>>>) {
            a.value = std::string(v->description());
        } else {
            a.value = FormatArg::Pointer{static_cast<const void*>(v)};
        }
    } else if constexpr (std::is_same_v<D, std::nullptr_t>) {
        a.isNull = true;
    } else {
        static_assert(sizeof(D) == 0, "qxvc::format: unsupported argument type");
    }
    return a;
}

std::string formatArgs(std::string_view format, const std::vector<FormatArg>& args);

template <typename... Args>
std::string format(std::string_view fmt, const Args&... args) {
    return formatArgs(fmt, std::vector<FormatArg>{makeFormatArg(args)...});
}

}  // namespace qxvc
