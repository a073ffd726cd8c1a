#include "daemons/mribd/user_registry.h"

#include "daemons/common/memory.h"

namespace mribd
{

bool UserRegistry::set(ClientId client, uint32_t if_index, const User &user)
{
    const auto key = std::pair(client, if_index);
    const auto found = users_.find(key);
    if (found != users_.end()) {
        found->second = user;
        return true;
    }
    if (users_.size() >= LIMIT || !mcastd::memory_permits(sizeof(User) + sizeof(key))) {
        return false;
    }
    users_.emplace(key, user);
    return true;
}

void UserRegistry::remove(ClientId client, uint32_t if_index)
{
    users_.erase({client, if_index});
}

void UserRegistry::drop_client(ClientId client)
{
    users_.erase(users_.lower_bound({client, 0}), users_.upper_bound({client, UINT32_MAX}));
}

} // namespace mribd
