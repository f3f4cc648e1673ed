// SPDX-License-Identifier: GPL-3.0-or-later

#include "filters/FilterDescriptionParser.h"
#include "tests/support/DescriptionBuilder.h"
#include "tests/support/Testing.h"

namespace {

using namespace veltra::parser::FIIR;
using veltra::test::DescriptionBuilder;
using veltra::test::list;
using Events = std::vector<std::string>;

std::string orNull (const char* text) { return text == nullptr ? "(null)" : text; }

/** Writes down what it hears. */
class Recorder : public IFIIRCallback
{
public:
    unsigned getParseMask() override
    {
        ++maskReads;
        return mask;
    }

    bool onHeader (const char* projectName, const char* technology, int channelCount, const char* creationDate,
                   const char* creator, const char* creatorVersion, const char* fileName,
                   const char* numberRepresentation, const char* tsexp) override
    {
        std::string texts;

        for (const auto* text :
             { projectName, technology, creationDate, creator, creatorVersion, fileName, numberRepresentation, tsexp })
            texts += orNull (text) + "|";

        return note ("h", texts + std::to_string (channelCount));
    }

    bool onChannel (unsigned index, const char* name, int number, float gaindB, float delayMs, float maxFilterGaindB,
                    int subwoofer, float xoverFreq) override
    {
        const float numbers[] { gaindB, delayMs, maxFilterGaindB, static_cast<float> (subwoofer), xoverFreq };
        return note ("c", std::to_string (index) + " " + orNull (name) + " " + std::to_string (number) + " "
                              + list (numbers));
    }

    bool onCoefficients (unsigned channelIndex, int sampleRate, bool minPhase, const float* taps, unsigned tapCount,
                         const float* sections, unsigned sectionCount, const char* extra) override
    {
        if (throwAtCoefficients)
            throw std::runtime_error ("client");

        const auto sectionText = sections == nullptr ? "null" : "[" + list ({ sections, 4 * sectionCount }) + "]";
        return note ("s", std::to_string (channelIndex) + " " + std::to_string (sampleRate) + (minPhase ? " min" : "")
                              + " [" + list ({ taps, tapCount }) + "] " + std::to_string (sectionCount) + " "
                              + sectionText + " " + orNull (extra));
    }

    unsigned mask = 7;
    std::string refuseAt;
    bool throwAtCoefficients = false;
    int maskReads = 0;
    Events events;

private:
    bool note (const std::string& kind, const std::string& text)
    {
        events.push_back (kind + " " + text);
        return kind != refuseAt;
    }
};

EResult check (std::string_view text) { return parse (text.data(), nullptr, "Veltra"); }

std::string inTune (const std::string& content) { return "<Veltra><Tune>" + content + "</Tune></Veltra>"; }

std::string inSet (const std::string& content, const std::string& attributes = R"(Topology="FIIR" Fs="48000")")
{
    return inTune ("<Channel><Coefficients " + attributes + ">" + content + "</Coefficients></Channel>");
}

const std::string oneTap = R"(<FIR NbrOfTaps="1"><taps>1</taps></FIR>)";

/** The numbers that come out of a list of taps, when `count` are asked for. */
std::string taps (const std::string& content, int count)
{
    Recorder recorder;
    const auto text =
        inSet ("<FIR NbrOfTaps='" + std::to_string (count) + "'><taps>" + content + "</taps></FIR>", "Topology='FIR'");
    EXPECT_EQ (Success, parse (text.c_str(), &recorder, "Veltra")) << content;
    const auto& event = recorder.events.back();
    return event.substr (event.find ('[') + 1, event.find (']') - event.find ('[') - 1);
}

TEST (FilterDescriptionParser, ReportsTheWholeDescriptionInTheOrderOfTheText)
{
    const auto text =
        "\xef\xbb\xbf"
        + DescriptionBuilder::withHeader (
              R"(ChannelCount="9" ProjectName="A &amp; B" Technology="FIIR" CreationDate="today"
                 Creator="c" CreatorVersion="1.2" FileName="" NumberRepresentation="dec" tsexp="-1")")
              .channel ("FL", 1, R"(GaindB="-1.5" Delayms=" 2.25" MaxFilterGaindB="6" Subwoofer="0" xoverFreq="80")")
              .fir (44100, std::vector<float> { 0.25f })
              .raw ("<!-- of no consequence -->")
              .fiir (48000, { 1.0f, -0.5f }, { { -1.8f, 0.81f, 0.1f, -0.2f }, { 0.0f, 0.0f, 1.0f, 0.0f } },
                     "Delay=48;x=y", true)
              .channel ("SW", 12, R"(Subwoofer="1")")
              .text();

    Recorder recorder;
    EXPECT_EQ (Success, parse (text.c_str(), &recorder, "Veltra"));
    EXPECT_EQ (1, recorder.maskReads);
    EXPECT_EQ (
        (Events { "h A & B|FIIR|today|c|1.2||dec|-1|9", "c 0 FL 1 -1.5 2.25 6 0 80", "s 0 44100 [0.25] 0 null (null)",
                  "s 0 48000 min [1 -0.5] 2 [-1.8 0.81 0.1 -0.2 0 0 1 0] Delay=48;x=y", "c 1 SW 12 0 0 0 1 0" }),
        recorder.events);
}

TEST (FilterDescriptionParser, EveryFailureHasItsCodeAndNamesLineElementAndReason)
{
    const auto sections = [] (const std::string& count, const std::string& content) {
        return inSet (oneTap + "\n<IIR NbrOfSections='" + count + "'>\n" + content + "</IIR>");
    };
    const auto tapList = [] (const std::string& count, const std::string& content) {
        return inSet ("<FIR NbrOfTaps='" + count + "'>\n<taps>" + content + "</taps></FIR>");
    };

    // The text, and the element and a part of the words that its problem is described with.
    const Rows<EResult, std::string, const char*, std::string> rows {
        { UnknownError, "no tag at all", "", "line 1: XML syntax: expected <" },
        { UnknownError, "<Veltra>\n<Tune>", "", "line 2: XML syntax: unexpected end of data" },
        { UnknownError, "<Veltra>\n\n<Tune a></Veltra>", "",
          "line 3: XML syntax: an attribute of this tag has no val" },
        { UnknownError, repeated ("<x>\n", 1000000), "", "line 257: XML syntax: elements are nested too deeply" },
        { NoRootElement, "", "", "there is no element, expected 'Veltra'" },
        { NoRootElement, "<veltra/>", "", "line 1: the root element is 'veltra', expected 'Veltra'" },
        { NoRootElement, "<Veltra2/>", "", "'Veltra2'" },
        { NoRootElement, "<a\x1b" + std::string (99, 'b') + "/>", "",
          "'a\\x1bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb...'" },
        { NoTuneElement, "\xef\xbb\xbf\n<Veltra><tune/></Veltra>", "Veltra", "line 2: 'Veltra' has no Tune" },
        { NoChannelElement, inTune ("<Chanel/>"), "Tune", "Tune has no Channel" },
        { BadTopology, inSet (oneTap, "\n"), "Coefficients", "line 1: 'Coefficients' has no Topology, expected" },
        { BadTopology, inSet (oneTap, "Topology='VFIR'"), "Coefficients",
          "has the Topology 'VFIR', expected FIIR or FIR" },
        { BadTopology, inSet (oneTap, "Topology='fir'"), "Coefficients", "'fir'" },
        { BadTopology, inTune ("<Channel><Coefficients Topology='FIR'>" + oneTap + "</Coefficients><Stray/></Channel>"),
          "Stray", "each element after the first Coefficients is read as Coefficients" },
        { NoFirElement, inSet (""), "Coefficients", "'Coefficients' has no FIR" },
        { NoFirElement, inSet ("<FIR NbrOfTaps='1'/>"), "FIR", "FIR has no taps" },
        { NoIirElement, inSet (oneTap, "Topology='FIIR2'"), "Coefficients", "has no IIR" },
        { TapCountMismatch, tapList ("3", "1 2"), "taps", "line 2: taps has 2 numbers, NbrOfTaps says 3" },
        { TapCountMismatch, tapList ("3", "1\n2\n3"), "taps",
          "line 2: taps has 1 number, NbrOfTaps says 3; numbers are separated by spaces or brackets, not by line ends" },
        { TapCountMismatch, tapList ("2", "<x/>1 2"), "taps",
          "0 numbers, NbrOfTaps says 2; the numbers must come before" },
        { TapCountMismatch, tapList ("0", ""), "taps", "at least 1 is required" },
        { TapCountMismatch, tapList ("2000000000", ""), "taps", "2000000000" },
        { TapCountMismatch, tapList ("99999999999999999999", "1 2 3 4"), "taps", "NbrOfTaps says 2147483647" },
        { TapCountMismatch, tapList ("-1", "1 2"), "taps", "taps has 2 numbers, NbrOfTaps says -1" },
        { SectionCountMismatch, sections ("1", "<section>1 2 3</section>"), "section",
          "line 3: 'section' has 3 numbers, expected 4 on one line" },
        { SectionCountMismatch, sections ("1", "<section/>"), "section", "0 numbers" },
        { SectionCountMismatch, sections ("2", "<section>1 2 3 4</section><x/>"), "x", "read as section" },
        { SectionCountMismatch, sections ("2", "<section>1 2 3 4</section>"), "IIR",
          "line 2: IIR has 1 section, NbrOfSections says 2" },
        { SectionCountMismatch, sections ("2147483647", "<section>1 2 3 4</section>"), "IIR", "2147483647" },
        { SectionCountMismatch, sections ("-1", ""), "IIR", "IIR has 0 sections, NbrOfSections says -1" },
        { SectionCountMismatch, sections ("0", "<section>1 2 3 4</section>"), "section", "IIR has more sections" },
    };

    for (const auto& [result, text, element, words] : rows)
    {
        DescriptionProblem problem;
        EXPECT_EQ (result, parse (text.c_str(), nullptr, "Veltra", &problem)) << words;
        EXPECT_EQ (element, problem.element) << words;
        EXPECT_TRUE (contains (describe (problem), words)) << describe (problem) << "\n" << words;
        EXPECT_EQ (result, check (text)) << "without a reason";
    }

    EXPECT_EQ (UnknownError, parse (nullptr, nullptr, "Veltra"));
    EXPECT_EQ (NoRootElement, parse ("<Veltra/>", nullptr, nullptr));

    for (const char* refuseAt : { "h", "c", "s" })
    {
        Recorder recorder;
        recorder.refuseAt = refuseAt;
        DescriptionProblem problem;
        EXPECT_EQ (CallbackRefused, parse (inSet (oneTap, "Topology='FIR'").c_str(), &recorder, "Veltra", &problem));
        EXPECT_EQ (refuseAt, recorder.events.back().substr (0, 1)) << "nothing follows a refusal";
        EXPECT_EQ ("line 1: " + problem.element + " was not accepted", describe (problem));
    }

    Recorder thrower;
    thrower.throwAtCoefficients = true;
    EXPECT_EQ (UnknownError, parse (inSet (oneTap, "Topology='FIR'").c_str(), &thrower, "Veltra"));
}

TEST (FilterDescriptionParser, TheMaskDecidesWhatIsReadAndChecked)
{
    const auto broken = inTune ("<Channel><Coefficients/></Channel><Channel/>");

    Recorder nothing;
    nothing.mask = 0;
    EXPECT_EQ (Success, parse (broken.c_str(), &nothing, "Veltra"));
    EXPECT_TRUE (nothing.events.empty());
    EXPECT_EQ (NoRootElement, parse ("<a/>", &nothing, "Veltra"));
    EXPECT_EQ (NoTuneElement, parse ("<Veltra/>", &nothing, "Veltra"));
    EXPECT_EQ (NoChannelElement, parse (inTune ("").c_str(), &nothing, "Veltra"));

    Recorder headerAndChannels;
    headerAndChannels.mask = kParseHeader | kParseChannels;
    EXPECT_EQ (Success, parse (broken.c_str(), &headerAndChannels, "Veltra"));
    EXPECT_EQ (3u, headerAndChannels.events.size());

    Recorder coefficients;
    coefficients.mask = kParseCoefficients;
    EXPECT_EQ (BadTopology, parse (broken.c_str(), &coefficients, "Veltra"));
}

TEST (FilterDescriptionParser, SiblingsOfAnyNameAndTopologiesWithAnyEndAreTaken)
{
    Recorder recorder;
    EXPECT_EQ (Success, parse (inTune ("<Other/><Channel Name='a'/>text<!-- c --><Stray Name='b'/><![CDATA[x]]>"
                                       "<Channel><Coefficients Topology='FIIRx'>"
                                       + oneTap + "<IIR/></Coefficients><Coefficients Topology='FIRST'>" + oneTap
                                       + "</Coefficients></Channel>")
                                   .c_str(),
                               &recorder, "Veltra"));
    EXPECT_EQ ((Events { "h (null)|(null)|(null)|(null)|(null)|(null)|(null)|(null)|0", "c 0 a 0 0 0 0 -1 0",
                         "c 1 b 0 0 0 0 -1 0", "c 2 (null) 0 0 0 0 -1 0", "s 2 0 [1] 0 [] (null)",
                         "s 2 0 [1] 0 null (null)" }),
               recorder.events)
        << "null sections are for topologies that have none, not for a set that declares none";
}

TEST (FilterDescriptionParser, BracketsAndBlanksPartNumbersWhichReadAsAtofReadsThemAndRoundTwice)
{
    EXPECT_EQ ("1 -2.5 0.003", taps ("[1] [-2.5]  3e-3", 3));
    EXPECT_EQ ("1 2", taps (" ][1[2", 2));
    EXPECT_EQ ("1 2", taps ("\n1\t \n2\n", 2)) << "line ends beside a blank do no harm";
    EXPECT_EQ ("1 0 2", taps ("[1]\n[2]", 3)) << "a line end between separators is a token without a number";
    EXPECT_EQ ("1", taps ("1\n2\n3", 1));
    EXPECT_EQ ("1 2", taps ("1 2 3 4", 2)) << "the surplus is ignored";
    EXPECT_EQ ("", taps ("1 2", 0));
    EXPECT_EQ ("7 5", taps ("<![CDATA[7 5]]>", 2));
    EXPECT_EQ ("1 2", taps ("1 2<x/>3", 2));
    EXPECT_EQ ("7 0.5 1 0 16 0", taps ("+7 .5 1,5 abc 0x10 --1", 6));
    EXPECT_EQ ("inf -inf inf 0 1e-40 inf nan", taps ("1e400 -1e400 1e39 1e-400 1e-40 inf nan", 7));

    // Halfway between two floats as a double, just above it as a decimal: a single rounding would go up.
    EXPECT_EQ ("1", taps ("1.0000000596046447753906251", 1));

    Recorder recorder;
    EXPECT_EQ (
        Success,
        parse (inSet (oneTap + "<IIR NbrOfSections='2'><section>1 2 3 4 5</section><x>6 7 8 9</x></IIR>").c_str(),
               &recorder, "Veltra"));
    EXPECT_EQ ("s 0 48000 [1] 2 [1 2 3 4 6 7 8 9] (null)", recorder.events.back());
}

TEST (FilterDescriptionParser, ALongExtraLosesItsLastItemsWhole)
{
    const std::string longest (1023, 'x');

    for (const auto& [text, expected] : { std::pair (longest, longest),
                                          { "Delay=1;key=" + std::string (1100, '9'), "Delay=1" },
                                          { longest + "x", "" },
                                          { "", "" } })
    {
        Recorder recorder;
        EXPECT_EQ (Success, parse (inSet (oneTap + "<Extra>" + text + "</Extra>", "Topology='FIR'").c_str(), &recorder,
                                   "Veltra"));
        EXPECT_EQ ("s 0 0 [1] 0 null " + expected, recorder.events.back());
    }
}

TEST (FilterDescriptionParser, ElementsNestNoDeeperThan256AndOtherMarkupIsSkipped)
{
    const auto nested = [&] (int depth) // three of them are here
    { return inTune ("<Channel>" + repeated ("<x>", depth - 3) + repeated ("</x>", depth - 3) + "</Channel>"); };

    EXPECT_EQ (Success, check (nested (256)));
    EXPECT_EQ (UnknownError, check (nested (257)));
    EXPECT_EQ (Success, check (inTune (repeated ("<Channel><a/></Channel>", 1000)))) << "side by side is no depth";
    EXPECT_EQ (Success, check ("<?xml version='1.0'?><!DOCTYPE Veltra [<!ENTITY a '>'>]><?pi <x> ?><!-- <x> -->"
                               + inTune ("<Channel/>")));
}

}
