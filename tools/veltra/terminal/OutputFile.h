// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <fstream>

#include "tools/veltra/terminal/Transient.h"

namespace veltra::host {

/** A file that appears complete or not at all: it is written beside its place under another name and renamed
    when it is complete; otherwise nothing remains of it, whatever ends the program. */
class OutputFile
{
public:
    /** @param file  an existing one is replaced
        @throws      Failure (kExitOutput) when its folder cannot be written
    */
    explicit OutputFile (const std::filesystem::path& file);

    /** Where to write. Only for writing by way of a stream. */
    std::ofstream& stream();

    /** Where to write. Only for writers that open a file themselves. */
    const std::filesystem::path& temporaryPath() const noexcept { return temporary.path(); }

    /** Puts the file in its place.
        @throws  Failure (kExitOutput) when not all of it could be written
    */
    void complete();

private:
    std::filesystem::path target;
    Transient temporary;
    std::ofstream out;
};

/** Refuses to replace a file unless the user said so.
    @throws  Failure (kExitOutput)
*/
void checkMayWrite (const std::filesystem::path& file, bool force);

}
