// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "tools/ExitStatus.h"
#include "tools/output/Transient.h"

namespace veltra {

/** A file that appears complete or not at all. It is written under another name beside its target and renamed when it is
    complete; whatever ends the program before, nothing remains of it.

    Symbolic links are followed. A file that exists keeps its mode and owner. What is not a regular file (a device, a
    pipe), and a file whose owner or folder does not allow a rename, is written into when the output is complete, "-" and
    its likes are standard output; the program's own texts then go to standard error.
*/
class OutputFile
{
public:
    /** @throws  Failure (kExitOutput) when the target cannot be written; a folder that does not exist is not made */
    explicit OutputFile (const std::filesystem::path& file);

    /** Where to write. Only for writing by way of a stream. */
    std::ofstream& stream();

    /** Where to write. Only for writers that open a file themselves. */
    const std::filesystem::path& temporaryPath() const noexcept { return temporary; }

    /** The file as the user named it, for texts. */
    const std::filesystem::path& shownName() const noexcept { return name; }

    /** Puts the file in its place. May wait for a pipe's reader; signals then end the program.
        @throws  Failure (kExitOutput) when not all of it could be written
    */
    void complete();

private:
    enum class Way
    {
        rename,
        writeInto,
        standardOutput
    };

    Failure notWritable (const std::string& reason) const;
    bool canRename();

    const std::filesystem::path name; // as the user gave it
    std::filesystem::path target;     // without links
    Way way = Way::rename;
    std::unique_ptr<Transient> transient;
    std::filesystem::path temporary;
    std::ofstream out;
};

/** Refuses to replace a file unless the user said so; devices and pipes are not replaced. Reserves standard output for
    the file if that is what the name means.
    @throws  Failure (kExitOutput)
*/
void checkMayWrite (const std::filesystem::path& file, bool force);

/** Makes a folder for output files, unless it exists. Its parent is not made, since it may be a typing error.
    @throws  Failure (kExitOutput)
*/
void makeOutputFolder (const std::filesystem::path& folder);

/** For the end of a program: passes on what it has printed.
    @throws  Failure (kExitOutput) when not all of it could be written
*/
void finishStandardOutput();

}
