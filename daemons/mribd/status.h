/*
 * mribd's tables as text, for people and for scripts.
 */
#ifndef DAEMONS_MRIBD_STATUS_H
#define DAEMONS_MRIBD_STATUS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "daemons/common/text_parts.h"
#include "daemons/mribd/channel_server.h"
#include "daemons/mribd/router.h"

namespace mribd
{

// Users, sources, memberships and entries that a part of the status tells of.
constexpr size_t STATUS_LINES = 1024;

// A part of the status that may be long. What is told may change between the calls: what stays is told of once.
class ViewStatus
{
public:
    // Appends the next lines about what the clients are told, what the MSDP daemon tells, and the users that gmpd
    // knows, and takes 1 from budget for each that there may be many of. Whether all are written; the budget is used up
    // otherwise.
    bool append(std::string *out, const Backend &backend, size_t &budget);

private:
    enum class Step { Head, Users, LocalSources, RemoteSources, Done };

    bool append_users(std::string *out, const Backend &backend, size_t &budget);
    bool append_local_sources(std::string *out, const MsdpExchange &msdp, size_t &budget);
    bool append_remote_sources(std::string *out, const MsdpExchange &msdp, size_t &budget);

    Step step_ = Step::Head;
    std::pair<ClientId, uint32_t> user_{}; // the next one
    uint32_t instance_ = 0;                // whose remote sources are next
    SgTable::Cursor cursor_;
};

// What one family knows: clients, what the clients are told and what the channel refused; and of each
// instance, the others after the public one, interfaces, memberships, entries with the kernel's packet
// counters (one system call each) and everything that was dropped or refused.
class FamilyStatus
{
public:
    // server must outlive the object.
    explicit FamilyStatus(const ChannelServer &server) : server_(&server)
    {
    }

    // As ViewStatus::append.
    bool append(std::string *out, size_t &budget);

private:
    enum class Step { Head, View, Members, Entries };

    bool append_instance(std::string *out, const Router &router, size_t &budget);
    bool append_members(std::string *out, const Router &router, size_t &budget);
    bool append_entries(std::string *out, const Router &router, size_t &budget);
    bool take(const MCAST_ADDR_S &group, const MCAST_ADDR_S &source, size_t &budget);

    const ChannelServer *server_;
    uint32_t instance_ = 0; // the one that is next
    Step step_ = Step::Head;
    ViewStatus view_;
    bool going_on_ = false; // with the pair of the table that did not find room
    MCAST_ADDR_S group_{};
    MCAST_ADDR_S source_{};
};

// The families' texts, one after the other. Of one moment when one part holds them; a longer one ends with a line that
// says so.
mcastd::TextParts status_parts(std::vector<FamilyStatus> families);

// Appends formatted text, cut at a few hundred bytes.
__attribute__((format(printf, 2, 3))) void add_text(std::string *out, const char *format, ...);

} // namespace mribd

#endif
