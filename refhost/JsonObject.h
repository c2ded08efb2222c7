// The host's JSON object over a parsed JSON document.
//
// Objects returned by Get and At are views into the same document, not copies: writing through a view changes
// the document that its parent sees, and the document lives as long as any view of it. A view names its place
// by the path from the document's root, so a view whose member has since been replaced reads as null (or as
// whatever now stands at that path) and never points into freed memory. Object members keep their order.
#pragma once

#include <memory>
#include <string>

#include "host/SuperObject.h"

namespace refhost {

// An empty JSON object.
std::shared_ptr<nchost::ISuperObject> CreateJsonObject();

// The parsed document, or null with `error` telling where and what is wrong ("parse error at line 2, column 5:
// ..."). Comments are not JSON and are refused; so is anything after the document.
std::shared_ptr<nchost::ISuperObject> ParseJson(const std::string& text, std::string& error);

}  // namespace refhost
