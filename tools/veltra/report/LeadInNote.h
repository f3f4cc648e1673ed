// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

#include <Eigen/Core>

namespace veltra::host {

/** Whether the dual-rate structure loses more of a filter, for want of silence in front of it, than it costs anyway. */
bool needsLeadIn (const Eigen::VectorXf& filter);

/** One sentence about such channels, with a line end; empty when there are none.
    @param condition  begins the sentence: when it is true */
std::string leadInNote (const std::string& condition, const std::vector<std::string>& channels);

}
