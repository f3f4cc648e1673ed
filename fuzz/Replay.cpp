// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    A target without libFuzzer: runs each file of the given folders once. A file that was a finding stays
    in the corpus, so the normal tests meet it again with every compiler and sanitizer.
*/

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "fuzz/FuzzTarget.h"

int main (int argc, char** argv)
{
    std::vector<std::filesystem::path> files;

    for (int i = 1; i < argc; ++i)
        for (const auto& entry : std::filesystem::directory_iterator (argv[i]))
            files.push_back (entry.path());

    for (const auto& file : files)
    {
        std::ifstream stream (file, std::ios::binary);
        const std::vector<char> bytes { std::istreambuf_iterator<char> (stream), {} };

        std::cerr << file.filename().string() << std::endl; // before the run: the last line names what ended it
        LLVMFuzzerTestOneInput (reinterpret_cast<const std::uint8_t*> (bytes.data()), bytes.size());
    }

    std::cerr << files.size() << " inputs" << std::endl;
    return files.empty() ? EXIT_FAILURE : EXIT_SUCCESS;
}
