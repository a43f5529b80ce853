#pragma once
// Helpers for reading the engine description with rapidxml.
#include <rapidxml/rapidxml.hpp>

#include <string>

namespace Norvell::XmlTools {

using Node = rapidxml::xml_node<char>;
using Attribute = rapidxml::xml_attribute<char>;

// First child element named name; throws CException when there is none.
Node* GetRequiredNode(Node* parent, const char* name);
// First attribute named name; throws CException when there is none.
Attribute* GetRequiredAttribute(Node* node, const char* name);
// Reads and validates the "version" attribute (major.minor.patch); throws on error.
bool GetVersion(Node* node, int& major, int& minor, int& patch);

// Standard string-to-int rules with the library's standard error texts
// ("invalid stoi argument", "stoi argument out of range").
int StoI(const std::string& text);
// Leading decimal integer, 0 when there is none (never throws).
long long LeadingInteger(const std::string& text);

} // namespace Norvell::XmlTools
