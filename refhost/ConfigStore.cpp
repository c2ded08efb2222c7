// Configuration files: reading and writing them whole, and where their problems are reported.
#include "refhost/ConfigStore.h"

#include "host/HostDefs.h"
#include "refhost/ConfigValues.h"
#include "refhost/FileText.h"

namespace refhost {
namespace {

using TApply = bool (*)(nchost::TXmlSubConfig&, const std::string&, const TConfigIssues&);
using TWrite = bool (*)(const nchost::TXmlSubConfig&, std::string&, const TConfigIssues&);

bool LoadFile(nchost::TXmlSubConfig& node, const std::string& path, const TConfigReport& report, TApply apply) {
  TConfigIssues issues(TConfigIssues::FileSubject(path), report);
  std::string text;
  std::string error;
  if (!ReadTextFile(path, text, error)) return issues.Refuse("cannot be read: " + error);
  return apply(node, text, issues);
}

bool SaveFile(const nchost::TXmlSubConfig& node, const std::string& path, const TConfigReport& report, TWrite write) {
  TConfigIssues issues(TConfigIssues::FileSubject(path), report);
  std::string text;
  if (!write(node, text, issues)) return false;
  std::string error;
  if (!WriteTextFileAtomically(path, text, error)) return issues.Refuse("cannot be written: " + error);
  return true;
}

}  // namespace

TConfigReport ReportToApp(nchost::TAppSystem& app, std::string category) {
  return [&app, category = std::move(category)](int msgType, const std::string& text) {
    app.LogMsg(text, msgType, category);
  };
}

bool SaveJson(const nchost::TXmlSubConfig& node, const std::string& path, const TConfigReport& report) {
  return SaveFile(node, path, report, WriteJsonText);
}

bool LoadJson(nchost::TXmlSubConfig& node, const std::string& path, const TConfigReport& report) {
  return LoadFile(node, path, report, ApplyJsonText);
}

bool SaveXml(const nchost::TXmlSubConfig& node, const std::string& path, const TConfigReport& report) {
  return SaveFile(node, path, report, WriteXmlText);
}

bool LoadXml(nchost::TXmlSubConfig& node, const std::string& path, const TConfigReport& report) {
  return LoadFile(node, path, report, ApplyXmlText);
}

bool ToJsonText(const nchost::TXmlSubConfig& node, std::string& text, const TConfigReport& report) {
  return WriteJsonText(node, text, TConfigIssues(TConfigIssues::NodeSubject(node.NodeName()), report));
}

bool ToXmlText(const nchost::TXmlSubConfig& node, std::string& text, const TConfigReport& report) {
  return WriteXmlText(node, text, TConfigIssues(TConfigIssues::NodeSubject(node.NodeName()), report));
}

bool LoadJsonText(nchost::TXmlSubConfig& node, const std::string& text, const std::string& sourceName,
                  const TConfigReport& report) {
  return ApplyJsonText(node, text, TConfigIssues(TConfigIssues::FileSubject(sourceName), report));
}

bool LoadXmlText(nchost::TXmlSubConfig& node, const std::string& text, const std::string& sourceName,
                 const TConfigReport& report) {
  return ApplyXmlText(node, text, TConfigIssues(TConfigIssues::FileSubject(sourceName), report));
}

}  // namespace refhost
