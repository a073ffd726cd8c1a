// Whether a daemon that is needed answers.
#include <gtest/gtest.h>
#include <string>

#include "daemons/common/descriptor.h"
#include "daemons/common/local_listener.h"
#include "daemons/common/log.h"
#include "daemons/common/service_start.h"
#include "tests/daemons/runtime_folder.h"

using namespace mcastd;

namespace
{

constexpr uint64_t SERVICE = 9999; // of no configuration
constexpr uint16_t PORT = 2296;

TEST(ServiceStart, OneThatListensAnswersAndOneThatIsNotThereDoesNot)
{
    const RuntimeFolder folder;
    log_open("test", LogLevel::Info);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(start_service("other", SERVICE, PORT));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("other (service 9999, local port 2296) does not answer"), std::string::npos) << said;
    EXPECT_NE(said.find("nobody could start it"), std::string::npos) << said;
    const Descriptor listener(listen_local(PORT));
    testing::internal::CaptureStderr();
    EXPECT_TRUE(start_service("other", SERVICE, PORT));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "test: info: other answers on local port 2296\n");
}

} // namespace
