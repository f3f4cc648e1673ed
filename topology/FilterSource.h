// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "dsp/FIIRSection.h"

namespace veltra::topology {

/** The FIIR form of one channel: y = taps * x + the sum of all sections, fed with x delayed by taps.size(). */
struct FIIRData
{
    Eigen::VectorXf taps;
    std::vector<dsp::FIIRSection> sections;
};

/** What a topology sees of a filter set: a list of channels with an impulse response each, all at one sample
    rate that the maker of the source knows. Places `i` count from 0 to getChannelCount() - 1.

    A source may compute lazily, so call from one thread at a time.
*/
class IFIRSource
{
public:
    virtual ~IFIRSource() = default;

    /** Impulse response of channel i; empty when there is none at this rate. The reference stays good as long
        as the source's filter set does. */
    virtual const Eigen::VectorXf& getFIR (unsigned i) = 0;

    /** Largest gain that the filter of channel i has at any frequency, in dB. */
    virtual float getMaxGaindB (unsigned i) = 0;

    /** The device's number of channel i. */
    virtual std::uint32_t getChannelId (unsigned i) = 0;

    /** Name of channel i. */
    virtual std::string getChannelName (unsigned i) = 0;

    virtual std::uint32_t getChannelCount() = 0;

    /** Writes to the log. Levels: 0 trace, 1 debug, 2 info, 3 warning, 4 error; others write nothing. */
    virtual void log (int level, const std::string& message) = 0;
};

/** A source that also holds the channels' coefficients as their designer made them. */
class IFIIRSource : public IFIRSource
{
public:
    /** The coefficients of channel i at exactly the source's rate; empty when there are none. */
    virtual FIIRData getFIIR (unsigned i) = 0;
};

}
