#include "plugin/Settings.h"

#include <algorithm>

#include "common/JuceXml.h"
#include "common/Numbers.h"
#include "plugin/Files.h"

namespace veltra::plugin {

namespace {

constexpr juce::int64 greatestSize_bytes = 1 << 20;
constexpr int greatestDepth = 64;

std::unique_ptr<juce::XmlElement> parse (const juce::File& file)
{
    juce::MemoryBlock bytes;

    if (! isOrdinaryFile (file) || file.getSize() > greatestSize_bytes || ! file.loadFileAsData (bytes))
        return nullptr;

    return parseXml (xmlText ({ bytes.begin(), bytes.getSize() }), greatestDepth);
}

/** Takes the values over as a properties file of JUCE's would that reads the document itself. */
void addValues (const juce::XmlElement& root, juce::StringPairArray& values)
{
    for (const auto* element : root.getChildWithTagNameIterator ("VALUE"))
    {
        const auto& name = element->getStringAttribute ("name");
        const auto* const nested = element->getFirstChildElement();

        if (name.isNotEmpty())
            values.set (name, nested != nullptr ? nested->toString (juce::XmlElement::TextFormat().singleLine().withoutHeader())
                                                : element->getStringAttribute ("val"));
    }
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

    if (const auto root = parse (file); root != nullptr && root->hasTagName ("PROPERTIES"))
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

int readInt (const juce::PropertySet& settings, juce::StringRef key, int fallback, int lowest, int highest)
{
    return settings.containsKey (key) ? std::clamp (toInt (settings.getValue (key).toStdString()), lowest, highest)
                                      : fallback;
}

}
