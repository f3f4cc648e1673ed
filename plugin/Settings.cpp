#include "plugin/Settings.h"

#include <algorithm>

#include "common/Numbers.h"
#include "common/XmlShape.h"
#include "plugin/Files.h"

namespace veltra::plugin {

namespace {

/** The XML parser recurses once an element and expands entities: a file that somebody broke must not take the
    host along. */
bool isReadable (const juce::File& file)
{
    constexpr juce::int64 greatestSize_bytes = 1 << 20;
    constexpr int greatestDepth = 64;

    if (! isOrdinaryFile (file) || file.getSize() > greatestSize_bytes)
        return false;

    const auto text = file.loadFileAsString().toStdString();
    return isShallowXml (text, greatestDepth) && text.find ("<!DOCTYPE") == text.npos;
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

    return std::make_unique<juce::PropertiesFile> (isReadable (file) ? file : juce::File(), options);
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
