// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>
#include <string_view>

#include <juce_core/juce_core.h>

namespace veltra::plugin {

/** A file, pipe or device that is only written to, at its end; one source for each system. A program that the host starts does
    not inherit it. One thread at a time. */
class AppendFile
{
public:
    /** Makes the file where there is none. Does not wait for a pipe's reader.
        @returns  null when it cannot be written */
    static std::unique_ptr<AppendFile> open (const juce::File& file);

    virtual ~AppendFile() = default;

    /** @returns  whether all of it was taken. A pipe or terminal that is full takes nothing; a full disk may take a part. */
    virtual bool write (std::string_view bytes) noexcept = 0;
};

}
