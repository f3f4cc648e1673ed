// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <Eigen/Core>

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

}
