/*
 * What the MRIB process says, record by record, and what becomes of the memberships. The records go through
 * the library's view; nobody answers on the channel.
 */
#include <gtest/gtest.h>
#include <optional>

#include "daemons/gmpd/mrib_link.h"
#include "mcast/mrib_wire.h"
#include "mcasthost/config.h"
#include "tests/daemons/gmpd_lab.h"
#include "tests/daemons/runtime_folder.h"

using namespace gmpd;
using namespace gmpd_test;

namespace
{

constexpr uint32_t LAB_INDEX = 7;
constexpr uint32_t OTHER_INDEX = 8;

template <typename Record> void say(uint16_t type, const Record &record)
{
    EXPECT_EQ(mribGmpTLVProc(type, sizeof(record), &record), MCAST_OK);
}

void say_dr(bool state, uint32_t if_index = LAB_INDEX, uint16_t vrf_index = 0)
{
    MRIB_PIM_DR_S record{};
    record.state = state ? 1 : 0;
    record.if_index = if_index;
    record.vrf_index = vrf_index;
    say(MRIB_TLV_PIM_DR, record);
}

void say_instance(bool enabled, uint16_t vrf_index = 0)
{
    MRIB_VRF_STATE_S record{};
    record.state = enabled ? 1 : 0;
    record.vrf_index = vrf_index;
    say(MRIB_TLV_VRF_STATE, record);
}

void say_ssm_list(uint32_t number, uint16_t vrf_index = 0)
{
    MRIB_SSM_POLICY_S record{};
    record.acl_number = number;
    record.vrf_index = vrf_index;
    say(MRIB_TLV_SSM_POLICY, record);
}

void load_lists(const std::string &text)
{
    char error[HOST_CONFIG_ERROR_SIZE];
    ASSERT_EQ(HOST_ConfigLoadText("lists", text.data(), text.size(), nullptr, error, sizeof(error)), 0u)
        << error;
}

// A list that permits the groups of the lab, or something else.
std::string list_of(bool ipv4, bool lab_groups)
{
    const std::string pattern =
        ipv4 ? (lab_groups ? "239.1.1.0/24" : "239.9.0.0/16") : (lab_groups ? "ff1e::/16" : "ff19::/16");
    return "[[acl]]\nnumber = 2001\nfamily = \"" + std::string(ipv4 ? "ipv4" : "ipv6") +
           "\"\n[[acl.rule]]\nid = 1\naction = \"permit\"\nsource = \"" + pattern + "\"\n";
}

class GmpdPolicy : public testing::TestWithParam<uint8_t>
{
protected:
    GmpdPolicy()
    {
        lab.emplace(GetParam());
        link.emplace(lab->process, reactor);
        EXPECT_TRUE(link->open());
        lab->start();
    }
    ~GmpdPolicy() override
    {
        load_lists("");
        lab->process.interfaces.clear();
        link.reset();
        lab.reset();
    }
    bool ipv4() const
    {
        return GetParam() == MCAST_FAMILY_IPV4;
    }
    // A boundary around groups 1 to 127 of the lab, or all of them.
    void say_boundary(bool add, unsigned length_left = 7, uint32_t if_index = LAB_INDEX)
    {
        const Address group = lab->group(0);
        MRIB_BOUNDARY_S record{};
        record.family = GetParam();
        record.operation = add ? 1 : 0;
        record.prefix_length = static_cast<uint8_t>(address_bits(GetParam()) - length_left);
        record.if_index = if_index;
        memcpy(record.address, group.address, address_size(GetParam()));
        say(MRIB_TLV_BOUNDARY, record);
    }
    // Moves the lab's interface to the instance and starts it there.
    void move_to(uint16_t vrf_index)
    {
        interface_move(*lab->interface, vrf_index);
        lab->start();
    }
    // What the connection does at its end, without a peer: the view is asked for again and confirmed.
    void end_replay()
    {
        MRIB_GMP_ClearSmoothFlag(MRIB_GMP_SMOOTH_DR | MRIB_GMP_SMOOTH_BOUNDARY);
        link->flush();
    }
    // The MRIB process has said that this router forwards.
    void forward()
    {
        say_instance(true);
        say_dr(true);
        end_replay();
        lab->recorder.told();
        lab->recorder.queries();
    }
    std::string told()
    {
        link->flush();
        return lab->recorder.told();
    }
    uint64_t count(Count counter) const
    {
        return lab->interface->counters[counter];
    }

    RuntimeFolder folder;
    mcastd::Reactor reactor;
    std::optional<Lab> lab;
    std::optional<MribLink> link;
};

INSTANTIATE_TEST_SUITE_P(Families, GmpdPolicy, testing::Values(MCAST_FAMILY_IPV4, MCAST_FAMILY_IPV6));

} // namespace

TEST_P(GmpdPolicy, AJoinBehindABoundaryIsRefusedAndCounted)
{
    forward();
    say_boundary(true);
    lab->record(RecordType::IsExclude, {});
    lab->record(RecordType::Allow, {3});
    lab->old_report(2);
    EXPECT_EQ(lab->state(), "none");
    EXPECT_EQ(count(Count::Boundary), 3u);
    EXPECT_EQ(told(), "");
    lab->record(RecordType::IsExclude, {}, 200);
    EXPECT_EQ(told(), "join G200") << "the next range is free";
    EXPECT_EQ(count(Count::Boundary), 3u);
}

TEST_P(GmpdPolicy, ABoundaryOfAnotherInterfaceDoesNotCount)
{
    forward();
    say_boundary(true, 7, OTHER_INDEX);
    lab->record(RecordType::IsExclude, {});
    EXPECT_EQ(told(), "join G1");
}

TEST_P(GmpdPolicy, ANewBoundaryWithdrawsWhatIsBehindIt)
{
    forward();
    lab->record(RecordType::IsExclude, {4});
    lab->record(RecordType::Allow, {3}, 2);
    lab->record(RecordType::Allow, {3}, 200);
    told();
    say_boundary(true);
    EXPECT_EQ(told(), "prune G1; unblock G1 4; prune G2 3");
    EXPECT_EQ(lab->state(1), "none");
    EXPECT_EQ(lab->state(2), "none");
    EXPECT_EQ(lab->state(200), "INCLUDE {3:260}");
    EXPECT_EQ(lab->recorder.queries(), "");
}

TEST_P(GmpdPolicy, TheEndOfABoundaryAsksTheHostsOnce)
{
    forward();
    say_boundary(true);
    say_boundary(true, 7, OTHER_INDEX);
    link->flush();
    EXPECT_EQ(lab->recorder.queries(), "");
    say_boundary(false);
    say_boundary(false);
    link->flush();
    EXPECT_EQ(lab->recorder.queries(), "? all");
    lab->record(RecordType::IsExclude, {});
    EXPECT_EQ(told(), "join G1");
}

TEST_P(GmpdPolicy, ARouterThatIsNotQuerierDoesNotAskAfterABoundary)
{
    forward();
    say_boundary(true);
    lab->query(1, 3);
    say_boundary(false);
    link->flush();
    EXPECT_EQ(lab->recorder.queries(), "");
}

TEST_P(GmpdPolicy, HostsMayJoinTheGroupsOfTheListAlone)
{
    forward();
    lab->process.config.group_list = 2001;
    load_lists(list_of(ipv4(), false));
    lab->record(RecordType::IsExclude, {});
    lab->record(RecordType::Allow, {3}, 2);
    EXPECT_EQ(lab->state(), "none");
    EXPECT_EQ(count(Count::GroupList), 2u);
    EXPECT_EQ(count(Count::Boundary), 0u);
    lab->record(RecordType::ToInclude, {});
    EXPECT_EQ(count(Count::GroupList), 2u) << "a leave joins nothing";
    load_lists(list_of(ipv4(), true));
    link->policy().lists_changed();
    link->flush();
    EXPECT_EQ(lab->recorder.queries(), "? all");
    lab->record(RecordType::IsExclude, {});
    EXPECT_EQ(told(), "join G1");
    load_lists(list_of(ipv4(), false));
    link->policy().lists_changed();
    EXPECT_EQ(told(), "prune G1") << "what the list had no longer is forgotten";
    EXPECT_EQ(lab->state(), "none");
}

TEST_P(GmpdPolicy, AGroupListThatThereIsNotStopsNobody)
{
    forward();
    lab->process.config.group_list = 2002;
    load_lists(list_of(ipv4(), false));
    lab->record(RecordType::IsExclude, {});
    EXPECT_EQ(told(), "join G1");
}

TEST_P(GmpdPolicy, AnAnySourceJoinInTheListedRangeIsIgnored)
{
    forward();
    load_lists(list_of(ipv4(), true));
    say_ssm_list(2001);
    link->flush();
    lab->record(RecordType::IsExclude, {});
    lab->record(RecordType::ToExclude, {5});
    lab->old_report(2);
    EXPECT_EQ(lab->state(), "none");
    EXPECT_EQ(count(Count::SsmRange), 3u);
    lab->record(RecordType::Allow, {3});
    EXPECT_EQ(told(), "join G1 3");
    lab->leave();
    EXPECT_EQ(lab->state(), "INCLUDE {3:260}") << "a leave of an older host says nothing about sources";
    EXPECT_EQ(count(Count::SsmRange), 4u);
    lab->record(RecordType::ToInclude, {});
    EXPECT_EQ(lab->state(), "INCLUDE {3:2}") << "a record without sources does";
}

TEST_P(GmpdPolicy, TheDefaultRangeIsThatOfTheProtocol)
{
    const Address group = from_text(ipv4() ? "232.1.1.1" : "ff3e::8000:1");
    const Address source = lab->source(1);
    forward();
    apply_record(lab->interface->memberships, RecordType::IsExclude, group, {});
    EXPECT_EQ(find_group(lab->interface->memberships, group), nullptr);
    EXPECT_EQ(count(Count::SsmRange), 1u);
    apply_record(lab->interface->memberships, RecordType::Allow, group, {source});
    EXPECT_EQ(told(), "join G1 1");
}

TEST_P(GmpdPolicy, AGroupThatComesIntoTheRangeKeepsItsSources)
{
    forward();
    lab->record(RecordType::Allow, {1});
    lab->record(RecordType::IsExclude, {1, 4});
    lab->old_report(2, 2);
    EXPECT_EQ(told(), "join G1 1; block G1 4; join G1; prune G1 1; join G2");
    load_lists(list_of(ipv4(), true));
    say_ssm_list(2001);
    EXPECT_EQ(told(), "join G1 1; prune G1; unblock G1 4; prune G2");
    EXPECT_EQ(lab->state(1), "INCLUDE {1:260}");
    EXPECT_EQ(lab->state(2), "none");
    EXPECT_EQ(lab->recorder.queries(), "? all");
}

TEST_P(GmpdPolicy, AListThatChangesUnderItsNumberCountsAfterTheReload)
{
    forward();
    load_lists(list_of(ipv4(), false));
    say_ssm_list(2001);
    lab->old_report(2);
    EXPECT_EQ(told(), "join G1");
    load_lists(list_of(ipv4(), true));
    link->policy().lists_changed();
    EXPECT_EQ(told(), "prune G1");
    lab->recorder.queries();
    say_ssm_list(2001);
    link->flush();
    EXPECT_EQ(lab->recorder.queries(), "") << "a repeated policy is no change";
}

TEST_P(GmpdPolicy, AnotherRoutersLinkKeepsMembershipsUnreported)
{
    forward();
    lab->record(RecordType::IsExclude, {4});
    lab->record(RecordType::Allow, {3}, 2);
    told();
    say_dr(false);
    EXPECT_EQ(told(), "prune G1; unblock G1 4; prune G2 3");
    EXPECT_EQ(lab->state(1), "EXCLUDE {} {4} 260");
    lab->record(RecordType::Allow, {5}, 2);
    EXPECT_EQ(told(), "");
    say_dr(true);
    EXPECT_EQ(told(), "block G1 4; join G1; join G2 3; join G2 5");
    EXPECT_EQ(lab->recorder.queries(), "") << "nothing needs to be learnt";
}

TEST_P(GmpdPolicy, AMembershipEndsUnreportedToo)
{
    forward();
    say_dr(false);
    lab->record(RecordType::IsExclude, {});
    lab->pass(260);
    EXPECT_EQ(lab->state(), "none");
    say_dr(true);
    EXPECT_EQ(told(), "");
}

TEST_P(GmpdPolicy, ADisabledInstanceWithdrawsEverything)
{
    forward();
    lab->record(RecordType::IsExclude, {});
    told();
    say_instance(false);
    EXPECT_EQ(told(), "prune G1");
    say_instance(true);
    EXPECT_EQ(told(), "") << "who is designated is to be said again";
    say_dr(true);
    EXPECT_EQ(told(), "join G1");
}

TEST_P(GmpdPolicy, BeforeTheReplayHasEndedOnlyWhatWasSaidCounts)
{
    lab->record(RecordType::IsExclude, {});
    EXPECT_EQ(told(), "join G1") << "nothing was said";
    say_instance(true);
    say_dr(true, OTHER_INDEX);
    EXPECT_EQ(told(), "");
    say_dr(false);
    EXPECT_EQ(told(), "prune G1");
    say_dr(true);
    EXPECT_EQ(told(), "join G1");
    end_replay();
    EXPECT_EQ(told(), "");
}

TEST_P(GmpdPolicy, AnInstanceDisabledBeforeTheReplayEndCounts)
{
    lab->record(RecordType::IsExclude, {});
    told();
    say_instance(false);
    EXPECT_EQ(told(), "prune G1");
    say_instance(true);
    EXPECT_EQ(told(), "join G1");
}

TEST_P(GmpdPolicy, SilenceAtTheEndOfTheReplayMeansAnotherRouter)
{
    say_instance(true);
    lab->record(RecordType::IsExclude, {});
    EXPECT_EQ(told(), "join G1");
    EXPECT_FALSE(link->policy().replayed());
    MRIB_GMP_ClearSmoothFlag(MRIB_GMP_SMOOTH_DR | MRIB_GMP_SMOOTH_BOUNDARY);
    EXPECT_EQ(told(), "prune G1");
    EXPECT_TRUE(link->policy().replayed());
}

TEST_P(GmpdPolicy, AReplayThatTurnsTheRoleTwiceDoesNotFlap)
{
    forward();
    lab->record(RecordType::IsExclude, {});
    told();
    say_dr(false);
    say_dr(true);
    EXPECT_EQ(told(), "");
}

TEST_P(GmpdPolicy, RecordsOfAnotherInstanceOrAnUnknownInterfaceChangeNothing)
{
    forward();
    lab->record(RecordType::IsExclude, {});
    told();
    say_dr(false, OTHER_INDEX);
    MRIB_VRF_STATE_S other{};

    other.vrf_index = 5;
    mribGmpTLVProc(MRIB_TLV_VRF_STATE, sizeof(other), &other);
    EXPECT_EQ(told(), "");
}

TEST_P(GmpdPolicy, AnInterfaceGoesByItsOwnInstance)
{
    move_to(5);
    say_instance(true);
    say_dr(true);
    end_replay();
    lab->recorder.told();
    lab->record(RecordType::IsExclude, {});
    EXPECT_EQ(told(), "") << "the public instance is not its own";
    say_instance(true, 5);
    say_dr(true, LAB_INDEX, 5);
    EXPECT_EQ(told(), "running; querier; join G1");
    say_instance(false);
    say_dr(false);
    EXPECT_EQ(told(), "");
    say_instance(false, 5);
    EXPECT_EQ(told(), "prune G1");
}

TEST_P(GmpdPolicy, AChannelThatIsOpenedAgainForMoreInstancesIsToldEverythingAnew)
{
    forward();
    EXPECT_TRUE(link->policy().replayed());
    move_to(2000); // beyond those that there is room for at first
    link->tell_running(*lab->interface, true);
    link->flush();
    EXPECT_FALSE(link->policy().replayed());
}

TEST_P(GmpdPolicy, TheSourceSpecificRangeIsThatOfTheInstance)
{
    load_lists(list_of(ipv4(), true));
    move_to(5);
    say_instance(true, 5);
    say_dr(true, LAB_INDEX, 5);
    end_replay();
    lab->recorder.told();
    say_ssm_list(2001);
    lab->record(RecordType::IsExclude, {});
    EXPECT_EQ(told(), "join G1") << "the list is the public instance's";
    say_ssm_list(2001, 5);
    EXPECT_EQ(told(), "prune G1");
    lab->record(RecordType::IsExclude, {});
    EXPECT_EQ(count(Count::SsmRange), 1u);
}

TEST_P(GmpdPolicy, AnInterfaceThatMovesLeavesItsGroupsBehind)
{
    forward();
    say_instance(true, 5);
    lab->record(RecordType::IsExclude, {});
    EXPECT_EQ(told(), "join G1");
    interface_move(*lab->interface, 0);
    EXPECT_EQ(told(), "") << "it is there already";
    interface_move(*lab->interface, 5);
    EXPECT_EQ(told(), "stopped");
    EXPECT_EQ(lab->state(), "none");
    EXPECT_FALSE(lab->interface->running);
    EXPECT_EQ(key_of(*lab->interface).vrf_index, 5);
}

TEST_P(GmpdPolicy, AnInstanceBeyondTheViewReportsNothing)
{
    forward();
    move_to(65535);
    lab->record(RecordType::IsExclude, {});
    EXPECT_EQ(lab->recorder.told(), "");
    EXPECT_EQ(lab->state().substr(0, 7), "EXCLUDE");
}
