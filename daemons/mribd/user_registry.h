/*
 * The authenticated users that clients report, for who reads the status. They live as long as the connection
 * of the client that reported them.
 */
#ifndef DAEMONS_MRIBD_USER_REGISTRY_H
#define DAEMONS_MRIBD_USER_REGISTRY_H

#include <cstdint>
#include <map>
#include <utility>

#include "daemons/mribd/member_table.h"
#include "mcast/mrib_wire.h"

namespace mribd
{

class UserRegistry
{
public:
    static constexpr size_t LIMIT = 65536;

    struct User {
        uint32_t access_if_index;
        uint32_t user_id;
        uint8_t kind;
        MCAST_ADDR_S address;
    };

    // The user of the client's interface if_index, in place of the one reported before. False when there are
    // LIMIT users.
    bool set(ClientId client, uint32_t if_index, const User &user);

    void remove(ClientId client, uint32_t if_index);
    void drop_client(ClientId client);

    // Visits the users in the order of clients, then interfaces, beginning with the client's interface or the first
    // after it, until visitor(client, if_index, user) returns false.
    template <typename Visitor> void visit_from(ClientId client, uint32_t if_index, Visitor visitor) const
    {
        for (auto at = users_.lower_bound({client, if_index}); at != users_.end(); ++at) {
            if (!visitor(at->first.first, at->first.second, at->second)) {
                return;
            }
        }
    }

    size_t size() const
    {
        return users_.size();
    }

private:
    std::map<std::pair<ClientId, uint32_t>, User> users_;
};

} // namespace mribd

#endif
