/*
 * A lab whose interface is a link of announced users. What each may join is written down here; the user
 * authentication itself is not there.
 */
#ifndef TESTS_DAEMONS_GMPD_USERS_LAB_H
#define TESTS_DAEMONS_GMPD_USERS_LAB_H

#include <map>
#include <set>
#include <string>
#include <utility>

#include "daemons/gmpd/user_table.h"
#include "tests/daemons/gmpd_lab.h"

namespace gmpd_test
{

class UsersLab
{
public:
    static constexpr unsigned ANY = 0; // the source of a right to all sources

    explicit UsersLab(uint8_t family, const gmpd::Config &config = {})
        : lab(family, config),
          table(
              lab.process,
              [this](uint32_t index, const Address &group, const Address *source) {
                  return may_join(index, group, source);
              },
              [this](const gmpd::User &user, bool present) {
                  users_told += (present ? "+" : "-") + std::to_string(user.info.user_id);
              })
    {
        gmpd::interface_authenticate(*lab.interface, true);
        lab.start();
    }
    ~UsersLab()
    {
        lab.process.interfaces.clear();
    }

    // Users are numbered from 1; each reports from the neighbour of its number. The owner has the link
    // itself.
    void announce(unsigned number, bool owner = false, unsigned neighbour = 0)
    {
        gmpd::User user;
        user.if_index = index_of(number);
        user.node = 3;
        user.kind = owner ? 2 : 1;
        user.owns_link = owner;
        table.add(key_of(number), number, std::move(user));
        place(number, neighbour == 0 ? number : neighbour);
    }
    void place(unsigned number, unsigned neighbour, uint32_t link_index = 7)
    {
        MCAST_USRAUTH_INFO_S info{};
        info.user_id = number;
        info.access_if_index = link_index;
        info.address = lab.neighbour(neighbour);
        table.place(*table.find(key_of(number)), info);
    }
    void withdraw(unsigned number)
    {
        table.remove(key_of(number));
    }
    void permit(unsigned number, unsigned group, unsigned source = ANY)
    {
        rights.insert({index_of(number), group, source});
    }
    void revoke(unsigned number, unsigned group, unsigned source = ANY)
    {
        rights.erase({index_of(number), group, source});
        if (gmpd::User *user = table.find(key_of(number))) {
            table.apply_rights(*user);
        }
    }

    // A record in a report from the neighbour; false when nobody is announced there.
    bool record(unsigned neighbour, gmpd::RecordType type, const std::vector<unsigned> &sources,
                unsigned group = 1)
    {
        gmpd::Memberships *member = table.member(*lab.interface, lab.neighbour(neighbour));
        std::vector<Address> addresses;
        if (member == nullptr) {
            return false;
        }
        for (const unsigned source : sources) {
            addresses.push_back(lab.source(source));
        }
        gmpd::apply_record(*member, type, lab.group(group), addresses);
        return true;
    }

    // Whether the user's own state wants the source.
    bool wants(unsigned number, unsigned group, unsigned source) const
    {
        const gmpd::User *user = table.find(key_of(number));
        const gmpd::GroupState *state = user != nullptr && user->memberships != nullptr
                                            ? gmpd::find_group(*user->memberships, lab.group(group))
                                            : nullptr;

        if (state == nullptr) {
            return false;
        }
        const gmpd::SourceState *found = gmpd::find_source(*state, lab.source(source));

        return found != nullptr ? found->timer.running() : state->exclude;
    }

    bool may_join(uint32_t index, const Address &group, const Address *source) const
    {
        const unsigned group_number = number_of(group);
        return rights.count({index, group_number, ANY}) != 0 ||
               (source != nullptr && rights.count({index, group_number, number_of(*source)}) != 0);
    }
    uint64_t count(gmpd::Count counter) const
    {
        return lab.interface->counters[counter];
    }
    static gmpd::UserTable::Key key_of(unsigned number)
    {
        return reinterpret_cast<gmpd::UserTable::Key>(uintptr_t{number});
    }

    Lab lab;
    std::string users_told;
    std::set<std::tuple<uint32_t, unsigned, unsigned>> rights;
    gmpd::UserTable table;

private:
    static uint32_t index_of(unsigned number)
    {
        return 0xD0000000u + number;
    }
    static unsigned number_of(const Address &address)
    {
        return address.address[gmpd::address_size(address.family) - 1];
    }
};

} // namespace gmpd_test

#endif
