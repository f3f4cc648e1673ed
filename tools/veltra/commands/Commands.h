// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "tools/CommandLine.h"
#include "tools/receiver/sound/Stimulus.h"
#include "tools/veltra/filters/FilterImport.h"
#include "tools/veltra/session/DeviceSession.h"

namespace veltra::host {

struct ReceiverBlock;

/** Each adds a command to the program's command line. The command runs while the line is parsed, with the
    session options as they are then, and throws Failure for what it cannot do. Results go to standard output. */
void addFindCommand (CLI::App& program, const SessionOptions& session);
void addInfoCommand (CLI::App& program, const SessionOptions& session);
void addImportCommand (CLI::App& program);
void addDesignCommand (CLI::App& program);
void addCheckCommand (CLI::App& program, const SessionOptions& session);
void addCheckDescriptionCommand (CLI::App& program);
void addConvertCommand (CLI::App& program, const SessionOptions& session);
void addInspectCommand (CLI::App& program);
void addPlayCommand (CLI::App& program);
void addResponseCommand (CLI::App& program);
void addDownloadCommand (CLI::App& program, const SessionOptions& session);
void addSlotCommands (CLI::App& program, const SessionOptions& session);
void addStimulusCommand (CLI::App& program, const SessionOptions& session);
void addMeasureCommand (CLI::App& program, const SessionOptions& session);
void addControlCommands (CLI::App& program, const SessionOptions& session);
void addTraceCommand (CLI::App& program, const SessionOptions& session);

/** Adds the options that say which impulse responses a command takes and how their channels are numbered.
    @param import  filled while the command line is parsed
*/
void addImportOptions (CLI::App& command, ImportOptions& import, const char* technology);

/** Adds the option --topology, which takes the name of a filter structure of topology/Topology.h.
    @param about  says what the name is for; the list of names is added to it
*/
CLI::Option* addTopologyOption (CLI::App& command, std::string& name, const std::string& about);

/** Adds --channels, --sections and --rate, which a block does not say itself. */
void addBlockOptions (CLI::App& command, ReceiverBlock& block);

/** A receiver's own text about a stimulus.
    @throws  Failure (kExitUsage) when it does not have it at this rate */
std::string stimulusDescription (const veltratune_io::Device2& device, veltratune_io::EStimulus stimulus,
                                 std::uint32_t rate);

/** The stimulus that a text describes.
    @throws  Failure (kExitInput) */
tools::Stimulus describedStimulus (veltratune_io::EStimulus stimulus, std::uint32_t rate,
                                   const std::string& description);

/** The explanation of the options of addImportOptions, for a command's footer. */
extern const char* const kImportNotes;

}
