// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <fstream>
#include <string>

namespace veltra::bench {

/** Watches how far the process grows over what is resident when the object is made. Linux only; elsewhere 0. */
class PeakMemory
{
public:
    PeakMemory()
    {
        std::ofstream ("/proc/self/clear_refs") << "5"; // sets the peak back to the present
        before = statusMiB ("VmRSS:");
    }

    double growth_MiB() const { return statusMiB ("VmHWM:") - before; }

private:
    /** A value of /proc/self/status. */
    static double statusMiB (const std::string& key)
    {
        std::ifstream status ("/proc/self/status");

        for (std::string line; std::getline (status, line);)
            if (line.starts_with (key))
                return std::stod (line.substr (key.size() + 1)) / 1024.0;

        return 0.0;
    }

    double before = 0.0;
};

}
