// SPDX-License-Identifier: GPL-3.0-or-later
#include "filters/FilterDescriptionParser.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/Contain.h"
#include "common/Numbers.h"
#include "common/Text.h"
#include "common/Xml.h"

namespace veltra::parser::FIIR {

namespace {

using Node = XmlNode;

constexpr int kMaxDepth = 256;
constexpr size_t kExtraSize = 1024; ///< of an "Extra" text with its end mark
constexpr unsigned kSectionSize = 4;
constexpr const char* kNoMemory = "out of memory"; // short enough for a string's own storage
constexpr size_t kQuoteSize = 40;                  ///< most bytes of a description's text that an explanation repeats

//======================================================================================================================
const Node* child (const Node& parent, const char* name) { return parent.first_node (name); }

/** Value of an attribute; null when it is absent. */
const char* attribute (const Node& node, const char* name)
{
    const auto* const found = node.first_attribute (name);
    return found == nullptr ? nullptr : found->value();
}

int integer (const Node& node, const char* name, int valueIfAbsent = 0)
{
    const char* const value = attribute (node, name);
    return value == nullptr ? valueIfAbsent : toInt (value);
}

float decimal (const Node& node, const char* name)
{
    const char* const value = attribute (node, name);
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

/** How many numbers there are in a list, for an explanation. */
size_t countNumbers (const Node& list)
{
    std::vector<float> numbers (mostNumbers (list));
    return readNumbers (list, numbers.data(), numbers.size());
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
std::string quoted (std::string_view text) { return "'" + logText (text, kQuoteSize) + "'"; }

std::string counted (size_t count, const std::string& what)
{
    return std::to_string (count) + " " + what + (count == 1 ? "" : "s");
}

/** Any element after the first is read as the first was, whatever its name. */
std::string siblingHint (const Node& node, std::string_view name)
{
    const std::string first (name);
    return name == node.name() ? "" : "; each element after the first " + first + " is read as " + first;
}

std::string describeTaps (const Node& list, int declared)
{
    const auto* const node = list.first_node();
    auto words =
        "taps has " + counted (countNumbers (list), "number") + ", NbrOfTaps says " + std::to_string (declared);

    if (node == nullptr)
        return words + "; at least 1 is required";

    if (node->type() == rapidxml::node_element)
        return words + "; the numbers must come before any element";

    return std::string_view (node->value()).find_first_of ("\n\r\t,;") == std::string_view::npos
               ? words
               : words + "; numbers are separated by spaces or brackets, not by line ends";
}

//======================================================================================================================
class Walk
{
public:
    Walk (IFIIRCallback* clientOrNull, const char* descriptionText, DescriptionProblem* problemOrNull)
        : callback (clientOrNull),
          mask (clientOrNull == nullptr ? 7u : clientOrNull->getParseMask()),
          text (descriptionText),
          problem (problemOrNull)
    {
        sections.reserve (kSectionSize); // a client gets a pointer also when a set declares no section
    }

    void run (const char* rootName)
    {
        if (text == nullptr)
            fail (UnknownError, 0, {}, [] { return "there is no text"; });

        xml.emplace (text, kMaxDepth);

        if (const auto& error = xml->error(); error.what != nullptr)
            fail (UnknownError, lineAt (error.offset), {}, [&] { return std::string ("XML syntax: ") + error.what; });

        if (rootName == nullptr)
            fail (NoRootElement, 0, {}, [] { return "no name of a root element was given"; });

        const auto* const root = child (xml->top(), rootName);

        if (root == nullptr)
            fail (NoRootElement, 1, {}, [&] {
                const auto* const other = xml->root();
                return (other == nullptr ? "there is no element" : "the root element is " + quoted (other->name()))
                       + ", expected " + quoted (rootName);
            });

        document (*root);
    }

private:
    /** Ends the walk.
        @param words  makes the explanation, which is left out when there is no memory for it */
    template <class Words>
    [[noreturn]] void fail (EResult result, unsigned line, std::string_view element, Words&& words)
    {
        if (problem != nullptr)
            guarded ([&] { *problem = { line, logText (element, kQuoteSize), words() }; });

        throw result;
    }

    template <class Words>
    [[noreturn]] void fail (EResult result, const Node& node, Words&& words)
    {
        fail (result, lineAt (xml->offsetOf (node)), node.name(), std::forward<Words> (words));
    }

    unsigned lineAt (size_t offset) const
    {
        return 1 + static_cast<unsigned> (std::count (text, text + std::min (offset, std::strlen (text)), '\n'));
    }

    /** Reports to the client, if there is one. */
    template <typename Function, typename... Arguments>
    void report (const Node& node, Function function, Arguments... arguments)
    {
        if (callback != nullptr && ! (callback->*function) (arguments...))
            fail (CallbackRefused, node, [&] {
                const auto reason = callback->getRefusal();
                return std::string (node.name()) + (reason.empty() ? " was not accepted" : ": " + reason);
            });
    }

    void document (const Node& root)
    {
        const auto* const tune = child (root, "Tune");

        if (tune == nullptr)
            fail (NoTuneElement, root, [&] { return quoted (root.name()) + " has no Tune"; });

        if ((mask & kParseHeader) != 0)
            header (*tune);

        const auto* channelNode = child (*tune, "Channel");

        if (channelNode == nullptr)
            fail (NoChannelElement, *tune, [] { return "Tune has no Channel"; });

        for (unsigned index = 0; channelNode != nullptr; ++index, channelNode = nextElement (*channelNode))
        {
            if ((mask & kParseChannels) != 0)
                channel (*channelNode, index);

            if ((mask & kParseCoefficients) != 0)
                for (const auto* set = child (*channelNode, "Coefficients"); set != nullptr; set = nextElement (*set))
                    coefficients (*set, index);
        }
    }

    void header (const Node& tune)
    {
        report (tune, &IFIIRCallback::onHeader, attribute (tune, "ProjectName"), attribute (tune, "Technology"),
                integer (tune, "ChannelCount"), attribute (tune, "CreationDate"), attribute (tune, "Creator"),
                attribute (tune, "CreatorVersion"), attribute (tune, "FileName"),
                attribute (tune, "NumberRepresentation"), attribute (tune, "tsexp"));
    }

    void channel (const Node& node, unsigned index)
    {
        report (node, &IFIIRCallback::onChannel, index, attribute (node, "Name"), integer (node, "Number"),
                decimal (node, "GaindB"), decimal (node, "Delayms"), decimal (node, "MaxFilterGaindB"),
                integer (node, "Subwoofer", -1), decimal (node, "xoverFreq"));
    }

    void coefficients (const Node& set, unsigned channelIndex)
    {
        const char* const topology = attribute (set, "Topology");
        const bool isFiir = topology != nullptr && std::strncmp (topology, "FIIR", 4) == 0;

        if (! isFiir && (topology == nullptr || std::strncmp (topology, "FIR", 3) != 0))
            fail (BadTopology, set, [&] {
                return quoted (set.name())
                       + (topology == nullptr ? " has no Topology" : " has the Topology " + quoted (topology))
                       + ", expected FIIR or FIR" + siblingHint (set, "Coefficients");
            });

        const auto* const fir = child (set, "FIR");

        if (fir == nullptr)
            fail (NoFirElement, set, [&] { return quoted (set.name()) + " has no FIR"; });

        readTaps (*fir);
        sections.clear();

        if (isFiir)
        {
            const auto* const iir = child (set, "IIR");

            if (iir == nullptr)
                fail (NoIirElement, set, [&] {
                    return quoted (set.name()) + " has no IIR, which the Topology FIIR requires, also without sections";
                });

            readSections (*iir);
        }

        const auto* const extra = child (set, "Extra");

        report (set, &IFIIRCallback::onCoefficients, channelIndex, integer (set, "Fs"), integer (set, "MinPhase") != 0,
                static_cast<const float*> (taps.data()), static_cast<unsigned> (taps.size()),
                isFiir ? static_cast<const float*> (sections.data()) : nullptr,
                static_cast<unsigned> (sections.size() / kSectionSize),
                extra == nullptr ? nullptr : limitExtra (extra->value()));
    }

    void readTaps (const Node& fir)
    {
        const auto* const list = child (fir, "taps");

        if (list == nullptr)
            fail (NoFirElement, fir, [] { return "FIR has no taps"; });

        const int count = integer (fir, "NbrOfTaps");
        const auto mismatch = [&] { return describeTaps (*list, count); };

        // Compared before room is made: the count may be anything, the text is what it is.
        if (count < 0 || list->first_node() == nullptr || static_cast<size_t> (count) > mostNumbers (*list))
            fail (TapCountMismatch, *list, mismatch);

        taps.resize (static_cast<size_t> (count));

        if (readNumbers (*list, taps.data(), taps.size()) != taps.size())
            fail (TapCountMismatch, *list, mismatch);
    }

    void readSections (const Node& iir)
    {
        const int count = integer (iir, "NbrOfSections");
        const auto declared = [&] { return ", NbrOfSections says " + std::to_string (count); };
        int found = 0;

        for (const auto* node = child (iir, "section"); node != nullptr; node = nextElement (*node))
        {
            if (++found > count)
                fail (SectionCountMismatch, *node,
                      [&] { return "IIR has more sections" + declared() + siblingHint (*node, "section"); });

            float numbers[kSectionSize];

            if (const auto size = readNumbers (*node, numbers, kSectionSize); size != kSectionSize)
                fail (SectionCountMismatch, *node, [&] {
                    return quoted (node->name()) + " has " + counted (size, "number")
                           + ", expected 4 on one line: a1 a2 b0 b1" + siblingHint (*node, "section");
                });

            try
            {
                sections.insert (sections.end(), numbers, numbers + kSectionSize);
            }
            catch (const std::bad_alloc&)
            {
                fail (NoSectionMemory, *node, [] { return kNoMemory; });
            }
        }

        if (found != count)
            fail (SectionCountMismatch, iir,
                  [&] { return "IIR has " + counted (static_cast<size_t> (found), "section") + declared(); });
    }

    IFIIRCallback* const callback;
    const unsigned mask;
    const char* const text;
    DescriptionProblem* const problem;
    std::optional<XmlDocument> xml;

    // Reused from set to set: a channel costs no allocations of its own.
    std::vector<float> taps;
    std::vector<float> sections;
};

}

std::string describe (const DescriptionProblem& problem)
{
    return (problem.line == 0 ? "" : "line " + std::to_string (problem.line) + ": ") + problem.text;
}

EResult parse (const char* text, IFIIRCallback* callback, const char* rootName, DescriptionProblem* problem) noexcept
{
    try
    {
        Walk (callback, text, problem).run (rootName);
        return Success;
    }
    catch (const EResult failure)
    {
        return failure;
    }
    catch (const std::bad_alloc&)
    {
        if (problem != nullptr)
            problem->text = kNoMemory;
    }
    catch (...)
    {
        if (problem != nullptr)
            problem->text = "refused";
    }

    return UnknownError;
}

}
