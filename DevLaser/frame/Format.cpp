#include "frame/Format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace devlaser {
namespace {

// Format texts come from locale files that operators edit: a width or precision beyond this is cut to it, so that
// "%99999999999f" neither overflows the parser nor asks for gigabytes.
constexpr int kMaxWidth = 1024;
// Fixed notation of the largest double has 309 digits before the point; the rest is room for sign and exponent.
constexpr size_t kNumberBufferSize = 320 + kMaxWidth;

struct TConversion {
  bool Left = false, Zero = false, Plus = false, Blank = false;
  int Width = 0;
  int Precision = -1;
  char Conv = 0;
};

int64_t AsInt(const TFormatArg& a) {
  if (auto* v = std::get_if<int64_t>(&a)) return *v;
  if (auto* v = std::get_if<uint64_t>(&a)) return static_cast<int64_t>(*v);
  if (auto* v = std::get_if<double>(&a)) {
    // Out-of-range doubles are clamped: casting them would be undefined behaviour.
    if (std::isnan(*v)) return 0;
    if (*v >= 0x1p63) return std::numeric_limits<int64_t>::max();
    if (*v < -0x1p63) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(*v);
  }
  auto s = std::get<std::string_view>(a);
  int64_t r = 0;
  std::from_chars(s.data(), s.data() + s.size(), r);
  return r;
}

double AsDouble(const TFormatArg& a) {
  if (auto* v = std::get_if<int64_t>(&a)) return static_cast<double>(*v);
  if (auto* v = std::get_if<uint64_t>(&a)) return static_cast<double>(*v);
  if (auto* v = std::get_if<double>(&a)) return *v;
  auto s = std::get<std::string_view>(a);
  double r = 0;
  std::from_chars(s.data(), s.data() + s.size(), r);
  return r;
}

std::string AsText(const TFormatArg& a) {
  if (auto* s = std::get_if<std::string_view>(&a)) return std::string(*s);
  if (auto* v = std::get_if<double>(&a)) return FormatV("%g", {*v});
  if (auto* v = std::get_if<uint64_t>(&a)) return std::to_string(*v);
  return std::to_string(std::get<int64_t>(a));
}

// Appends decimal digits to `value`, stopping at kMaxWidth.
void AddDigit(int& value, char digit) { value = std::min(kMaxWidth, value * 10 + (digit - '0')); }

std::string FormatNumber(const TConversion& conv, const TFormatArg& arg) {
  char buf[kNumberBufferSize];
  char* end = buf;
  bool negative = false;
  std::string digits;
  switch (conv.Conv) {
    case 'd':
    case 'i': {
      int64_t v = AsInt(arg);
      negative = v < 0;
      uint64_t mag = negative ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
      end = std::to_chars(buf, buf + sizeof buf, mag).ptr;
      break;
    }
    case 'u':
      end = std::to_chars(buf, buf + sizeof buf, static_cast<uint64_t>(AsInt(arg))).ptr;
      break;
    case 'x':
    case 'X': {
      uint64_t v = std::holds_alternative<int64_t>(arg) && std::get<int64_t>(arg) < 0
                       ? static_cast<uint32_t>(std::get<int64_t>(arg))
                       : static_cast<uint64_t>(AsInt(arg));
      end = std::to_chars(buf, buf + sizeof buf, v, 16).ptr;
      if (conv.Conv == 'X')
        for (char* p = buf; p < end; ++p) *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
      break;
    }
    default: {  // f, e, g
      double v = AsDouble(arg);
      if (std::isnan(v)) {
        digits = "NAN";
        break;
      }
      negative = std::signbit(v);
      v = std::fabs(v);
      if (std::isinf(v)) {
        digits = "INF";
        break;
      }
      int precision = conv.Precision < 0 ? 6 : conv.Precision;
      std::chars_format f = conv.Conv == 'f'   ? std::chars_format::fixed
                            : conv.Conv == 'e' ? std::chars_format::scientific
                                               : std::chars_format::general;
      auto res = std::to_chars(buf, buf + sizeof buf, v, f, conv.Conv == 'g' && precision == 0 ? 1 : precision);
      end = res.ptr;
      if (res.ec != std::errc()) end = buf;
      if (conv.Conv == 'g') {  // %g drops trailing zeros like printf
        std::string s(buf, end);
        auto epos = s.find('e');
        std::string mant = s.substr(0, epos), exp = epos == std::string::npos ? "" : s.substr(epos);
        if (mant.find('.') != std::string::npos) {
          while (!mant.empty() && mant.back() == '0') mant.pop_back();
          if (!mant.empty() && mant.back() == '.') mant.pop_back();
        }
        digits = mant + exp;
      }
      break;
    }
  }
  if (digits.empty()) digits.assign(buf, end);
  if (conv.Precision >= 0 && (conv.Conv == 'd' || conv.Conv == 'i' || conv.Conv == 'u') &&
      static_cast<int>(digits.size()) < conv.Precision)
    digits.insert(0, static_cast<size_t>(conv.Precision) - digits.size(), '0');
  std::string sign = negative ? "-" : conv.Plus ? "+" : conv.Blank ? " " : "";
  int pad = conv.Width - static_cast<int>(sign.size() + digits.size());
  if (pad <= 0) return sign + digits;
  if (conv.Left) return sign + digits + std::string(static_cast<size_t>(pad), ' ');
  if (conv.Zero) return sign + std::string(static_cast<size_t>(pad), '0') + digits;
  return std::string(static_cast<size_t>(pad), ' ') + sign + digits;
}

}  // namespace

std::string FormatV(std::string_view fmt, std::initializer_list<TFormatArg> args) {
  std::string out;
  out.reserve(fmt.size() + 16);
  auto next = args.begin();
  for (size_t i = 0; i < fmt.size(); ++i) {
    char c = fmt[i];
    if (c != '%') {
      out += c;
      continue;
    }
    size_t start = i++;
    if (i < fmt.size() && fmt[i] == '%') {
      out += '%';
      continue;
    }
    TConversion conv;
    for (; i < fmt.size(); ++i) {
      char f = fmt[i];
      if (f == '-')
        conv.Left = true;
      else if (f == '0')
        conv.Zero = true;
      else if (f == '+')
        conv.Plus = true;
      else if (f == ' ')
        conv.Blank = true;
      else
        break;
    }
    while (i < fmt.size() && std::isdigit(static_cast<unsigned char>(fmt[i]))) AddDigit(conv.Width, fmt[i++]);
    if (i < fmt.size() && fmt[i] == '.') {
      conv.Precision = 0;
      ++i;
      while (i < fmt.size() && std::isdigit(static_cast<unsigned char>(fmt[i]))) AddDigit(conv.Precision, fmt[i++]);
    }
    while (i < fmt.size() && (fmt[i] == 'l' || fmt[i] == 'h' || fmt[i] == 'z')) ++i;
    if (i >= fmt.size() || next == args.end()) {
      out.append(fmt.substr(start, i < fmt.size() ? i - start + 1 : std::string_view::npos));
      continue;
    }
    conv.Conv = fmt[i];
    const TFormatArg& arg = *next++;
    switch (conv.Conv) {
      case 'd':
      case 'i':
      case 'u':
      case 'x':
      case 'X':
      case 'f':
      case 'e':
      case 'g':
        out += FormatNumber(conv, arg);
        break;
      case 's': {
        std::string s = AsText(arg);
        if (conv.Precision >= 0 && static_cast<int>(s.size()) > conv.Precision)
          s.resize(static_cast<size_t>(conv.Precision));
        int pad = conv.Width - static_cast<int>(s.size());
        if (pad > 0)
          s = conv.Left ? s + std::string(static_cast<size_t>(pad), ' ')
                        : std::string(static_cast<size_t>(pad), ' ') + s;
        out += s;
        break;
      }
      case 'c': {
        const int64_t code = AsInt(arg);
        out += code >= 0 && code <= 255 ? static_cast<char>(static_cast<unsigned char>(code)) : '?';
        break;
      }
      default:  // unknown conversion: keep the text, give the argument back
        out.append(fmt.substr(start, i - start + 1));
        --next;
        break;
    }
  }
  return out;
}

}  // namespace devlaser
