// Configuration trees as XML: an element per node, a child element per key, XML-attribute keys as attributes.
#include <pugixml.hpp>

#include <sstream>

#include "host/HostDefs.h"
#include "refhost/ConfigStore.h"
#include "refhost/ConfigValues.h"
#include "refhost/FileText.h"

namespace refhost {
namespace {

using nchost::TConfigValue;
using nchost::TXmlSubConfig;

// Whether `name` can be an element or attribute name (ASCII rules; any non-ASCII letter is allowed).
bool IsXmlName(const std::string& name) {
  if (name.empty()) return false;
  auto start = [](unsigned char c) { return std::isalpha(c) || c == '_' || c == ':' || c >= 0x80; };
  if (!start(static_cast<unsigned char>(name[0]))) return false;
  for (unsigned char c : name)
    if (!start(c) && !std::isdigit(c) && c != '-' && c != '.') return false;
  return true;
}

bool NodeToXml(const TXmlSubConfig& node, pugi::xml_node element, const std::string& path,
               const TConfigIssues& issues) {
  for (const auto& p : node.Properties()) {
    std::string keyPath = KeyPath(path, p.Name);
    if (!IsXmlName(p.Name)) return issues.Refuse("cannot be saved as XML: key " + keyPath + " is not an XML name");
    std::string text = ValueToText(p.Value);
    if (p.XmlAttribute)
      element.append_attribute(p.Name.c_str()).set_value(text.c_str());
    else
      element.append_child(p.Name.c_str()).text().set(text.c_str());
  }
  for (const auto& sub : node.SubConfigs()) {
    std::string subPath = KeyPath(path, sub->NodeName());
    if (!IsXmlName(sub->NodeName()))
      return issues.Refuse("cannot be saved as XML: node " + subPath + " is not an XML name");
    if (node.FindProperty(sub->NodeName()) != nullptr) {
      issues.Warn("node " + subPath + " has the name of a key and is not saved");
      continue;
    }
    if (!NodeToXml(*sub, element.append_child(sub->NodeName().c_str()), subPath, issues)) return false;
  }
  return true;
}

bool HasChildElements(pugi::xml_node element) {
  for (pugi::xml_node child : element.children())
    if (child.type() == pugi::node_element) return true;
  return false;
}

// The text of a key element: its character data (plain or CDATA), without comments.
std::string KeyText(pugi::xml_node element) {
  std::string text;
  for (pugi::xml_node child : element.children())
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) text += child.value();
  return text;
}

void ApplyValue(TXmlSubConfig& node, const TXmlSubConfig::TProperty& property, const std::string& text,
                const std::string& keyPath, const TConfigIssues& issues) {
  TConfigValue value;
  std::string why;
  if (TextToValue(text, property.Value, value, why))
    node.SetProperty(property.Name, value);
  else
    issues.Warn(keyPath + " ignored: " + why);
}

void ApplyXml(TXmlSubConfig& node, pugi::xml_node element, const std::string& path, const TConfigIssues& issues) {
  for (pugi::xml_attribute attribute : element.attributes()) {
    std::string name = attribute.name();
    std::string keyPath = KeyPath(path, name);
    if (const auto* property = node.FindProperty(name))
      ApplyValue(node, *property, attribute.value(), keyPath, issues);
    else
      issues.Warn("unknown attribute " + keyPath + " ignored");
  }
  for (pugi::xml_node child : element.children()) {
    if (child.type() != pugi::node_element) continue;
    std::string name = child.name();
    std::string keyPath = KeyPath(path, name);
    bool isNode = HasChildElements(child);
    const TXmlSubConfig::TProperty* property = node.FindProperty(name);
    if (property != nullptr && !isNode) {
      ApplyValue(node, *property, KeyText(child), keyPath, issues);
    } else if (property != nullptr) {
      issues.Warn(keyPath + " ignored: expected " + ExpectedKind(property->Value) + ", found elements");
    } else if (TXmlSubConfig* sub = node.SubConfigForLoad(name)) {
      ApplyXml(*sub, child, keyPath, issues);
    } else {
      issues.Warn(std::string(isNode ? "unknown node " : "unknown key ") + keyPath + " ignored");
    }
  }
}

}  // namespace

bool WriteXmlText(const TXmlSubConfig& node, std::string& text, const TConfigIssues& issues) {
  if (!IsXmlName(node.NodeName())) return issues.Refuse("cannot be saved as XML: its node name is not an XML name");
  pugi::xml_document document;
  auto declaration = document.append_child(pugi::node_declaration);
  declaration.append_attribute("version").set_value("1.0");
  declaration.append_attribute("encoding").set_value("utf-8");
  if (!NodeToXml(node, document.append_child(node.NodeName().c_str()), "", issues)) return false;
  std::ostringstream out;
  document.save(out, "  ", pugi::format_indent, pugi::encoding_utf8);
  text = out.str();
  return true;
}

bool ApplyXmlText(TXmlSubConfig& node, const std::string& text, const TConfigIssues& issues) {
  pugi::xml_document document;
  // Keep a key whose text is only blanks, but not the indentation between elements; keep carriage returns in
  // texts as they stand, since the writer does not escape them.
  const unsigned options = (pugi::parse_default | pugi::parse_ws_pcdata_single) & ~pugi::parse_eol;
  pugi::xml_parse_result result = document.load_buffer(text.data(), text.size(), options, pugi::encoding_utf8);
  if (!result) {
    auto offset = static_cast<size_t>(result.offset);
    TTextPosition pos = PositionOf(text, offset);
    return issues.RefuseLoad("line " + std::to_string(pos.Line) + ", column " + std::to_string(pos.Column) + " (byte " +
                             std::to_string(offset) + "): " + result.description());
  }
  pugi::xml_node root = document.document_element();
  if (!root) return issues.RefuseLoad("the file holds no element");
  if (node.NodeName() != root.name())
    issues.Warn(std::string("the root element is <") + root.name() + ">, not <" + node.NodeName() +
                ">; loaded all the same");
  try {
    ApplyXml(node, root, "", issues);
  } catch (const std::exception& e) {
    return issues.Refuse(std::string("was loaded only in part: ") + e.what());
  }
  return true;
}

}  // namespace refhost
