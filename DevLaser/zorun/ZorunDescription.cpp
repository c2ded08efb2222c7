#include "zorun/ZorunDescription.h"

#include <fstream>
#include <sstream>

#include "frame/LaserError.h"

namespace devlaser::zorun {
namespace {

using TKind = nchost::ISuperObject::TKind;

// The exception texts keep the words the laser's service staff search the logs for: a file that cannot serve the
// configured laser at all is a "Zorun.DataTransType Error", a file whose content is wrong "LaserJsonFileContentError".
constexpr const char* kNoLaserError = "Zorun.DataTransType Error";
constexpr const char* kContentError = "LaserJsonFileContentError";

[[noreturn]] void Refuse(const char* kind, const std::string& path, const std::string& entry, const std::string& why) {
  std::string msg = std::string(kind) + ": " + path;
  if (!entry.empty()) msg += ", " + entry;
  throw ELaserError(msg + ": " + why);
}

class TElementReader {
 public:
  TElementReader(const std::string& path, std::string entry) : FPath(path), FEntry(std::move(entry)) {}

  [[noreturn]] void Fail(const std::string& why) const { Refuse(kContentError, FPath, FEntry, why); }

  int32_t Int(const nchost::ISuperObject& obj, const char* key) const {
    auto value = obj.Get(key);
    if (!value || value->Kind() == TKind::Null) return 0;
    if (value->Kind() != TKind::Int && value->Kind() != TKind::Double)
      Fail(std::string(key) + " is not a number: " + value->AsJson());
    const int64_t v = value->AsInteger();
    if (v < INT32_MIN || v > INT32_MAX) Fail(std::string(key) + " " + std::to_string(v) + " is out of range");
    return static_cast<int32_t>(v);
  }
  bool Bool(const nchost::ISuperObject& obj, const char* key) const {
    auto value = obj.Get(key);
    if (!value || value->Kind() == TKind::Null) return false;
    if (value->Kind() != TKind::Bool && value->Kind() != TKind::Int)
      Fail(std::string(key) + " is not true or false: " + value->AsJson());
    return value->AsBoolean();
  }
  std::string Text(const nchost::ISuperObject& obj, const char* key) const {
    auto value = obj.Get(key);
    if (!value || value->Kind() == TKind::Null) return {};
    if (value->Kind() != TKind::String) Fail(std::string(key) + " is not a text: " + value->AsJson());
    return value->AsString();
  }
  TBytes Bytes(const std::string& text, TEncoding encoding, const char* key) const {
    std::string error;
    auto bytes = TextToBytes(text, encoding, error);
    if (!bytes) Fail(std::string(key) + " " + error);
    return *bytes;
  }

 private:
  const std::string& FPath;
  const std::string FEntry;
};

// The array under `key`, or null when the element has none; anything else there is refused.
std::shared_ptr<nchost::ISuperObject> ArrayOf(const nchost::ISuperObject& element, const char* key,
                                              const std::string& path, const std::string& entry) {
  auto value = element.Get(key);
  if (!value || value->Kind() == TKind::Null) return nullptr;
  if (value->Kind() != TKind::Array) Refuse(kContentError, path, entry + "." + key, "is not an array");
  return value;
}

TCommandData ReadCommand(const nchost::ISuperObject& obj, const TElementReader& r, TEncoding encoding) {
  TCommandData cmd;
  cmd.FCmdLv = r.Int(obj, "CmdLv");
  cmd.FCmdNeedReply = r.Bool(obj, "CmdNeedReply");
  cmd.FInsertIdx = r.Int(obj, "ParamIdx");
  cmd.FParamLen = r.Int(obj, "ParamLen");
  cmd.FTotalLen = r.Int(obj, "CmdTotalLen");
  cmd.FParamMax = r.Int(obj, "ParamMax");
  cmd.FParamMin = r.Int(obj, "ParamMin");
  cmd.FCmdNeedCheck = r.Bool(obj, "CmdNeedCheck");
  cmd.FCheckBeginIdx = r.Int(obj, "CheckBeginIdx");
  cmd.FCheckEndIdx = r.Int(obj, "CheckEndIdx");
  cmd.FCheckLen = r.Int(obj, "CheckLen");
  cmd.FCmdDesc = r.Text(obj, "CmdDesc");
  cmd.FCmdRawData = r.Text(obj, "Command");
  cmd.FCmdData = r.Bytes(cmd.FCmdRawData, encoding, "Command");
  return cmd;
}

TReplyData ReadReply(const nchost::ISuperObject& obj, const TElementReader& r, TEncoding encoding) {
  TReplyData reply;
  reply.FReplyRawData = r.Text(obj, "Reply");
  reply.FReplyData = r.Bytes(reply.FReplyRawData, encoding, "Reply");
  reply.FReplyDesc = r.Text(obj, "ReplyDesc");
  reply.FCheckBeginIdx = r.Int(obj, "CheckBeginIdx");
  reply.FReplyFlagIdx = r.Int(obj, "ReplyFlagIdx");
  reply.FCheckEndIdx = r.Int(obj, "CheckEndIdx");
  reply.FCheckLen = r.Int(obj, "CheckLen");
  return reply;
}

// Reads the entries of one array; `read` stores an entry and returns false when it was left out.
template <class TRead>
void ReadEntries(const nchost::ISuperObject& element, const char* key, const std::string& path,
                 const std::string& laserEntry, TRead read) {
  auto array = ArrayOf(element, key, path, laserEntry);
  if (!array) return;
  for (size_t i = 0; i < array->Length(); ++i) {
    const std::string entry = laserEntry + "." + key + "[" + std::to_string(i) + "]";
    auto item = array->At(i);
    if (!item || item->Kind() != TKind::Object) Refuse(kContentError, path, entry, "is not an object");
    read(*item, TElementReader(path, entry), entry);
  }
}

}  // namespace

std::string DescriptionPath(nchost::TAppSystem& app) {
  std::string dir = app.ExeDir();
  if (!dir.empty() && dir.back() != '/') dir += '/';
  return dir + kDescriptionFileName;
}

TZorunDescription LoadDescription(nchost::TAppSystem& app, const std::string& path, int32_t laserIdx, bool serial) {
  std::ifstream file(path, std::ios::binary);
  if (!file) Refuse(kNoLaserError, path, "", "the laser description file is missing or cannot be read");
  std::ostringstream text;
  text << file.rdbuf();
  std::string error;
  auto root = app.ParseJson(text.str(), error);
  if (!root) Refuse(kContentError, path, "", "not valid JSON (" + error + ")");
  return ReadDescription(*root, path, laserIdx, serial);
}

TZorunDescription ReadDescription(const nchost::ISuperObject& root, const std::string& path, int32_t laserIdx,
                                  bool serial) {
  if (root.Kind() != TKind::Object) Refuse(kContentError, path, "", "the root is not an object");
  auto lasers = root.Get("Lasers");
  if (!lasers || lasers->Kind() != TKind::Array) Refuse(kContentError, path, "Lasers", "missing or not an array");
  const std::string laserEntry = "Lasers[" + std::to_string(laserIdx) + "]";
  if (laserIdx < 0 || static_cast<size_t>(laserIdx) >= lasers->Length())
    Refuse(kNoLaserError, path, laserEntry,
           "the file describes " + std::to_string(lasers->Length()) + " laser(s), none at LaserIdx " +
               std::to_string(laserIdx));
  auto element = lasers->At(static_cast<size_t>(laserIdx));
  if (!element || element->Kind() != TKind::Object) Refuse(kContentError, path, laserEntry, "is not an object");

  TZorunDescription d;
  TElementReader r(path, laserEntry);
  if (serial) d.Cfg.CommSettings = r.Text(*element, "CommSettings");
  d.Cfg.InstructionEncode = r.Text(*element, "InstructionEnCode");
  d.Cfg.LaserDesc = r.Text(*element, "Desc");
  d.Cfg.Brand = r.Text(*element, "Brand");
  d.Encoding = ParseEncoding(d.Cfg.InstructionEncode);

  auto typeOf = [&d](const nchost::ISuperObject& obj, const TElementReader& reader, const std::string& entry,
                     std::optional<TCmdType>& type) {
    const int32_t value = reader.Int(obj, "CmdType");
    if (value < 0 || value >= kCmdTypeCount) {
      d.Skipped.push_back(entry + ": CmdType " + std::to_string(value) + " is not 0..7");
      return;
    }
    type = static_cast<TCmdType>(value);
  };

  ReadEntries(*element, "Instructions", path, laserEntry,
              [&](const nchost::ISuperObject& obj, const TElementReader& reader, const std::string& entry) {
                std::optional<TCmdType> type;
                typeOf(obj, reader, entry, type);
                if (!type) return;
                if (d.Commands.count(*type) != 0) {
                  d.Skipped.push_back(entry + ": a second " + CmdTypeName(*type));
                  return;
                }
                TCommandData cmd = ReadCommand(obj, reader, d.Encoding);
                cmd.FCmdType = *type;
                // With an unknown encoding every frame is empty anyway (and holds up the queue): said once, later.
                if (auto problem = d.Encoding == TEncoding::Unknown ? std::string() : TemplateProblem(cmd);
                    !problem.empty())
                  reader.Fail(std::string(CmdTypeName(*type)) + ": " + problem);
                if (*type != ctDiodeSet && (cmd.FParamMin > 0 || cmd.FParamMax < 0))
                  reader.Fail(std::string(CmdTypeName(*type)) + ": ParamMin " + std::to_string(cmd.FParamMin) +
                              " .. ParamMax " + std::to_string(cmd.FParamMax) +
                              " must include 0, the value of a command without parameter");
                d.Commands.emplace(*type, std::move(cmd));
              });
  ReadEntries(*element, "Replys", path, laserEntry,
              [&](const nchost::ISuperObject& obj, const TElementReader& reader, const std::string& entry) {
                std::optional<TCmdType> type;
                typeOf(obj, reader, entry, type);
                if (!type) return;
                if (d.Replies.count(*type) != 0) {
                  d.Skipped.push_back(entry + ": a second " + CmdTypeName(*type));
                  return;
                }
                TReplyData reply = ReadReply(obj, reader, d.Encoding);
                reply.FCmdType = *type;
                d.Replies.emplace(*type, std::move(reply));
              });
  ReadEntries(*element, "Alarms", path, laserEntry,
              [&](const nchost::ISuperObject& obj, const TElementReader& reader, const std::string&) {
                TAlarmData alarm;
                alarm.FAlarmID = reader.Int(obj, "AlarmID");
                alarm.FAlarmDesc = reader.Text(obj, "AlarmDesc");
                d.Alarms[alarm.FAlarmID] = std::move(alarm);
              });
  return d;
}

}  // namespace devlaser::zorun
