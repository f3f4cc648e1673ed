// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/veltra/check/Wire.h"

/** @file
    What a receiver has to do, as a list of checks. Each of them opens its own connections, holds one rule of
    docs/wire-format.md, and leaves the receiver as it was, but for the slot that the user gives away.
*/

namespace veltra::check {

/** Thrown by a check that this receiver cannot be asked. */
struct Skip
{
    std::string reason;
};

/** What the checks know of the receiver, and what the user allows. */
struct Subject
{
    Target target;
    std::optional<std::uint32_t> slot; ///< that may be overwritten
    double minutes = 1.0;              ///< of the soak

    // Filled by the checks of level 1.
    veltraio::ProtocolInfo protocolInfo;
    veltraio::Unit unit;
    veltraio::TopologyInfo topologyInfo;
    veltraio::StimulusInfo stimulusInfo;

    const veltraio::Unit::Device& device() const { return unit.devices (0); }
    bool can (veltraio::Unit::Caps capability) const { return (unit.capabilities() & capability) != 0; }

    /** The announced limit, 460 when there is none; 0: no limit. */
    std::uint32_t messageLimit() const { return protocolInfo.has_messagelimit() ? protocolInfo.messagelimit() : 460; }
};

struct Check
{
    const char* name;
    int level;
    const char* section;            ///< of docs/wire-format.md
    std::vector<const char*> needs; ///< checks without which this one says nothing; the names of earlier ones
    void (*run) (Subject&);
};

enum class Outcome
{
    passed,
    failed,
    skipped
};

struct Result
{
    const Check* check;
    Outcome outcome = Outcome::passed;
    Finding finding;    ///< when it failed
    std::string reason; ///< when it was skipped
    double seconds = 0.0;
};

// The checks of each subject, in the order in which they run.
void addQuestionChecks (std::vector<Check>&);
void addCommandChecks (std::vector<Check>&);
void addDownloadChecks (std::vector<Check>&);
void addEnvelopeChecks (std::vector<Check>&);
void addSessionChecks (std::vector<Check>&);
void addMeasurementChecks (std::vector<Check>&);

/** All of them. */
const std::vector<Check>& allChecks();

/** Runs the checks up to a level. Volume, attenuations, active slot and filtering are put back at the end, whatever happens.

    @param onResult  called after each check
    @throws          Cancelled, after putting back */
std::vector<Result> runChecks (Subject&, int level, const std::function<void (const Result&)>& onResult);

/** A number as messages show it. */
std::string numberText (double number);

}
