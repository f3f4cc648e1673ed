#pragma once

#include <cstdint>

#include "protocol/EnvelopeHash.h"

namespace veltraio {

/** No message of the schema: stands for "every message" when a handler is registered. */
struct AnyMessage
{
};

/** The identifier of message type T on the wire: the envelope hash of its full name, "veltraio.Ping" for example.

    There is no table in the protocol; both sides compute the same values from the schema's names. The wire
    carries the 32-bit pattern, which the code holds in a signed word. Computed when the module is loaded.
*/
template <class T>
struct IdType
{
    static inline const std::int32_t value =
        static_cast<std::int32_t> (envelopeHash (T::default_instance().GetTypeName()));
};

/** Never goes on the wire. */
template <>
struct IdType<AnyMessage>
{
    static constexpr std::int32_t value = 0;
};

}
