// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <juce_core/juce_core.h>

namespace veltra::plugin {

/** The module's own file (of the program, where the code is linked into one), as an absolute path.

    Found out at the first call, which the module makes while it is loaded: a module that was loaded by a relative
    path could not be found any more once the host has changed its folder.
*/
const juce::File& moduleFile();

/** Where the module's settings stand: beside its file, under its name with the extension "settings". */
juce::File settingsFile();

/** True for a file that is there and is neither a folder nor a pipe or device, which could block who opens it. */
bool isOrdinaryFile (const juce::File& file);

}
