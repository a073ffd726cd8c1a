#include <gtest/gtest.h>

#include "daemons/common/control_debug.h"
#include "daemons/common/trace.h"
#include "daemons/control_table.h"

using namespace mcastd;

namespace
{

class ControlDebug : public testing::Test
{
protected:
    ControlDebug()
    {
        offer_debug(registry);
    }
    ~ControlDebug() override
    {
        trace_detail::g_settings = TraceSettings();
    }

    ControlReply debug(const ControlFields &arguments)
    {
        ControlRequest request;
        request.operation = ControlOperation::Command;
        request.table = COMMAND_DEBUG;
        request.values = arguments;
        return control_test::ask(registry, request);
    }

    ControlRegistry registry;
};

ControlField text(const char *value)
{
    return ControlField::text(value);
}

TEST_F(ControlDebug, SwitchesCategoriesInOrder)
{
    EXPECT_EQ(debug({text("on"), text("all"), text("off"), text("packet")}).status, ControlStatus::Done);
    EXPECT_FALSE(tracing(TraceCategory::Packet));
    EXPECT_TRUE(tracing(TraceCategory::Querier));
    EXPECT_TRUE(tracing(TraceCategory::Route));
}

TEST_F(ControlDebug, OneWrongArgumentKeepsAllFromBeingTaken)
{
    const ControlFields wrong[] = {
        {text("on"), text("packet"), text("on"), text("nonsense")},
        {text("on"), text("packet"), text("interface"), text("no-such-interface")},
        {text("on"), text("packet"), text("acl"), ControlField::number(2999)},
        {text("on"), text("packet"), text("acl"), ControlField::number(uint64_t{MCAST_NONE} + 1)},
        {text("on"), text("packet"), text("acl"), text("2999")},
        {text("on"), text("packet"), text("what"), text("all")},
        {text("on"), text("packet"), ControlField::number(1), text("all")},
        {text("on"), text("packet"), text("off"), ControlField::number(1)},
    };
    for (const ControlFields &arguments : wrong) {
        const ControlReply reply = debug(arguments);
        EXPECT_EQ(reply.status, ControlStatus::BadValue);
        EXPECT_EQ(reply.error_index, 1u);
        EXPECT_FALSE(reply.message.empty());
        EXPECT_EQ(trace_settings().categories, 0u);
    }
    EXPECT_EQ(debug({}).status, ControlStatus::Malformed);
    EXPECT_EQ(debug({text("on")}).status, ControlStatus::Malformed);
}

TEST_F(ControlDebug, FiltersAreSetAndTakenAway)
{
    trace_detail::g_settings.acl = 3000;
    trace_detail::g_settings.if_index = 7;
    const auto shown = control_test::row(registry, DEBUG_TABLE, {text("group")});
    ASSERT_EQ(shown.size(), 4u);
    EXPECT_EQ(shown[2], ControlField::number(3000));
    EXPECT_EQ(shown[3], ControlField::interface(7));
    EXPECT_EQ(debug({text("acl"), ControlField::number(MCAST_NONE), text("interface"), text("")}).status,
              ControlStatus::Done);
    EXPECT_EQ(trace_settings().acl, MCAST_NONE);
    EXPECT_EQ(trace_settings().if_index, 0u);
}

TEST_F(ControlDebug, TheTableNamesEveryCategoryOnce)
{
    debug({text("on"), text("route")});
    const auto rows = control_test::table(registry, DEBUG_TABLE, 2);
    ASSERT_EQ(rows.size(), trace_category_names().size());
    for (const ControlFields &row : rows) {
        EXPECT_EQ(row[1], ControlField::truth(row[0].as_text() == "route"));
        EXPECT_TRUE(row[2].is(FieldType::None));
        EXPECT_TRUE(row[3].is(FieldType::None));
    }
}

} // namespace
