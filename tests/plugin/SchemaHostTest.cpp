// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    A host that has the protocol's schema itself, as full protobuf classes, and logs with log4cplus itself.
*/

#include <google/protobuf/descriptor.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>
#include <log4cplus/logger.h>

#include "common/SettingKeys.h"
#include "protocol/veltraio.pb.h" // the test's own, not the module's
#include "tests/plugin/HostModule.h"
#include "tests/support/LogLines.h"
#include "tests/support/Program.h"
#include "veltratune_io/Device.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

/** The host's classes do what they should. */
void expectHostSchemaWorks()
{
    EXPECT_NE (google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName ("veltraio.Unit"), nullptr);

    veltraio::Volume volume;
    ASSERT_TRUE (google::protobuf::TextFormat::ParseFromString ("deviceIndex: 3 volume: 0.5", &volume));
    EXPECT_EQ (volume.ShortDebugString(), "deviceIndex: 3 volume: 0.5");
}

/** The simulated receiver is a program of its own: its library has classes of the schema too. */
class SchemaHost : public host::Program
{
protected:
    SchemaHost()
    {
        start ({ RECEIVER_PROGRAM, "--profile", "stereo", "--log", "nothing" });
        waitFor ("out", "\n");
        const auto line = read (path ("out"));
        address = "TCP:" + line.substr (line.find ("127"), line.find ('\n') - line.find ("127"));
        copy.emplace (MODULE_FILE, std::map<std::string, std::string> { { keys::kDevice, address } });
    }

    std::string address;
    std::optional<host::ModuleCopy> copy;
    const std::filesystem::path log = path ("veltra.log");
};

}

TEST_F (SchemaHost, LivesBesideTheModuleHoweverOftenThatComesAndGoes)
{
    expectHostSchemaWorks();
    testing::internal::CaptureStderr();

    for (int round = 0; round < 3; ++round)
    {
        HostModule module (copy->path());
        module.setLogPath (log.c_str(), -1, 10000);
        auto* const plugin = module.get (5);
        ASSERT_TRUE (plugin->FindDevices());
        EXPECT_STREQ (HostModule::device (*plugin).GetName(), "Morvane|Stereo 2|Main");
        expectHostSchemaWorks();
        module.release (plugin);
        module.unload();
        EXPECT_FALSE (HostModule::isLoaded (copy->path()));
        expectHostSchemaWorks();
    }

    EXPECT_EQ (testing::internal::GetCapturedStderr(), "");
    EXPECT_NE (read (log).find ("manufacturer: \"Morvane\""), std::string::npos) << "the text form works too";
}

TEST_F (SchemaHost, KeepsItsOwnLogAndNoLogFileIsLeftOpenByAModuleThatIsUnloadedWithoutRelease)
{
    auto root = log4cplus::Logger::getRoot();
    root.setLogLevel (log4cplus::WARN_LOG_LEVEL);

    for (const bool isReleased : { true, false })
    {
        HostModule module (copy->path());
        EXPECT_EQ (log4cplus::WARN_LOG_LEVEL, root.getLogLevel()) << "loading the module leaves the host's level alone";
        module.setLogPath (log.c_str(), -1, 0);
        auto* const plugin = module.get (5);
        ASSERT_TRUE (plugin->FindDevices());
        EXPECT_EQ (1u, root.getAllAppenders().size());
        EXPECT_EQ (0, root.getLogLevel());

        if (isReleased)
            module.release (plugin);
        else
            module.unload();

        EXPECT_TRUE (root.getAllAppenders().empty());
        EXPECT_EQ (log4cplus::WARN_LOG_LEVEL, root.getLogLevel());
    }

    const LogLines own;
    root.setLogLevel (log4cplus::INFO_LOG_LEVEL);
    HostModule again (copy->path());
    ASSERT_TRUE (again.get (5)->FindDevices());
    EXPECT_EQ (own.all().front().text, "Device is specified as " + address + ", skipping UPnP search")
        << "the module's lines go where the host's go";
    again.unload();
    EXPECT_EQ (root.getAllAppenders().size(), 1u);
    EXPECT_EQ (root.getLogLevel(), log4cplus::INFO_LOG_LEVEL);
}

}
