/*
 * The private indexes of the users' interfaces: which user has which. They come from the library's registry;
 * the assignment is kept here, by user, so that a daemon that takes over gives every user the index that it
 * had before.
 */
#ifndef DAEMONS_GMPD_USER_INDEXES_H
#define DAEMONS_GMPD_USER_INDEXES_H

#include <compare>
#include <cstdint>
#include <functional>
#include <map>

namespace gmpd
{

// What identifies a user, to agents and between daemons.
struct UserKey {
    uint16_t node = 0;
    uint32_t user_id = 0;

    auto operator<=>(const UserKey &) const = default;
};

// The indexes of users.
using UserIndexMap = std::map<UserKey, uint32_t>;

// The registry, for as long as the object lives. One object per process.
class UserIndexes
{
public:
    // changed is told of each user whose index came or went.
    explicit UserIndexes(std::function<void(const UserKey &user)> changed = nullptr);
    ~UserIndexes();
    UserIndexes(const UserIndexes &) = delete;
    UserIndexes &operator=(const UserIndexes &) = delete;

    // False when memory is short, which is logged.
    bool open(uint16_t family);

    // The index kept for the user, or a new one; 0 when none is left.
    uint32_t take(const UserKey &user);

    // The user is gone, its index is free again.
    void give_back(const UserKey &user);

    // Switch-over: forgets what was assigned and keeps these indexes for these users, until they take them.
    // One that is none of the registry's, or that another user has, is left out, which is logged.
    void keep(const UserIndexMap &indexes);

    // Frees the indexes of users that have not taken them.
    void release_untaken();

    // Each user with the index that it has, or that is kept for it.
    const UserIndexMap &assigned() const
    {
        return assigned_;
    }

private:
    void tell(const UserKey &user) const;

    std::function<void(const UserKey &user)> changed_;
    UserIndexMap assigned_;
    UserIndexMap untaken_; // the part of it that is kept only
    bool open_ = false;
};

} // namespace gmpd

#endif
