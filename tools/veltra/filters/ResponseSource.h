// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "topology/FilterSource.h"

namespace veltra::host {

/** A source with its coefficients hidden: only the responses can be had, so that a FIIR structure designs its
    own coefficients. Borrows the source. */
class ResponseSource final : public topology::IFIRSource
{
public:
    explicit ResponseSource (topology::IFIRSource& sourceToUse) : source (sourceToUse) {}

    const Eigen::VectorXf& getFIR (unsigned i) override { return source.getFIR (i); }
    float getMaxGaindB (unsigned i) override { return source.getMaxGaindB (i); }
    std::uint32_t getChannelId (unsigned i) override { return source.getChannelId (i); }
    std::string getChannelName (unsigned i) override { return source.getChannelName (i); }
    std::uint32_t getChannelCount() override { return source.getChannelCount(); }
    void log (int level, const std::string& message) override { source.log (level, message); }

private:
    topology::IFIRSource& source;
};

}
