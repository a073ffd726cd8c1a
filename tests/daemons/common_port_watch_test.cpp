/*
 * Local ports whose names are deleted: they come back, unless another socket has the port meanwhile.
 */
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "daemons/common/descriptor.h"
#include "daemons/common/descriptor_reserve.h"
#include "daemons/common/local_listener.h"
#include "daemons/common/log.h"
#include "daemons/common/port_watch.h"
#include "tests/daemons/descriptor_shortage.h"
#include "tests/daemons/runtime_folder.h"

using namespace mcastd;

namespace
{

constexpr uint16_t PORT = 2298;

class WatchedPort : public testing::Test
{
protected:
    WatchedPort()
    {
        log_open("test", static_cast<LogLevel>(-1)); // warnings are expected
    }
    ~WatchedPort() override
    {
        log_open("daemon", LogLevel::Info);
    }
    void delete_names() const
    {
        for (const auto &each : std::filesystem::directory_iterator(folder_.path())) {
            std::filesystem::remove_all(each.path());
        }
    }

    PortWatch watch;

private:
    RuntimeFolder folder_;
};

TEST_F(WatchedPort, ThatLostItsNameGetsItBack)
{
    const uint64_t before = local_ports_rebound();
    const Descriptor listener(listen_local(PORT));
    ASSERT_TRUE(listener.valid());
    EXPECT_TRUE(watch.look());
    EXPECT_EQ(local_ports_rebound(), before);
    delete_names();
    EXPECT_TRUE(watch.look());
    EXPECT_EQ(local_ports_rebound(), before + 1);
    EXPECT_TRUE(watch.look());
    EXPECT_EQ(local_ports_rebound(), before + 1);
}

TEST_F(WatchedPort, GetsItsNameBackWithoutAFreeDescriptor)
{
    const uint64_t before = local_ports_rebound();
    const Descriptor listener(listen_local(PORT));
    fill_descriptor_reserve();
    delete_names();
    {
        const Shortage shortage;
        EXPECT_TRUE(watch.look());
    }
    EXPECT_EQ(local_ports_rebound(), before + 1);
}

TEST_F(WatchedPort, ThatIsTakenIsGivenUpAtTheSecondLook)
{
    const Descriptor listener(listen_local(PORT));
    ASSERT_TRUE(listener.valid());
    delete_names();
    {
        const Descriptor other(listen_local(PORT));
        ASSERT_TRUE(other.valid());
        EXPECT_TRUE(watch.look());
    }
    EXPECT_TRUE(watch.look()) << "free again in time";
    delete_names();
    const Descriptor other(listen_local(PORT));
    ASSERT_TRUE(other.valid());
    EXPECT_TRUE(watch.look());
    EXPECT_FALSE(watch.look());
}

} // namespace
