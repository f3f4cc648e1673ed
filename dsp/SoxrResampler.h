// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>
#include <mutex>
#include <vector>

struct soxr;

namespace veltra::dsp {

/** Resampling by libsoxr with the two operations of r8brain's CDSPResampler, as far as Resampling.cpp uses them, and
    with the same outcome: linear phase, output sample 0 in line with input sample 0.

    Quality, measured over the usual pairs of rates from 1:32 to 2:1: -3 dB at 0.995 of the lower Nyquist frequency,
    at most 0.0001 dB of ripple up to 0.98 of it, images and aliases at -120 dB or less.

    One object lives at a time: making another one waits for the end of the first. On processors whose vector instructions
    libsoxr does not know it has tables for the whole process, which not every build of it locks.
*/
class SoxrResampler
{
public:
    /** @param ratio  output rate divided by input rate, above 0
        @throws       std::bad_alloc when libsoxr cannot make a resampler
    */
    explicit SoxrResampler (double ratio);

    /** Takes the next samples of the signal.

        @param input   left unchanged unless the ratio is 1, where it is also the output
        @param output  receives a pointer to what has come out, good until the next call
        @returns       how many samples have come out; 0 while the filters fill up
        @throws        std::bad_alloc
    */
    int process (double* input, int count, double*& output);

private:
    struct Deleter
    {
        void operator() (soxr* resampler) const noexcept;
    };

    void push (const double* input, size_t count);

    const std::unique_lock<std::mutex> lock;
    std::unique_ptr<soxr, Deleter> resampler; ///< null at ratio 1
    std::vector<double> made;                 ///< and not yet delivered
    std::vector<double> delivered;            ///< by the last call of process
    size_t toDrop = 0;                        ///< samples to come that belong to the lead-in
};

}
