// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    JUCE streams as standard stream buffers, for protobuf's istream and ostream operations. An adaptor borrows the
    stream, cannot seek, and belongs to one thread.
*/

#include <array>
#include <streambuf>

#include <juce_core/juce_core.h>

namespace veltra::ipc {

template <class CharT>
class StreamBufferHandler : public std::basic_streambuf<CharT>
{
protected:
    using Base = std::basic_streambuf<CharT>;
    using typename Base::int_type;
    using typename Base::traits_type;

    static constexpr int kBufferSize = 32768;

    int_type overflow (int_type character) override
    {
        if (! flush())
            return traits_type::eof();

        this->setp (buffer.data(), buffer.data() + kBufferSize);

        if (! traits_type::eq_int_type (character, traits_type::eof()))
            return this->sputc (traits_type::to_char_type (character));

        return traits_type::not_eof (character);
    }

    int_type underflow() override
    {
        const int got = readBytes (buffer.data(), kBufferSize);

        if (got <= 0)
            return traits_type::eof();

        this->setg (buffer.data(), buffer.data(), buffer.data() + got);
        return traits_type::to_int_type (*this->gptr());
    }

    int sync() override { return flush() ? 0 : -1; }

    virtual bool writeBytes (const CharT* data, int size) = 0;
    virtual int readBytes (CharT* data, int size) = 0;

private:
    bool flush()
    {
        const auto pending = static_cast<int> (this->pptr() - this->pbase());
        const bool written = pending == 0 || writeBytes (this->pbase(), pending);
        this->setp (this->pbase(), this->epptr());
        return written;
    }

    std::array<CharT, kBufferSize + 1> buffer; // on purpose not cleared: 32 KiB a message would be felt
};

/** Reads through juce::InputStream::read and ignores writes. */
template <class CharT>
class InputStreamBuffer final : public StreamBufferHandler<CharT>
{
public:
    explicit InputStreamBuffer (juce::InputStream& streamToRead) : stream (streamToRead) {}

private:
    bool writeBytes (const CharT*, int) override { return true; }
    int readBytes (CharT* data, int size) override { return stream.read (data, size); }

    juce::InputStream& stream;
};

/** Writes through juce::OutputStream::write, at the latest with a flush, and reads nothing. */
template <class CharT>
class OutputStreamBuffer final : public StreamBufferHandler<CharT>
{
public:
    explicit OutputStreamBuffer (juce::OutputStream& streamToWrite) : stream (streamToWrite) {}

private:
    bool writeBytes (const CharT* data, int size) override { return stream.write (data, static_cast<size_t> (size)); }
    int readBytes (CharT*, int) override { return 0; }

    juce::OutputStream& stream;
};

}
