// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/ArrangedDescription.h"

#include <string_view>

#include "common/Xml.h"

namespace veltra::host {

namespace {

constexpr int kDeepest = 256; // the parser of descriptions accepts no more

/** Appends a text with all characters as references that would not come back as they are. */
void appendEscaped (std::string& out, std::string_view text)
{
    for (const char c : text)
    {
        if (c == '&' || c == '<' || c == '>' || c == '"' || (c >= 0 && c < 0x20))
            out += "&#" + std::to_string (static_cast<int> (c)) + ";";
        else
            out += c;
    }
}

void appendAttribute (std::string& out, std::string_view name, std::string_view value)
{
    out += ' ';
    out += name;
    out += "=\"";
    appendEscaped (out, value);
    out += '"';
}

void appendElement (std::string& out, const XmlNode& element);

void appendChildren (std::string& out, const XmlNode& element)
{
    bool behindText = false;

    for (const auto* node = element.first_node(); node != nullptr; node = node->next_sibling())
    {
        const bool isText = node->type() == rapidxml::node_data;

        if (isText && behindText)
            out += "<!-- -->"; // a comment kept them apart, and readers take the first text only

        if (isText)
            appendEscaped (out, { node->value(), node->value_size() });
        else if (node->type() == rapidxml::node_cdata)
            out.append ("<![CDATA[").append (node->value(), node->value_size()).append ("]]>");
        else if (node->type() == rapidxml::node_element)
            appendElement (out, *node);

        behindText = isText;
    }
}

void appendAttributes (std::string& out, const XmlNode& element, std::string_view except = {})
{
    for (const auto* attribute = element.first_attribute(); attribute != nullptr;
         attribute = attribute->next_attribute())
        if (const std::string_view name (attribute->name(), attribute->name_size()); name != except)
            appendAttribute (out, name, { attribute->value(), attribute->value_size() });
}

void appendElement (std::string& out, const XmlNode& element)
{
    const std::string_view name (element.name(), element.name_size());
    out.append ("<").append (name);
    appendAttributes (out, element);
    out += '>';
    appendChildren (out, element);
    out.append ("</").append (name).append (">");
}

}

std::string arrangedDescription (const std::string& text, const std::vector<ArrangedChannel>& channels)
{
    const XmlDocument document (text, kDeepest);
    const auto* const root = document.top().first_node ("Veltra");
    const auto* const tune = root == nullptr ? nullptr : root->first_node ("Tune");

    if (tune == nullptr)
        return text;

    std::vector<const XmlNode*> nodes;

    for (const auto* node = tune->first_node ("Channel"); node != nullptr; node = nextElement (*node))
        nodes.push_back (node);

    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Veltra>\n<Tune";
    out.reserve (text.size() + 4096);

    appendAttributes (out, *tune);
    out += ">\n";

    for (const auto& channel : channels)
    {
        if (channel.place >= nodes.size())
            continue;

        const auto& node = *nodes[channel.place];
        out += "<Channel"; // whatever its name was: behind the first, readers take any element for one
        appendAttributes (out, node, "Number");
        appendAttribute (out, "Number", std::to_string (channel.number));
        out += '>';
        appendChildren (out, node);
        out += "</Channel>\n";
    }

    return out + "</Tune>\n</Veltra>\n";
}

}
