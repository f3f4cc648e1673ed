#include "common/Utf8.h"

namespace veltra {

namespace {

bool isContinuation (unsigned char byte) noexcept { return (byte & 0xc0) == 0x80; }

/** Length of the well-formed sequence at the start of a text that is not empty, 0 when there is none. */
size_t sequenceLength (std::string_view text) noexcept
{
    const auto byte = [&] (size_t i) { return static_cast<unsigned char> (text[i]); };
    const auto first = byte (0);
    const size_t length = first < 0x80   ? 1
                          : first < 0xc2 ? 0
                          : first < 0xe0 ? 2
                          : first < 0xf0 ? 3
                          : first < 0xf5 ? 4
                                         : 0;

    if (text.size() < length)
        return 0;

    for (size_t i = 1; i < length; ++i)
        if (! isContinuation (byte (i)))
            return 0;

    // The second byte tells overlong forms, surrogates and codes beyond U+10FFFF.
    if ((first == 0xe0 && byte (1) < 0xa0) || (first == 0xed && byte (1) > 0x9f) || (first == 0xf0 && byte (1) < 0x90)
        || (first == 0xf4 && byte (1) > 0x8f))
        return 0;

    return length;
}

}

std::string toValidUtf8 (std::string_view text)
{
    std::string valid;
    valid.reserve (text.size());

    while (! text.empty())
    {
        const auto length = sequenceLength (text);

        if (length == 0)
            valid += '?';
        else
            valid += text.substr (0, length);

        text.remove_prefix (length == 0 ? 1 : length);
    }

    return valid;
}

}
