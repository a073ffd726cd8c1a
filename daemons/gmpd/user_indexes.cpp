#include "daemons/gmpd/user_indexes.h"

#include <utility>

#include "daemons/common/log.h"
#include "daemons/common/memory.h"
#include "mcast/interface_registry.h"

namespace gmpd
{

UserIndexes::UserIndexes(std::function<void(const UserKey &user)> changed) : changed_(std::move(changed))
{
}

UserIndexes::~UserIndexes()
{
    if (open_) {
        MCAST_IF_Fini();
    }
}

bool UserIndexes::open(uint16_t family)
{
    open_ = MCAST_IF_Init(family == MCAST_FAMILY_IPV4 ? MCAST_IF_TYPE_MUA_IPV4 : MCAST_IF_TYPE_MUA_IPV6) ==
            MCAST_OK;
    if (!open_) {
        mcastd::log_error("no memory for the indexes of users' interfaces");
    }
    return open_;
}

void UserIndexes::tell(const UserKey &user) const
{
    if (changed_) {
        changed_(user);
    }
}

uint32_t UserIndexes::take(const UserKey &user)
{
    const auto kept = untaken_.find(user);

    if (kept != untaken_.end()) {
        const uint32_t index = kept->second;

        untaken_.erase(kept);
        return index;
    }
    const auto index = static_cast<uint32_t>(MCAST_CreateIf());

    if (index != 0) {
        give_back(user);
        assigned_[user] = index;
        tell(user);
    }
    return index;
}

void UserIndexes::give_back(const UserKey &user)
{
    const auto found = assigned_.find(user);
    if (found != assigned_.end()) {
        MCAST_DestroyIf(found->second);
        assigned_.erase(found);
        untaken_.erase(user);
        tell(user);
    }
}

void UserIndexes::keep(const UserIndexMap &indexes)
{
    if (MCAST_IF_Degrade() != MCAST_OK && !(mcastd::memory_lend() && MCAST_IF_Degrade() == MCAST_OK)) {
        throw std::bad_alloc();
    }
    UserIndexMap kept;

    for (const auto &[user, index] : indexes) {
        if (MCAST_ReserveIf(index) == MCAST_OK) {
            kept.emplace(user, index);
        } else {
            mcastd::log_warning("the interface index 0x%x of user %u of node %u cannot be kept", index,
                                user.user_id, user.node);
        }
    }
    MCAST_IF_ReserveFinish();
    assigned_ = kept;
    untaken_ = std::move(kept);
}

void UserIndexes::release_untaken()
{
    for (const auto &[user, index] : UserIndexMap(untaken_)) {
        give_back(user);
    }
}

} // namespace gmpd
