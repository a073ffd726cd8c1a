/*
 * Local ports whose names are deleted: they come back, unless another socket has the port meanwhile.
 */
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "daemons/common/descriptor.h"
#include "daemons/common/local_listener.h"
#include "daemons/common/log.h"
#include "daemons/common/port_watch.h"

using namespace mcastd;

namespace
{

constexpr uint16_t PORT = 2298;

class WatchedPort : public testing::Test
{
protected:
    WatchedPort()
    {
        char path[] = "/tmp/mcastd-ports-XXXXXX";
        directory_ = mkdtemp(path);
        setenv("MCAST_HOST_RUNTIME_DIR", path, 1);
        log_open("test", static_cast<LogLevel>(-1)); // warnings are expected
    }
    ~WatchedPort() override
    {
        unsetenv("MCAST_HOST_RUNTIME_DIR");
        std::filesystem::remove_all(directory_);
        log_open("daemon", LogLevel::Info);
    }
    void delete_names() const
    {
        for (const auto &each : std::filesystem::directory_iterator(directory_)) {
            std::filesystem::remove_all(each.path());
        }
    }

    PortWatch watch;

private:
    std::string directory_;
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
