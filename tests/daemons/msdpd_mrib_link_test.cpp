// The link to the MRIB process before there is one.
#include <gtest/gtest.h>

#include "daemons/msdpd/mrib_link.h"

using namespace msdpd;

namespace
{

TEST(MsdpdMribLink, NoLocalSourcesAreKnownWithoutAChannel)
{
    mcastd::Reactor reactor;
    MribLink link(reactor);
    MRIB_MSDP_CURSOR_S cursor{};
    MRIB_MSDP_BATCH_S batch{};
    EXPECT_EQ(link.local_count(), 0u);
    EXPECT_FALSE(link.next_local(MCAST_NONE, Ipv4{}, &cursor, &batch));
    EXPECT_EQ(batch.count, 0u);
}

} // namespace
