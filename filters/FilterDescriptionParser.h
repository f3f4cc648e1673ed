// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace veltra::parser::FIIR {

/** Result of a walk through a filter description. The value 8 is not in use. */
enum EResult
{
    Success = 0,
    UnknownError = 1,         ///< any other failure: XML syntax, elements nested deeper than 256, memory, a null text
    NoRootElement = 2,        ///< no root element of the given name
    NoTuneElement = 3,        ///< no "Tune" in the root element
    NoFirElement = 4,         ///< "Coefficients" without "FIR", or "FIR" without "taps"
    NoIirElement = 5,         ///< a set of topology FIIR without "IIR"
    NoSectionMemory = 6,      ///< no memory for the sections
    TapCountMismatch = 7,     ///< "taps" does not hold "NbrOfTaps" numbers, or nothing at all
    SectionCountMismatch = 9, ///< a "section" with fewer than four numbers, or not "NbrOfSections" of them
    NoChannelElement = 10,    ///< no "Channel" in "Tune"
    BadTopology = 11,         ///< "Topology" is absent or begins neither with "FIIR" nor with "FIR"
    CallbackRefused = 12      ///< a callback returned false
};

/** What a client of the parser wants to hear of; bits of IFIIRCallback::getParseMask. Elements that no bit asks for
    are neither read nor checked. */
enum EParseMask : unsigned
{
    kParseHeader = 1,
    kParseChannels = 2,
    kParseCoefficients = 4
};

/** Why a description was refused, for a person. Parts of the description appear escaped and shortened. */
struct DescriptionProblem
{
    unsigned line = 0;   ///< of the element, or of the syntax error, from 1; 0 when no line can be named
    std::string element; ///< name of the element; empty for a syntax error
    std::string text;    ///< what was found and what was expected
};

/** For example "line 12: taps has 1 number, NbrOfTaps says 4096". */
std::string describe (const DescriptionProblem& problem);

/** Receives what the parser finds, in the order of the text: one header, then for each channel the channel and all
    of its coefficient sets. Pointers are good during the call only. Returning false ends the walk with
    CallbackRefused; an exception ends it with UnknownError. Called on the thread of parse().
*/
class IFIIRCallback
{
public:
    virtual ~IFIIRCallback() = default;

    /** EParseMask bits; asked once, before anything else. */
    virtual unsigned getParseMask() = 0;

    /** Attributes of "Tune"; a text is null when its attribute is absent.

        @param channelCount  as the writer declared it, not checked; 0 if absent
    */
    virtual bool onHeader (const char* projectName, const char* technology, int channelCount, const char* creationDate,
                           const char* creator, const char* creatorVersion, const char* fileName,
                           const char* numberRepresentation, const char* tsexp) = 0;

    /** Attributes of a "Channel".

        @param index            place among the channels, from 0
        @param name             null if absent
        @param number           channel number, counted from 1; 0 if absent
        @param gaindB           0 if absent, as are the other decimals
        @param delayMs          in milliseconds
        @param maxFilterGaindB  largest gain of the channel's filter at any frequency, in dB
        @param subwoofer        -1 if absent
        @param xoverFreq        crossover frequency in Hz
    */
    virtual bool onChannel (unsigned index, const char* name, int number, float gaindB, float delayMs,
                            float maxFilterGaindB, int subwoofer, float xoverFreq) = 0;

    /** A "Coefficients" of the channel last reported.

        @param sampleRate  "Fs" in Hz, not checked; 0 if absent
        @param minPhase    the set is a minimum-phase version
        @param taps        tapCount values
        @param sections    sectionCount rows of a1, a2, b0, b1; null for a set of topology FIR, which has none
        @param extra       "key=value" items joined by ";", at most 1023 bytes; null when there is no "Extra"
    */
    virtual bool onCoefficients (unsigned channelIndex, int sampleRate, bool minPhase, const float* taps,
                                 unsigned tapCount, const float* sections, unsigned sectionCount,
                                 const char* extra) = 0;

    /** Why the latest call returned false, for DescriptionProblem::text; may be empty. */
    virtual std::string getRefusal() const { return {}; }
};

/** Walks through the text of a filter description (docs/filter-description.md) and reports what it finds.

    The text may be hostile: time and memory are bounded by its length, and whatever is wrong with it ends as a
    result. The first failure ends the walk; what was reported until then stays with the client.

    @param text      NUL-terminated UTF-8, with or without a byte order mark; copied
    @param callback  may be null: the whole text is then walked and checked
    @param rootName  name of the root element
    @param problem   receives the reason of a failure; may be null. Left alone on success, and when there is no
                     memory for the reason

    Safe to call from several threads at once.
*/
EResult parse (const char* text, IFIIRCallback* callback, const char* rootName,
               DescriptionProblem* problem = nullptr) noexcept;

}
