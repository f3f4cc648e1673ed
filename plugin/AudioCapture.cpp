// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/AudioCapture.h"

#include "common/Clock.h"
#include "common/Log.h"
#include "plugin/HostCall.h"

namespace veltra::plugin {

void AudioCapture::start (veltratune_io::CaptureCallback* newCallback)
{
    stop();

    if (newCallback == nullptr)
        return;

    callback = newCallback;
    packetCount = 0;
    nextCaptureLog = steadyMilliseconds();
    registration.add (connection, *this);
}

void AudioCapture::stop() noexcept
{
    registration.reset();
    callback = nullptr;
}

void AudioCapture::handle (juce::InputStream& stream)
{
    veltraio::Deserializer<veltraio::AudioData>::read (stream, received);
    onEvent (received);
}

void AudioCapture::onEvent (const veltraio::AudioData& packet)
{
    if (const HostCall call (HostCall::Direction::intoHost); call)
        guarded ([&] { deliver (packet); });
}

void AudioCapture::deliver (const veltraio::AudioData& packet)
{
    const int count = packet.data_size();

    if (packetCount == 0)
        callback->OnCaptureStart (count);

    if (callback == nullptr) // stopped by itself
        return;

    callback->OnCaptureData (packet.data().data(), count);
    ++packetCount;

    if (const auto now = steadyMilliseconds(); now >= nextCaptureLog)
    {
        nextCaptureLog = now + 1000;
        VELTRA_LOG (TRACE, "Captured " << packetCount << " packets");
    }
}

}
