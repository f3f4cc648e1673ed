// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

#include <Eigen/Core>

struct fftwf_plan_s;

namespace veltra::dsp {

/** Gives a vector that is kept and filled again and again its size; its values are void afterwards.

    Eigen's own resize, and assignments that resize, free the old memory before they ask for the new. When there is
    none, the exception leaves a vector behind whose destructor frees the old memory once more.

    @throws std::bad_alloc; the vector is then empty */
template <typename Vector>
void setSize (Vector& vector, Eigen::Index size)
{
    if (vector.size() != size)
    {
        vector = Vector();
        vector = Vector (size);
    }
}

/** Plans for the transform of real samples, of one size, and back. Making plans costs more than ten transforms: take
    those of shared() where a size comes again. The values do not depend on it, equal sizes give equal plans.

    Different threads may use one object at once, each with vectors of its own.
*/
class RealFft
{
public:
    /** @param size  samples of a transform, at least 1
        @throws      std::bad_alloc */
    explicit RealFft (int size);

    /** The process's plans for a size. They are kept for the next caller up to 2^18 samples, and made for this one
        beyond that: the tables of the largest sizes take more memory than they are worth keeping.
        @throws std::bad_alloc
        Any thread. */
    static std::shared_ptr<const RealFft> shared (int size);

    int size() const noexcept { return length; }

    /** Values of a half spectrum: the bins from 0 Hz to half the sample rate. */
    int bins() const noexcept { return length / 2 + 1; }

    /** Samples, size() of them, to a half spectrum, without a scale. Leaves the samples as they are. */
    void forward (const Eigen::VectorXf& samples, Eigen::VectorXcf& spectrum) const;

    /** A half spectrum of bins() values back to samples, divided by size(). Leaves the spectrum as it is. */
    void inverse (const Eigen::VectorXcf& spectrum, Eigen::VectorXf& samples) const;

private:
    struct DestroyPlan
    {
        void operator() (fftwf_plan_s* plan) const noexcept;

        int process; // that made it
    };
    using Plan = std::unique_ptr<fftwf_plan_s, DestroyPlan>;

    int length;
    Plan forwardPlan, inversePlan;
};

}
