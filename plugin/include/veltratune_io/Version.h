// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    The version of these headers, for the preprocessor.
*/

/** Of the release that the headers came with. A module of another release works with them, too. */
#define VELTRATUNE_IO_VERSION_MAJOR 1
#define VELTRATUNE_IO_VERSION_MINOR 0
#define VELTRATUNE_IO_VERSION_PATCH 0

/** The same as one number that grows: 1.2.3 is 10203. */
#define VELTRATUNE_IO_VERSION                                                                                          \
    (VELTRATUNE_IO_VERSION_MAJOR * 10000 + VELTRATUNE_IO_VERSION_MINOR * 100 + VELTRATUNE_IO_VERSION_PATCH)

/** Of the binary interface: the only number that GetVersionedPluginObject answers. */
#define VELTRATUNE_IO_INTERFACE_VERSION 5
