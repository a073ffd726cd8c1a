/*
 * What reaches the sockets of queries, and what happens where there is none.
 */
#include <gtest/gtest.h>
#include <vector>

#include "daemons/common/log.h"
#include "daemons/gmpd/querier.h"
#include "daemons/gmpd/sender.h"
#include "tests/daemons/descriptor_shortage.h"
#include "tests/daemons/gmpd_lab.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

class Queries final : public QuerySink
{
public:
    void send_query(Interface &, const Query &query) override
    {
        sent.push_back(query);
    }

    std::vector<Query> sent;
};

TEST(GmpdSender, WithoutASocketThereIsNone)
{
    mcastd::log_open("test", static_cast<mcastd::LogLevel>(-1)); // an error is expected
    for (const uint16_t family : {uint16_t{MCAST_FAMILY_IPV4}, uint16_t{MCAST_FAMILY_IPV6}}) {
        Sender sender;
        const Shortage shortage;
        EXPECT_FALSE(sender.open(family));
    }
    mcastd::log_open("daemon", mcastd::LogLevel::Info);
}

TEST(GmpdSender, QueriesHaveTheVersionAndTheValuesInForce)
{
    for (const uint8_t version : {uint8_t{2}, uint8_t{3}}) {
        Config config;
        config.version = version;
        Lab lab(MCAST_FAMILY_IPV4, config);
        Queries queries;
        lab.start();
        lab.process.queries = &queries;
        Query query{};
        query.group = lab.group(1);
        querier_send(*lab.interface, query);
        ASSERT_EQ(queries.sent.size(), 1u);
        EXPECT_EQ(queries.sent[0].version, version);
        EXPECT_EQ(queries.sent[0].robustness, lab.interface->querier.robustness);
        EXPECT_EQ(queries.sent[0].query_interval_s, lab.interface->querier.query_interval_s);
        lab.process.queries = &lab.recorder;
    }
}

} // namespace
