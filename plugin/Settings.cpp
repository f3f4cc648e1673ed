// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/Settings.h"

#include <algorithm>
#include <string>

#include "common/Log.h"
#include "common/Numbers.h"
#include "common/Text.h"
#include "common/Xml.h"
#include "plugin/Files.h"

namespace veltra::plugin {

namespace {

constexpr int kMaxSize_bytes = 1 << 20;
constexpr int kMaxDepth = 64;

/** The text of the settings, empty when there is no file that may be read. */
std::string readText (const juce::File& file)
{
    if (! isOrdinaryFile (file))
        return {};

    if (file.getSize() > kMaxSize_bytes)
    {
        VELTRA_LOG (INFO, "Settings are ignored: the file has more than " << kMaxSize_bytes << " bytes");
        return {};
    }

    return xmlText (readFile (file, kMaxSize_bytes)).toStdString();
}

/** Takes over the values that a properties file of JUCE's would take from the same document, but for XML in one. */
void addValues (const XmlNode& root, juce::StringPairArray& values)
{
    for (const auto* element = root.first_node ("VALUE"); element != nullptr; element = element->next_sibling ("VALUE"))
        if (const auto name = attributeOf (*element, "name"); name.isNotEmpty() && firstElement (*element) == nullptr)
            values.set (name, attributeOf (*element, "val"));
}

}

std::unique_ptr<juce::PropertiesFile> openSettings (const juce::File& file)
{
    juce::PropertiesFile::Options options;
    options.commonToAllUsers = false;
    options.ignoreCaseOfKeyNames = false;
    options.doNotSave = true;
    options.millisecondsBeforeSaving = 3000;
    options.storageFormat = juce::PropertiesFile::storeAsXML;

    // Without a file: a document that somebody broke, or that changes meanwhile, must not get to JUCE unseen.
    auto settings = std::make_unique<juce::PropertiesFile> (juce::File(), options);

    const XmlDocument document (readText (file), kMaxDepth);

    if (document.error().what != nullptr)
        VELTRA_LOG (INFO, "Settings are not read completely, XML error: " << document.error().what);

    if (const auto* root = document.root(); root != nullptr && nameOf (*root) == "PROPERTIES")
        addValues (*root, settings->getAllProperties());

    return settings;
}

bool readBool (const juce::PropertySet& settings, juce::StringRef key, bool fallback)
{
    const auto text = settings.getValue (key).trim().toLowerCase();

    if (text == "true" || text == "yes" || text == "on")
        return true;

    if (text == "false" || text == "no" || text == "off")
        return false;

    const bool isNumber = juce::CharacterFunctions::isDigit (text.trimCharactersAtStart ("+-")[0]);
    return isNumber ? toInt (text.toStdString()) != 0 : fallback;
}

int readInt (const juce::PropertySet& settings, const IntSetting& setting)
{
    if (! settings.containsKey (setting.key))
        return setting.fallback;

    const int value = toInt (settings.getValue (setting.key).toStdString());
    return value < 0 ? setting.ifNegative : std::min (value, setting.highest);
}

void logIfLimited (const juce::PropertySet& settings, const IntSetting& setting)
{
    const auto text = settings.getValue (setting.key).toStdString();
    const int value = readInt (settings, setting);

    if (! text.empty() && toInt (text) != value)
        VELTRA_LOG (INFO, "Setting " << setting.key << " is '" << logText (text) << "', limited to " << value);
}

}
