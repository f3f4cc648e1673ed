// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    Where the place of a class's destructor in its table of operations differs between compilers.

    On Windows the application and the module may come from different compilers. Their objects agree in everything that
    these headers use but one: for a virtual destructor Microsoft's compiler has one place in the table, and GCC and clang in
    MinGW's way have two. There a plain operation takes the one place, so that the following operations stand where Microsoft's
    compiler looks for them. Nobody calls it: objects are never deleted through these classes.

    Served are hosts of 64 bits by Microsoft's compiler, by clang for either kind of target, and by MinGW's GCC. Not served:
    a host's dynamic_cast and typeid on the module's objects (the descriptions of types differ), and Microsoft's exceptions
    out of callbacks, which would end the process.
*/

#if defined(_WIN32) && ! defined(_MSC_VER)
#define VELTRATUNE_IO_DESTRUCTOR(Class)                                                                                \
    ~Class() = default;                                                                                                \
                                                                                                                       \
private:                                                                                                               \
    virtual void placeOfTheDestructor() {}
#else
#define VELTRATUNE_IO_DESTRUCTOR(Class) virtual ~Class() = default;
#endif

#if defined(_WIN32)
static_assert (sizeof (void*) == 8, "The module exists for processes of 64 bits only");

#if defined(_MSC_VER)
namespace veltratune_io {
namespace layout {

template <typename A, typename B>
struct Same
{
    static constexpr bool value = false;
};

template <typename A>
struct Same<A, A>
{
    static constexpr bool value = true;
};

// The option /Gv makes these differ.
static_assert (Same<void (*) (float), void (__cdecl*) (float)>::value, "The boundary's calling convention is __cdecl");

}
}
#endif
#endif
