#include "tests/plugin/DownloadFixture.h"

namespace veltra::test {

std::vector<FilterChannel> DownloadFixture::smallFilters()
{
    return {
        { .name = "FL", .number = 1, .gain_dB = -1.5f, .delay_ms = 2.25f, .maxGain_dB = 3.0f,
          .sets = { { .rate = 44100, .taps = { 1.0f, 0.5f, -0.25f, 0.125f, 2.0f, -1.0f, 0.75f, 0.1f, 9.0f }, .sections = {},
                      .extra = {} },
                    { .rate = 48000, .taps = { 0.9f, 0.8f, 0.7f, 0.6f, 0.5f, 0.4f, 0.3f, 0.2f },
                      .sections = { { -1.5f, 0.6f, 0.01f, 0.02f }, { 0.25f, 0.125f, 1.0f, -1.0f } },
                      .extra = "Delay=48" } } },
        { .name = "SW", .number = 2, .gain_dB = 4.0f, .delay_ms = 0.0f, .maxGain_dB = 10.0f,
          .sets = { { .rate = 44100, .taps = { 0.0f, 1.0f }, .sections = {}, .extra = {} },
                    { .rate = 48000, .taps = { 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f, 8.0f },
                      .sections = { { 0.5f, 0.25f, -0.5f, 0.75f }, { 0.0f, 0.0f, 0.1f, 0.0f } }, .extra = {} } } },
    };
}

void DownloadFixture::useFirOnly (std::uint32_t bytes)
{
    auto& configuration = *profile.unit.mutable_devices (0)->mutable_configurations (0);
    configuration.clear_samplerates();
    configuration.add_samplerates (44100);
    profile.topologyInfo.mutable_topologies (0)->set_information ("NbrOfFIRTaps=" + std::to_string (bytes / 2 / 4));
}

std::vector<std::size_t> DownloadFixture::chunkSizes() const
{
    std::vector<std::size_t> sizes;

    for (const auto& entry : receiver->messages ("FilterDataChunk"))
    {
        veltraio::FilterDataChunk chunk;
        EXPECT_TRUE (chunk.ParseFromString (entry.body));
        sizes.push_back (chunk.data (0).size());
    }

    return sizes;
}

std::vector<std::string> DownloadFixture::failuresLogged() const
{
    std::vector<std::string> lines;

    for (const auto& line : log.lines())
        if (line.starts_with ("WARN") || line.starts_with ("ERROR") || line.starts_with ("FATAL"))
            lines.push_back (line);

    return lines;
}

}
