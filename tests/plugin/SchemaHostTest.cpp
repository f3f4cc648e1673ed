/** @file
    A host that has the protocol's schema itself, as full protobuf classes, and logs with log4cplus itself.
*/

#include <google/protobuf/descriptor.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>
#include <log4cplus/logger.h>

#include "protocol/veltraio.pb.h" // the test's own, not the module's
#include "tests/plugin/HostModule.h"
#include "tests/plugin/LogCapture.h"
#include "tests/plugin/ReceiverProcess.h"
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

class SchemaHost : public testing::Test
{
protected:
    SchemaHost() : file (copyModule (folder.path))
    {
        writeFile (folder.path / "MorvaneVeltraIO.settings", settingsText ("Device", "TCP:" + receiver.address()));
    }

    const TemporaryFolder folder;
    const std::filesystem::path file;
    const ReceiverProcess receiver { "stereo" };
};

}

TEST_F (SchemaHost, LivesBesideTheModuleHoweverOftenThatComesAndGoes)
{
    expectHostSchemaWorks();
    const auto log = folder.path / "veltra.log";
    testing::internal::CaptureStderr();

    for (int round = 0; round < 3; ++round)
    {
        HostModule module (file);
        module.setLogPath (log.c_str(), -1, 10000);
        auto* const plugin = module.get (5);
        ASSERT_TRUE (plugin->FindDevices());
        Device* device = nullptr;
        ASSERT_TRUE (plugin->GetDevice (0, &device));
        EXPECT_STREQ (device->GetName(), "Morvane|Stereo 2|Main");
        EXPECT_TRUE (device->SetVolume (0.5f));
        expectHostSchemaWorks();
        module.release (plugin);
        module.unload();
        EXPECT_FALSE (HostModule::isLoaded (file));
        expectHostSchemaWorks();
    }

    EXPECT_EQ (testing::internal::GetCapturedStderr(), "");
    EXPECT_NE (readFile (log).find ("manufacturer: \"Morvane\""), std::string::npos) << "the text form works beside the host's";
}

TEST_F (SchemaHost, KeepsItsOwnLog)
{
    LogCapture own;
    auto root = log4cplus::Logger::getRoot();
    root.setLogLevel (log4cplus::INFO_LOG_LEVEL);
    HostModule module (file);
    EXPECT_EQ (root.getLogLevel(), log4cplus::INFO_LOG_LEVEL);
    EXPECT_EQ (root.getAllAppenders().size(), 1u);

    auto* const plugin = module.get (5);
    ASSERT_TRUE (plugin->FindDevices());
    EXPECT_TRUE (own.has ("INFO Device is specified as TCP:" + receiver.address() + ", skipping UPnP search"))
        << "the module's lines go where the host's go";
    module.unload();
    EXPECT_EQ (root.getAllAppenders().size(), 1u);
    EXPECT_EQ (root.getLogLevel(), log4cplus::INFO_LOG_LEVEL);
}

/** A host that has no log keeps one that the module leaves behind from complaining. */
TEST_F (SchemaHost, AModuleThatIsUnloadedWithoutReleaseLeavesNoLogFileOpen)
{
    HostModule module (file);
    module.setLogPath ((folder.path / "veltra.log").c_str(), -1, 0);
    ASSERT_TRUE (module.get (5)->FindDevices());
    auto root = log4cplus::Logger::getRoot();
    EXPECT_EQ (root.getAllAppenders().size(), 1u);
    module.unload();
    EXPECT_TRUE (root.getAllAppenders().empty());
    EXPECT_EQ (root.getLogLevel(), log4cplus::OFF_LOG_LEVEL);
}

}
