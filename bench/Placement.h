// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sched.h>

/** @file
    Which processor a thread runs on. The time of an exchange depends on whether its two sides share one more than on
    anything else, so the rows of exchanges fix it.
*/

namespace veltra::bench {

/** Keeps the calling thread, and the threads that it starts, on one processor for as long as the object lives. */
class OnProcessor
{
public:
    /** @param index  among the processors that the process may use, from 0; the last one where there are fewer */
    explicit OnProcessor (int index)
    {
        ::sched_getaffinity (0, sizeof (before), &before);
        cpu_set_t chosen;
        CPU_ZERO (&chosen);

        for (int processor = 0; processor < CPU_SETSIZE && index >= 0; ++processor)
            if (CPU_ISSET (processor, &before))
            {
                CPU_ZERO (&chosen);
                CPU_SET (processor, &chosen);
                --index;
            }

        ::sched_setaffinity (0, sizeof (chosen), &chosen);
    }

    ~OnProcessor() { ::sched_setaffinity (0, sizeof (before), &before); }

    OnProcessor (const OnProcessor&) = delete;
    OnProcessor& operator= (const OnProcessor&) = delete;

private:
    cpu_set_t before {};
};

}
