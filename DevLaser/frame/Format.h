// printf-style formatting that ignores the process locale: the decimal separator is always a point, as the
// laser protocols and the log readers expect, whatever locale the host runs in.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

namespace devlaser {

using TFormatArg = std::variant<int64_t, uint64_t, double, std::string_view>;

// Supports %d %i %u %x %X %f %e %g %s %c %% with flags (-, 0, +, blank), width and precision. A placeholder
// without a matching argument is written as it stands; an argument of another kind is converted.
std::string FormatV(std::string_view fmt, std::initializer_list<TFormatArg> args);

namespace detail {
inline TFormatArg ToFormatArg(const std::string& v) { return std::string_view(v); }
inline TFormatArg ToFormatArg(std::string_view v) { return v; }
inline TFormatArg ToFormatArg(const char* v) { return std::string_view(v ? v : ""); }
inline TFormatArg ToFormatArg(double v) { return v; }
inline TFormatArg ToFormatArg(float v) { return static_cast<double>(v); }
inline TFormatArg ToFormatArg(bool v) { return static_cast<int64_t>(v); }
template <class T>
inline TFormatArg ToFormatArg(T v) requires std::is_integral_v<T> {
  if constexpr (std::is_signed_v<T>)
    return static_cast<int64_t>(v);
  else
    return static_cast<uint64_t>(v);
}
}  // namespace detail

template <class... Args>
std::string Format(std::string_view fmt, const Args&... args) {
  return FormatV(fmt, {detail::ToFormatArg(args)...});
}

// "True" / "False", as log lines of the IO extension write booleans.
inline const char* BoolToStr(bool v) { return v ? "True" : "False"; }

}  // namespace devlaser
