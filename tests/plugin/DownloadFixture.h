#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/plugin/DeviceFixture.h"
#include "tests/plugin/FilterText.h"

namespace veltra::test {

/** Remembers what a download reports. */
class ProgressLog final : public veltratune_io::ProgressCallback
{
public:
    void Reserved1() override { texts.push_back ("reserved"); }

    void OnProgressText (const char* text, std::uint32_t length) override
    {
        texts.push_back (text + ("/" + std::to_string (length)));
    }

    bool OnProgress (float fraction) override
    {
        fractions.push_back (fraction);
        return onProgress == nullptr || onProgress();
    }

    std::vector<std::string> texts;
    std::vector<float> fractions;
    std::function<bool()> onProgress;
};

class DownloadFixture : public DeviceFixture
{
protected:
    /** A filter for each channel of smallProfile() at both of its rates. */
    static std::vector<FilterChannel> smallFilters();

    static std::string smallText() { return filterText ("Room", "FIIR", smallFilters()); }

    /** Bytes of smallText() on the device. */
    static constexpr std::uint64_t firBytes = 2 * 8 * 4;
    static constexpr std::uint64_t fiirBytes = 2 * (8 + 2 * 4) * 4;

    /** Leaves one rate with FIR data of so many bytes: the other goes from the configuration. */
    void useFirOnly (std::uint32_t bytes);

    veltratune_io::EResult download (veltratune_io::Device2& opened, const std::string& text, std::uint32_t slot = 2)
    {
        return opened.DownloadFilterSet (slot, text.c_str(), 0, &progress);
    }

    std::size_t chunks() const { return receiver->messageCount ("FilterDataChunk"); }

    /** The sizes of all chunks that the receiver got. */
    std::vector<std::size_t> chunkSizes() const;

    /** Lines at WARN and above. */
    std::vector<std::string> failuresLogged() const;

    ProgressLog progress;
};

}
