#include "refhost/MessageSink.h"

#include <nlohmann/json.hpp>

#include "host/HostDefs.h"

namespace refhost {

const char* EntryKindName(TEntryKind kind) {
  switch (kind) {
    case TEntryKind::Message:
      return "message";
    case TEntryKind::Log:
      return "log";
    case TEntryKind::Logger:
      return "logger";
  }
  return "log";
}

std::string MsgTypeName(int msgType) {
  switch (msgType) {
    case nchost::msgtype::kInformation:
      return "info";
    case nchost::msgtype::kTrace:
      return "trace";
    case nchost::msgtype::kWarning:
      return "warning";
    case nchost::msgtype::kCommLog:
      return "comm";
    case nchost::msgtype::kError:
      return "error";
    case nchost::msgtype::kLaserLog:
      return "laser log";
    default:
      return "type " + std::to_string(msgType);
  }
}

std::string FormatTextLine(const TMessageEntry& entry) {
  const std::string& category = entry.Kind == TEntryKind::Message ? std::string("Operator") : entry.Category;
  std::string line = "[" + MsgTypeName(entry.Type) + "] ";
  if (!category.empty()) line += category + ": ";
  return line + entry.Text;
}

std::string FormatJsonLine(const TMessageEntry& entry) {
  nlohmann::ordered_json obj;
  obj["kind"] = EntryKindName(entry.Kind);
  obj["type"] = entry.Type;
  obj["category"] = entry.Category;
  obj["text"] = entry.Text;
  if (entry.Color != 0) obj["color"] = entry.Color;
  // Log lines may carry raw bytes from a laser; they must not make the line unwritable.
  return obj.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string FormatLine(const TMessageEntry& entry, TLineFormat format) {
  return format == TLineFormat::JsonLines ? FormatJsonLine(entry) : FormatTextLine(entry);
}

}  // namespace refhost
