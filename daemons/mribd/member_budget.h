/*
 * How many wishes the member tables of one family may hold: of all instances together, of one client, and of
 * one interface. Hosts make them up, so that one link or one client must not take the room of the others.
 */
#ifndef DAEMONS_MRIBD_MEMBER_BUDGET_H
#define DAEMONS_MRIBD_MEMBER_BUDGET_H

#include <cstddef>
#include <cstdint>
#include <map>

namespace mribd
{

using ClientId = uint32_t;

class MemberBudget
{
public:
    static constexpr size_t DEFAULT_TOTAL = 262144;

    // A client may have seven eighths of the total, an interface half of it.
    explicit MemberBudget(size_t total = DEFAULT_TOTAL);

    // Takes one wish of the client for an interface that has on_interface of them; false, which is counted,
    // when that is too many. Throws std::bad_alloc, having taken nothing, when memory is short.
    bool take(ClientId client, size_t on_interface);

    // Gives a wish of the client back. Needs no memory.
    void give(ClientId client);

    // Whether the client could take more than a few for that interface: of no limit nine tenths are taken.
    bool has_room(ClientId client, size_t on_interface) const;

    size_t total_limit() const
    {
        return total_;
    }
    size_t client_limit() const
    {
        return total_ - total_ / 8;
    }
    size_t interface_limit() const
    {
        return total_ - total_ / 2;
    }

    size_t taken() const
    {
        return taken_;
    }
    uint64_t refused() const
    {
        return refused_;
    }

private:
    size_t total_;
    size_t taken_ = 0;
    uint64_t refused_ = 0;
    bool reported_ = false;              // since few were taken
    std::map<ClientId, size_t> clients_; // none without wishes
};

} // namespace mribd

#endif
