#pragma once
// Building the XML documents object storage answers with.
#include <pugixml.hpp>

#include <string>

namespace quorvane::emulator {

// A document with the XML declaration and the root element `name`.
pugi::xml_node xmlRoot(pugi::xml_document& doc, const char* name);
void xmlAdd(pugi::xml_node parent, const char* name, const std::string& text);
std::string xmlText(const pugi::xml_document& doc);

}  // namespace quorvane::emulator
