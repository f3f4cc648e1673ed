// SPDX-License-Identifier: GPL-3.0-or-later
#include "filters/FilterDescriptionParser.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "common/Numbers.h"
#include "common/Xml.h"

namespace veltra::parser::FIIR {

namespace {

using Node = XmlNode;

constexpr int kMaxDepth = 256;
constexpr size_t kExtraSize = 1024; ///< of an "Extra" text with its end mark
constexpr unsigned kSectionSize = 4;

//======================================================================================================================
const Node* child (const Node& parent, const char* name) { return parent.first_node (name); }

/** Value of an attribute; null when it is absent. */
const char* text (const Node& node, const char* attribute)
{
    const auto* const found = node.first_attribute (attribute);
    return found == nullptr ? nullptr : found->value();
}

int integer (const Node& node, const char* attribute, int valueIfAbsent = 0)
{
    const char* const value = text (node, attribute);
    return value == nullptr ? valueIfAbsent : toInt (value);
}

float decimal (const Node& node, const char* attribute)
{
    const char* const value = text (node, attribute);
    return value == nullptr ? 0.0f : static_cast<float> (toDouble (value));
}

//======================================================================================================================
/** Tokens are cut here and nowhere else: line ends and tabs do not part numbers. */
bool isSeparator (char c) { return c == ' ' || c == '[' || c == ']'; }

/** Reads the numbers of a list until it ends or `capacity` of them are there.
    @returns  how many were read
*/
size_t readNumbers (const Node& list, float* numbers, size_t capacity)
{
    const auto* const node = list.first_node();

    if (node == nullptr)
        return 0;

    const char* position = node->value();
    const char* const end = position + node->value_size();
    size_t count = 0;

    while (count < capacity)
    {
        while (isSeparator (*position))
            ++position;

        if (*position == 0)
            break;

        double value = 0.0;
        auto [rest, error] = std::from_chars (position, end, value);

        // No separator can be part of a number, so a number that ends at one is the whole token. All others, with
        // blanks or a "+" in front, something behind, or out of range, take the thorough way.
        if (error != std::errc {} || ! (isSeparator (*rest) || rest == end))
        {
            rest = position + std::strcspn (position, " []");
            value = toDouble ({ position, rest });
        }

        numbers[count++] = static_cast<float> (value);
        position = rest;
    }

    return count;
}

/** Most numbers that the text of a list can hold: a digit and a separator each. */
size_t mostNumbers (const Node& list)
{
    const auto* const node = list.first_node();
    return node == nullptr ? 0 : (node->value_size() + 1) / 2;
}

/** An "Extra" text that is too long loses its last items, whole ones, so that no value is cut to another one. */
const char* limitExtra (char* extra)
{
    const std::string_view all (extra);

    if (all.size() >= kExtraSize)
    {
        const auto end = all.substr (0, kExtraSize).rfind (';');
        extra[end == std::string_view::npos ? 0 : end] = 0;
    }

    return extra;
}

//======================================================================================================================
class Walk
{
public:
    explicit Walk (IFIIRCallback* clientOrNull)
        : callback (clientOrNull),
          mask (clientOrNull == nullptr ? 7u : clientOrNull->getParseMask())
    {
    }

    void document (const Node& document, const char* rootName)
    {
        const auto* const root = child (document, rootName);

        if (root == nullptr)
            throw NoRootElement;

        const auto* const tune = child (*root, "Tune");

        if (tune == nullptr)
            throw NoTuneElement;

        if ((mask & kParseHeader) != 0)
            header (*tune);

        const auto* channelNode = child (*tune, "Channel");

        if (channelNode == nullptr)
            throw NoChannelElement;

        for (unsigned index = 0; channelNode != nullptr; ++index, channelNode = nextElement (*channelNode))
        {
            if ((mask & kParseChannels) != 0)
                channel (*channelNode, index);

            if ((mask & kParseCoefficients) != 0)
                for (const auto* set = child (*channelNode, "Coefficients"); set != nullptr; set = nextElement (*set))
                    coefficients (*set, index);
        }
    }

private:
    /** Reports to the client, if there is one. */
    template <typename Function, typename... Arguments>
    void report (Function function, Arguments... arguments)
    {
        if (callback != nullptr && ! (callback->*function) (arguments...))
            throw CallbackRefused;
    }

    void header (const Node& tune)
    {
        report (&IFIIRCallback::onHeader, text (tune, "ProjectName"), text (tune, "Technology"),
                integer (tune, "ChannelCount"), text (tune, "CreationDate"), text (tune, "Creator"),
                text (tune, "CreatorVersion"), text (tune, "FileName"), text (tune, "NumberRepresentation"),
                text (tune, "tsexp"));
    }

    void channel (const Node& node, unsigned index)
    {
        report (&IFIIRCallback::onChannel, index, text (node, "Name"), integer (node, "Number"),
                decimal (node, "GaindB"), decimal (node, "Delayms"), decimal (node, "MaxFilterGaindB"),
                integer (node, "Subwoofer", -1), decimal (node, "xoverFreq"));
    }

    void coefficients (const Node& set, unsigned channelIndex)
    {
        const char* const topology = text (set, "Topology");
        const bool isFiir = topology != nullptr && std::strncmp (topology, "FIIR", 4) == 0;

        if (! isFiir && (topology == nullptr || std::strncmp (topology, "FIR", 3) != 0))
            throw BadTopology;

        const auto* const fir = child (set, "FIR");

        if (fir == nullptr)
            throw NoFirElement;

        readTaps (*fir);
        sections.clear();

        if (isFiir)
        {
            const auto* const iir = child (set, "IIR");

            if (iir == nullptr)
                throw NoIirElement;

            readSections (*iir);
        }

        const auto* const extra = child (set, "Extra");

        report (&IFIIRCallback::onCoefficients, channelIndex, integer (set, "Fs"), integer (set, "MinPhase") != 0,
                static_cast<const float*> (taps.data()), static_cast<unsigned> (taps.size()),
                isFiir ? static_cast<const float*> (sections.data()) : nullptr,
                static_cast<unsigned> (sections.size() / kSectionSize),
                extra == nullptr ? nullptr : limitExtra (extra->value()));
    }

    void readTaps (const Node& fir)
    {
        const auto* const list = child (fir, "taps");

        if (list == nullptr)
            throw NoFirElement;

        const int count = integer (fir, "NbrOfTaps");

        // Compared before room is made: the count may be anything, the text is what it is.
        if (count < 0 || list->first_node() == nullptr || static_cast<size_t> (count) > mostNumbers (*list))
            throw TapCountMismatch;

        taps.resize (static_cast<size_t> (count));

        if (readNumbers (*list, taps.data(), taps.size()) != taps.size())
            throw TapCountMismatch;
    }

    void readSections (const Node& iir)
    {
        const int count = integer (iir, "NbrOfSections");
        int found = 0;

        for (const auto* node = child (iir, "section"); node != nullptr; node = nextElement (*node))
        {
            float numbers[kSectionSize];

            if (++found > count || readNumbers (*node, numbers, kSectionSize) != kSectionSize)
                throw SectionCountMismatch;

            try
            {
                sections.insert (sections.end(), numbers, numbers + kSectionSize);
            }
            catch (const std::bad_alloc&)
            {
                throw NoSectionMemory;
            }
        }

        if (found != count)
            throw SectionCountMismatch;
    }

    IFIIRCallback* const callback;
    const unsigned mask;

    // Reused from set to set: a channel costs no allocations of its own.
    std::vector<float> taps;
    std::vector<float> sections;
};

}

EResult parse (const char* text, IFIIRCallback* callback, const char* rootName) noexcept
{
    try
    {
        Walk walk (callback);

        if (text == nullptr)
            return UnknownError;

        const XmlDocument document (text, kMaxDepth);

        if (! document.isComplete())
            return UnknownError;

        if (rootName == nullptr)
            return NoRootElement;

        walk.document (document.top(), rootName);
        return Success;
    }
    catch (const EResult failure)
    {
        return failure;
    }
    catch (...)
    {
        return UnknownError;
    }
}

}
