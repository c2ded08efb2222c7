// Persistence of configuration trees (nchost::TXmlSubConfig) as JSON and as XML.
//
// JSON: one object per node; its members are the node's keys under their names and its sub-nodes as nested
// objects under their node names, so that a person can write one by hand:
//   {"Model": "IPG", "CtrlPort": 5, "DA": {"DAPort": 1203}, "IPG": {"Model": "YLR", "UseTcp": true}}
// Comments (// and /* */) are accepted when loading.
//
// XML: one element per node, named by its node name; one child element per key holding the value as text,
// except keys flagged XmlAttribute, which are attributes of the node's element:
//   <Laser><Model>IPG</Model><PWM DynamicPwm="true"><Frequency>5000</Frequency></PWM></Laser>
// Booleans read "true"/"false" (also "1"/"0", any case), numbers use a point as decimal separator. Loading takes
// either form of a key, element or attribute.
//
// Loading parses the whole text first: a file that cannot be read or parsed is refused with an error naming the
// file and the position, and the tree stays exactly as it was. Then values are applied: a key missing from the
// file keeps its value; an unknown key, an unknown sub-node or a value of the wrong type is reported as a
// warning naming the file and the key path (such as "IPG.UseTcp") and otherwise ignored. Integer keys take whole
// numbers within the 32-bit range; a file's sub-node is looked up with SubConfigForLoad, which may create it.
//
// Saving writes every key and every sub-node, doubles with enough digits to read back exactly, and replaces the
// file only once the new one is completely written.
#pragma once

#include <functional>
#include <string>

#include "host/AppSystem.h"
#include "host/XmlSubConfig.h"

namespace refhost {

// Receives each problem: message type 7 (error) when a file is refused or cannot be written (then the call
// returns false), 5 (warning) for something that was left out or ignored.
using TConfigReport = std::function<void(int msgType, const std::string& text)>;

// Reports as log lines of `category` through the host's application object.
TConfigReport ReportToApp(nchost::TAppSystem& app, std::string category = "Config");

bool SaveJson(const nchost::TXmlSubConfig& node, const std::string& path, const TConfigReport& report = {});
bool LoadJson(nchost::TXmlSubConfig& node, const std::string& path, const TConfigReport& report = {});
bool SaveXml(const nchost::TXmlSubConfig& node, const std::string& path, const TConfigReport& report = {});
bool LoadXml(nchost::TXmlSubConfig& node, const std::string& path, const TConfigReport& report = {});

// The same on text in memory; `sourceName` stands for the file name in reports.
bool ToJsonText(const nchost::TXmlSubConfig& node, std::string& text, const TConfigReport& report = {});
bool ToXmlText(const nchost::TXmlSubConfig& node, std::string& text, const TConfigReport& report = {});
bool LoadJsonText(nchost::TXmlSubConfig& node, const std::string& text, const std::string& sourceName,
                  const TConfigReport& report = {});
bool LoadXmlText(nchost::TXmlSubConfig& node, const std::string& text, const std::string& sourceName,
                 const TConfigReport& report = {});

}  // namespace refhost
