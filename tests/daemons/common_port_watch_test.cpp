/*
 * Local ports whose names are deleted: they come back, unless another socket has the port meanwhile.
 */
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>
#include <linux/filter.h>
#include <linux/seccomp.h>

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

// From here on bind fails with this error for the calling thread.
bool refuse_bind(unsigned error)
{
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_bind, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{static_cast<unsigned short>(std::size(code)), code};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

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

TEST_F(WatchedPort, WhatKeepsItsNameAwayIsSaidOnceWhicheverErrorItIs)
{
    for (const int error : {EPERM, EACCES, EIO}) {
        RuntimeFolder other;
        const Descriptor listener(listen_local(PORT));
        ASSERT_TRUE(listener.valid());
        std::filesystem::remove_all(other.path());
        PortWatch fresh;
        bool refused = false;
        std::string said[2];
        log_open("test", LogLevel::Error);
        std::thread([&] {
            refused = refuse_bind(static_cast<unsigned>(error));
            for (std::string &each : said) {
                testing::internal::CaptureStderr();
                EXPECT_TRUE(fresh.look());
                each = testing::internal::GetCapturedStderr();
            }
        }).join();
        ASSERT_TRUE(refused);
        EXPECT_NE(said[0].find(std::strerror(error)), std::string::npos) << said[0];
        EXPECT_EQ(said[1], "");
    }
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
