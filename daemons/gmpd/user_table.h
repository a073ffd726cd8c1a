/*
 * The announced users: found by the user authentication's record of each, by user ID, and by where their
 * reports come from.
 */
#ifndef DAEMONS_GMPD_USER_TABLE_H
#define DAEMONS_GMPD_USER_TABLE_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "daemons/common/timer.h"
#include "daemons/gmpd/process.h"
#include "daemons/gmpd/users.h"
#include "mcast/usrauth_info.h"

namespace gmpd
{

// One user. info.address is where reports come from; a user with an interface of its own takes every report of
// it that is no other user's.
struct User {
    uint32_t if_index = 0; // what the user authentication finds the user by
    uint16_t node = 0;
    uint32_t kind = 0;
    bool owns_link = false;
    std::string name;
    MCAST_USRAUTH_INFO_S info{};
    bool placed = false;                      // info is known, reports count
    std::unique_ptr<Memberships> memberships; // from the first report on a running link until that stops
};

class UserTable final : public Users
{
public:
    // Whether the user found by the index may join the source of the group; source NULL: any source.
    using Rights = std::function<bool(uint32_t if_index, const Address &group, const Address *source)>;
    // The MRIB is to hear of a user, or of its end.
    using Told = std::function<void(const User &user, bool present)>;
    // The user authentication's record of a user, as a name for that user.
    using Key = const void *;

    // Becomes the router's table of users. The router must outlive it.
    UserTable(Process &process, Rights rights, Told told);
    ~UserTable() override;
    UserTable(const UserTable &) = delete;
    UserTable &operator=(const UserTable &) = delete;

    // A user appeared. Its reports count once it is placed.
    User &add(Key key, uint32_t user_id, User user);

    // The information of a user, for the first time or again. When the place is another one than before, the
    // memberships of the user end.
    void place(User &user, const MCAST_USRAUTH_INFO_S &info);

    // The user is gone, with its memberships. False when it was not known.
    bool remove(Key key);

    // Every user is gone; the MRIB is not told.
    void forget();

    // The user may join less than before: memberships that it has no right to any more end.
    void apply_rights(User &user);

    // Users of an ID, of which each node may have one; and the one of a record, or NULL.
    std::vector<User *> find(uint32_t user_id) const;
    const User *find(Key key) const;
    User *find(Key key)
    {
        return const_cast<User *>(std::as_const(*this).find(key));
    }

    // Hosts of links where joins were refused are asked again soon.
    void rights_may_have_grown(const User &user);

    void visit_users(const std::function<void(const User &user)> &visitor) const;
    size_t count() const
    {
        return users_.size();
    }

    Memberships *member(Interface &link, const Address &sender) override;
    bool permits(const Memberships &user, const Address &group, const Address *source) const override;
    void join_refused(const Interface &link) override;
    void visit(const Interface &link, const std::function<void(Memberships &)> &visitor) const override;
    void link_stopped(const Interface &link) override;
    void tell_everything() const override;

private:
    using Place =
        std::pair<uint32_t, std::string>; // access interface, address bytes; the link's owner has none

    struct Record {
        uint32_t user_id;
        User user;
    };

    static Place place_of(const User &user);
    static void on_ask(void *owner);

    User *find_reporter(uint32_t if_index, const Address &sender) const;
    void leave_place(User &user);
    void end_memberships(User &user);
    void ask_soon(uint32_t if_index);

    Process &process_;
    Rights rights_;
    Told told_;
    std::unordered_map<Key, Record> users_;
    std::unordered_multimap<uint32_t, User *> by_id_;
    std::multimap<Place, User *> by_place_; // of equal places the first one counts
    std::set<uint32_t> refused_;            // links where joins were refused since hosts were last asked
    std::set<uint32_t> to_ask_;             // links whose hosts are asked when the timer ends
    mcastd::Timer ask_;
};

} // namespace gmpd

#endif
