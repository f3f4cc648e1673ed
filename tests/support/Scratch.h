// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tools/output/Transient.h"

namespace veltra::host {

/** A test with a folder of its own. */
class ScratchTest : public testing::Test
{
protected:
    std::filesystem::path path (const std::string& name) const { return folder.path() / name; }

    void write (const std::string& name, const std::string& text) const
    {
        std::ofstream (path (name), std::ios::binary) << text;
    }

    static std::string read (const std::filesystem::path& file)
    {
        std::ifstream stream (file, std::ios::binary);
        std::stringstream text;
        text << stream.rdbuf();
        return text.str();
    }

    const Transient folder { makePrivateFolder };
};

}
