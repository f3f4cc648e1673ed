// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <string>

#include <juce_core/juce_core.h>

namespace veltra::plugin {

/** The module's own file (of the program, where the code is linked into one), as an absolute path.

    Determined at the first call, which the module makes while it is loaded: after the host has changed its folder, the
    relative path that a module was loaded by no longer leads to it.
*/
const juce::File& moduleFile();

/** The module's settings file: beside the module, with its name and the extension "settings". */
juce::File settingsFile();

/** True for a file that is there and is neither a folder nor a pipe or device, which could block who opens it. */
bool isOrdinaryFile (const juce::File& file);

/** The bytes of an ordinary file, empty when it cannot be read. A program that the host starts does not inherit the
    descriptor, unlike that of JUCE's streams.
    @param most  no more bytes than these are read
    @throws      std::bad_alloc */
std::string readFile (const juce::File& file, std::size_t most);

}
