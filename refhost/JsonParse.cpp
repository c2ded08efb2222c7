#include "refhost/JsonParse.h"

#include <cctype>
#include <cmath>

namespace refhost {
namespace {

// Where byte `offset` of `text` is, as a person counts: "line 3, column 17" (both from 1).
std::string PositionText(const std::string& text, size_t offset) {
  offset = std::min(offset, text.size());
  size_t line = 1, lineStart = 0;
  for (size_t i = 0; i < offset; ++i)
    if (text[i] == '\n') {
      ++line;
      lineStart = i + 1;
    }
  return "line " + std::to_string(line) + ", column " + std::to_string(offset - lineStart + 1);
}

// A piece of the input for a message: short, and with control bytes shown as escapes.
std::string Excerpt(const std::string& token) {
  constexpr size_t kMaxShown = 40;
  std::string shown;
  for (size_t i = 0; i < token.size() && i < kMaxShown; ++i) {
    const auto c = static_cast<unsigned char>(token[i]);
    if (c < 0x20 || c == 0x7f) {
      static constexpr char kHex[] = "0123456789abcdef";
      shown += std::string("\\x") + kHex[c >> 4] + kHex[c & 15];
    } else {
      shown += static_cast<char>(c);
    }
  }
  if (token.size() > kMaxShown) shown += "...";
  return shown;
}

// The offset at which arrays and objects first nest deeper than kMaxJsonDepth, or npos. Brackets inside strings
// and comments do not count.
size_t FindTooDeep(const std::string& text, bool allowComments) {
  int depth = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') {
      for (++i; i < text.size() && text[i] != '"'; ++i)
        if (text[i] == '\\') ++i;
    } else if (allowComments && c == '/' && i + 1 < text.size() && text[i + 1] == '/') {
      i = text.find('\n', i);
      if (i == std::string::npos) return std::string::npos;
    } else if (allowComments && c == '/' && i + 1 < text.size() && text[i + 1] == '*') {
      i = text.find("*/", i + 2);
      if (i == std::string::npos) return std::string::npos;
      ++i;
    } else if (c == '[' || c == '{') {
      if (++depth > kMaxJsonDepth) return i;
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return std::string::npos;
}

// Builds the document as the library's own builder does, but keeps a syntax error as data (what and where)
// instead of an exception whose text is the library's.
class TDocumentBuilder {
 public:
  using TNumberInteger = TJson::number_integer_t;
  using TNumberUnsigned = TJson::number_unsigned_t;
  using TNumberFloat = TJson::number_float_t;
  using TString = TJson::string_t;
  using TBinary = TJson::binary_t;

  explicit TDocumentBuilder(TJson& document) : FBuilder(document, /*allow_exceptions=*/false) {}

  bool null() { return FBuilder.null(); }
  bool boolean(bool v) { return FBuilder.boolean(v); }
  bool number_integer(TNumberInteger v) { return FBuilder.number_integer(v); }
  bool number_unsigned(TNumberUnsigned v) { return FBuilder.number_unsigned(v); }
  bool number_float(TNumberFloat v, const TString& s) { return FBuilder.number_float(v, s); }
  bool string(TString& v) { return FBuilder.string(v); }
  bool binary(TBinary& v) { return FBuilder.binary(v); }
  bool start_object(size_t n) { return FBuilder.start_object(n); }
  bool key(TString& v) { return FBuilder.key(v); }
  bool end_object() { return FBuilder.end_object(); }
  bool start_array(size_t n) { return FBuilder.start_array(n); }
  bool end_array() { return FBuilder.end_array(); }

  bool parse_error(size_t position, const std::string& lastToken, const nlohmann::detail::exception& e) {
    Failed = true;
    TooLarge = e.id == 406;
    EndOfRead = position;
    Reason = e.what();
    FBuilder.parse_error(position, lastToken, e);
    return false;
  }

  bool Failed = false;
  bool TooLarge = false;  // a number beyond the range of a double
  size_t EndOfRead = 0;   // bytes read when the parser stopped: the last one is where it went wrong
  std::string Reason;     // the library's text, only to tell the kind of mistake

 private:
  nlohmann::detail::json_sax_dom_parser<TJson> FBuilder;
};

bool IsWordByte(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '+' || c == '-'; }

// The token the parser stopped in, given the byte it stopped at: a whole word or number around it, the word just
// before it, or a text from its opening quote. Returns [start, end).
std::pair<size_t, size_t> TokenAround(const std::string& text, size_t last) {
  if (text[last] == '"') {
    for (size_t i = last; i-- > 0;)
      if (text[i] == '"' && (i == 0 || text[i - 1] != '\\')) return {i, last + 1};
    return {last, last + 1};
  }
  size_t start = last, end = last + 1;
  if (!IsWordByte(text[last])) {
    if (last == 0 || !IsWordByte(text[last - 1])) return {last, last + 1};  // a lone structural character
    start = end = last;                                                     // the word that ends just before it
  }
  while (start > 0 && IsWordByte(text[start - 1])) --start;
  while (end < text.size() && IsWordByte(text[end])) ++end;
  return {start, end};
}

struct TParseFailure {
  size_t Offset = 0;
  std::string What;
};

// What went wrong, said for a person editing the file, and the byte to point at.
TParseFailure DescribeFailure(const std::string& text, const TDocumentBuilder& builder) {
  const auto says = [&](const char* phrase) { return builder.Reason.find(phrase) != std::string::npos; };
  if (builder.EndOfRead == 0 || builder.EndOfRead > text.size() || says("unexpected end of input"))
    return {text.size(), "the text ends inside a JSON value"};
  const size_t last = builder.EndOfRead - 1;
  const auto [start, end] = TokenAround(text, last);
  const std::string token = Excerpt(text.substr(start, end - start));
  if (builder.TooLarge) return {start, "the number " + token + " is out of range"};
  // Mistakes inside a text are pointed at where they are, not where the text starts.
  if (says("missing closing quote")) return {last, "a text has no closing quote"};
  if (says("control character")) return {last, "a control character in a text must be written as an escape"};
  if (says("UTF-8")) return {last, "a text is not valid UTF-8"};
  if (says("\\u") || says("surrogate") || says("backslash")) return {last, "a text holds an invalid escape"};
  if (says("invalid comment")) return {last, "a comment is not closed or not allowed here"};
  if (says("expected end of input")) return {start, "more follows the end of the JSON value: '" + token + "'"};
  const bool numeric = std::isdigit(static_cast<unsigned char>(text[start])) || text[start] == '-';
  if (says("invalid number") || (numeric && says("invalid literal"))) return {start, "'" + token + "' is not a number"};
  if (says("invalid literal")) return {start, "'" + token + "' is not a JSON value (texts need quotes)"};
  return {start, "unexpected '" + token + "'"};
}

}  // namespace

bool ParseJsonText(const std::string& text, TJson& document, std::string& error, bool allowComments) {
  if (const size_t tooDeep = FindTooDeep(text, allowComments); tooDeep != std::string::npos) {
    error = PositionText(text, tooDeep) + ": arrays and objects nest deeper than " + std::to_string(kMaxJsonDepth) +
            " levels";
    return false;
  }
  TJson parsed;
  TDocumentBuilder builder(parsed);
  bool ok = false;
  try {
    ok = TJson::sax_parse(text, &builder, nlohmann::detail::input_format_t::json, /*strict=*/true, allowComments);
  } catch (const std::exception&) {
    ok = false;  // the builder has recorded what went wrong; nothing else throws from a parse
  }
  if (!ok) {
    const TParseFailure failure = DescribeFailure(text, builder);
    error = PositionText(text, failure.Offset) + ": " + failure.What;
    return false;
  }
  document = std::move(parsed);
  return true;
}

std::string DumpJson(const TJson& value, int indent) {
  return value.dump(indent, ' ', false, TJson::error_handler_t::replace);
}

bool JsonIsWholeNumber(const TJson& value) {
  if (value.is_number_integer()) return true;
  if (!value.is_number_float()) return false;
  const double v = value.get<double>();
  return std::isfinite(v) && std::trunc(v) == v;
}

std::string JsonKindName(const TJson& value) {
  if (JsonIsWholeNumber(value)) return "a whole number";
  if (value.is_number_float()) return "a fractional number";
  if (value.is_boolean()) return "a boolean";
  if (value.is_string()) return "a text";
  if (value.is_array()) return "an array";
  if (value.is_object()) return "an object";
  return "null";
}

}  // namespace refhost
