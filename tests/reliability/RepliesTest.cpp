// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Replies carry no number. Whatever a receiver does to their time and count, a download leaves what was meant or fails in
    words, and the exchanges behind it get their own replies. docs/reliability.md says how.
*/

#include "common/SettingKeys.h"
#include "tests/support/DeviceFixture.h"

#include <future>
#include <random>

namespace veltra::test {

namespace {

using namespace veltratune_io;

/** Every reply twice: an Acknowledge without words has 17 bytes. */
const std::string saidTwice = "duplicate * *\npieces * * 17 3\n";

struct Manners
{
    std::string name;
    std::string always;   ///< faults from the opening of the session to its end
    std::string faults;   ///< faults of the download
    bool mayFail = false; ///< with words
    std::string chunkTimeout_ms = "400";
};

std::vector<Manners> receivers()
{
    std::vector<Manners> rows;

    // The chunk that stalls is sent twice and acknowledged twice.
    for (const int work_ms : { 0, 1, 2, 3, 5, 8, 12, 20 })
    {
        const auto work = " " + std::to_string (work_ms) + "\n";
        rows.push_back ({ "Works" + std::to_string (work_ms) + "ms", "",
                          "delay FilterDataChunk 1-6" + work + "delay FilterDataChunk 7 1200\n"
                              + "delay FilterDataChunk 8+" + work + "refuse FilterDataChunk 20 'flash busy'" });
    }

    rows.push_back ({ "WithDefaults", "",
                      "delay FilterDataChunk 7 4000\ndelay FilterDataChunk 1-6 2\ndelay FilterDataChunk 8+ 2\n"
                      "refuse FilterDataChunk 20 'flash busy'",
                      false, "3000" });
    rows.push_back ({ "StallsForThreeAttempts", "",
                      "delay FilterDataChunk 7 2000\ndelay FilterDataChunk 8+ 2\nrefuse FilterDataChunk 20" });
    rows.push_back ({ "LosesAReply", "", "lose-reply FilterDataChunk 7\nrefuse FilterDataChunk 20 'flash busy'" });
    rows.push_back ({ "SaysEverythingTwice", saidTwice, "refuse FilterDataChunk 20" });

    // The refusal comes for a later chunk, unless the second reply happens to arrive between two exchanges.
    rows.push_back ({ "SaysOneThingTwice", "",
                      "delay FilterDataChunk * 5\nduplicate FilterDataChunk 10\npieces FilterDataChunk 10 17 3\n"
                      "refuse FilterDataChunk 20 'busy'",
                      true });
    rows.push_back ({ "SaysOneThingTwiceAndRefusesTheLast", "",
                      "delay FilterDataChunk * 5\nduplicate FilterDataChunk 10\npieces FilterDataChunk 10 17 3\n"
                      "refuse FilterDataChunk 32 'busy'",
                      true });
    rows.push_back ({ "SaysALateThingTwice", "",
                      "delay FilterDataChunk 7 1200\nduplicate FilterDataChunk 7\npieces FilterDataChunk 7 17 3\n"
                      "delay FilterDataChunk 8+ 20\nrefuse FilterDataChunk 20 'busy'" });
    return rows;
}

class Host : public DeviceFixture
{
public:
    explicit Host (const Manners& receiverManners) : manners (receiverManners)
    {
        log.reset(); // collects for the whole process
        useFirOnly (32 * 1024);
        settings[keys::kFilterDataChunkTimeout] = manners.chunkTimeout_ms;
    }

    void TestBody() override {}

    void open()
    {
        setFaults (manners.always);
        ASSERT_TRUE (find());
    }

    /** @param meant  what the slot holds after a download that nothing disturbs */
    void downloadAndGoOn (const std::string& meant)
    {
        auto& opened = device (0);
        setFaults (manners.always + manners.faults);
        const auto result = download (opened, text());
        EXPECT_TRUE (result == kResultOk || manners.mayFail) << manners.name;

        if (result == kResultOk)
            EXPECT_TRUE (block() == meant) << manners.name;
        else
            EXPECT_NE ("", takeLastError (opened)) << manners.name;

        setFaults (manners.always + "refuse ActiveFilterSlot 1");
        EXPECT_FALSE (opened.SetActiveFilterSlot (2)) << manners.name << ": refused";
        EXPECT_TRUE (opened.SetVolume (0.5f)) << manners.name;
    }

    std::string downloadUndisturbed()
    {
        EXPECT_EQ (kResultOk, download (device (0), text()));
        return block();
    }

private:
    /** The bytes of the slot that is complete; empty when it is not. */
    std::string block() const
    {
        const auto slot = receiver->slots()[2];
        return slot.state == receiver::Slot::State::occupied ? slot.blocks[0].bytes : std::string();
    }

    static std::string text()
    {
        std::mt19937 random (1);
        std::vector<float> taps (4096);

        for (auto& tap : taps)
            tap = static_cast<float> (random()) * 1e-9f;

        return DescriptionBuilder().channel ("FL", 1).fir (44100, taps).channel ("SW", 2).fir (44100, taps).text();
    }

    const Manners& manners;
};

}

TEST (Replies, ADownloadLeavesWhatWasMeantOrFailsInWordsAndTheNextExchangesGetTheirOwn)
{
    const Manners good;
    Host undisturbed (good);
    undisturbed.open();
    const auto meant = undisturbed.downloadUndisturbed();
    ASSERT_EQ (32u * 1024u, meant.size());

    // Made and destroyed on this thread, since the base class of a test is not for several.
    const auto rows = receivers();
    std::vector<std::unique_ptr<Host>> hosts;
    std::vector<std::future<void>> done;

    for (const auto& row : rows)
        hosts.emplace_back (std::make_unique<Host> (row))->open();

    for (const auto& host : hosts)
        done.push_back (std::async (std::launch::async, [&] { host->downloadAndGoOn (meant); }));
}

}
