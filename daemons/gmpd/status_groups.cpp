#include "daemons/gmpd/status_groups.h"

#include "daemons/gmpd/group_state.h"

namespace gmpd
{

using mcastd::Json;

namespace
{

void write_times(Json &json, const GroupState &group)
{
    if (group.exclude) {
        json.number("expires_s", timer_remaining_s(group.timer));
    }
    if (group.v1_host.running()) {
        json.number("version_1_host_s", timer_remaining_s(group.v1_host));
    }
    if (group.v2_host.running()) {
        json.number("version_2_host_s", timer_remaining_s(group.v2_host));
    }
}

void write_source(Json &json, const MRT_SOURCE_S *source, StatusGroups::Kind kind)
{
    json.open(nullptr, '{');
    json.text("source", to_text(*source->address));
    if (kind == StatusGroups::Kind::OfUsers) {
        json.truth("wanted", UsersUnion::wants_source(source));
    } else {
        const Deadline &timer = state_of(source)->timer;
        json.truth("wanted", timer.running());
        json.number("expires_s", timer.remaining_s());
    }
    json.close('}');
}

} // namespace

void StatusGroups::open_group(Json &json, const MRT_GROUP_S *group, Kind kind)
{
    const bool exclude =
        kind == Kind::OfUsers ? UsersUnion::wants_any_source(group) : state_of(group)->exclude;
    json.open(nullptr, '{', true);
    json.text("group", to_text(*group->address));
    json.text("mode", exclude ? "exclude" : "include");
    if (kind == Kind::OfHosts) {
        write_times(json, *state_of(group));
    }
    json.open("sources", '[');
    begun_ = true;
    in_group_ = true;
    group_ = *group->address;
    source_.reset();
}

// Whether all are written; of a group that is gone, NULL, there are no more.
bool StatusGroups::write_sources(Json &json, const MRT_GROUP_S *group, Kind kind, size_t &budget)
{
    while (group != nullptr) {
        const auto *source =
            static_cast<const MRT_SOURCE_S *>(MRT_GetNext(group->sources, source_ ? &*source_ : nullptr, 0));
        if (source == nullptr) {
            break;
        }
        if (budget == 0) {
            return false;
        }
        --budget;
        source_ = *source->address;
        write_source(json, source, kind);
    }
    return true;
}

bool StatusGroups::write(Json &json, MRT_TABLE_S *groups, Kind kind, size_t &budget)
{
    for (;;) {
        if (!in_group_) {
            const auto *next =
                static_cast<const MRT_GROUP_S *>(MRT_GetNext(groups, begun_ ? &group_ : nullptr, 0));
            if (next == nullptr) {
                *this = StatusGroups();
                return true;
            }
            if (budget == 0) {
                return false;
            }
            --budget;
            open_group(json, next, kind);
        }
        const auto *group = static_cast<const MRT_GROUP_S *>(MRT_Locate(groups, &group_));
        if (!write_sources(json, group, kind, budget)) {
            return false;
        }
        json.close(']');
        json.close('}');
        in_group_ = false;
    }
}

} // namespace gmpd
