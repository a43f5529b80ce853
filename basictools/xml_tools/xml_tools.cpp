#include "basictools/xml_tools/xml_tools.h"

#include "basictools/exception.h"

#include <cctype>
#include <climits>
#include <stdexcept>

namespace Norvell::XmlTools {

namespace {

// Leading whitespace, one optional sign, then decimal digits up to the first
// other character. Saturates at the long long range.
struct ParsedInteger {
    bool hasDigits = false;
    bool overflow = false;
    long long value = 0;
};

ParsedInteger ParseLeading(const std::string& text) {
    ParsedInteger result;
    size_t pos = 0;
    while (pos < text.size() && std::isspace(static_cast<unsigned char>(text[pos]))) ++pos;
    bool negative = false;
    if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) negative = text[pos++] == '-';

    const long long limit = negative ? LLONG_MIN : LLONG_MAX;
    for (; pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos])); ++pos) {
        result.hasDigits = true;
        if (result.overflow) continue;
        const int digit = text[pos] - '0';
        if (negative ? result.value < (LLONG_MIN + digit) / 10
                     : result.value > (LLONG_MAX - digit) / 10) {
            result.overflow = true;
            result.value = limit;
            continue;
        }
        result.value = result.value * 10 + (negative ? -digit : digit);
    }
    return result;
}

} // namespace

Node* GetRequiredNode(Node* parent, const char* name) {
    Node* node = parent != nullptr ? parent->first_node(name) : nullptr;
    if (node == nullptr) VANTOR_THROW(std::string("Node (") + name + ") required not defined ");
    return node;
}

Attribute* GetRequiredAttribute(Node* node, const char* name) {
    Attribute* attribute = node != nullptr ? node->first_attribute(name) : nullptr;
    if (attribute == nullptr)
        VANTOR_THROW(std::string("Attribute (") + name + ") required not defined");
    return attribute;
}

bool GetVersion(Node* node, int& major, int& minor, int& patch) {
    Attribute* attribute = GetRequiredAttribute(node, "version");
    const std::string version(attribute->value(), attribute->value_size());
    const size_t first = version.find('.');
    if (first == std::string::npos) VANTOR_THROW("Version without . : " + version);
    const size_t second = version.find('.', first + 1);
    if (second == std::string::npos) VANTOR_THROW("Version without 2 . : " + version);
    major = StoI(version.substr(0, first));
    minor = StoI(version.substr(first + 1)); // stops at the second "."
    patch = StoI(version.substr(second + 1));
    return true;
}

int StoI(const std::string& text) {
    const ParsedInteger parsed = ParseLeading(text);
    if (!parsed.hasDigits) throw std::invalid_argument("invalid stoi argument");
    if (parsed.overflow || parsed.value < INT_MIN || parsed.value > INT_MAX)
        throw std::out_of_range("stoi argument out of range");
    return static_cast<int>(parsed.value);
}

long long LeadingInteger(const std::string& text) {
    return ParseLeading(text).value;
}

} // namespace Norvell::XmlTools
