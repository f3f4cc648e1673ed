// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    A constructor for each class of the boundary, so that a compiler that reads this has to lay out its table of operations. */

#include "veltratune_io/Plugin.h"

#define CONSTRUCTED(Interface)                                                                                         \
    struct Constructed##Interface : veltratune_io::Interface                                                           \
    {                                                                                                                  \
        Constructed##Interface();                                                                                      \
    };                                                                                                                 \
    Constructed##Interface::Constructed##Interface() {}

CONSTRUCTED (Plugin)
CONSTRUCTED (Device2)
CONSTRUCTED (Filter)
CONSTRUCTED (FilterSet)
CONSTRUCTED (CaptureCallback)
CONSTRUCTED (ProgressCallback)
