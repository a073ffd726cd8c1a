/*
 * The active daemon's end of the backup: a local port where standbys of the same family connect and are told
 * which user has which interface index, everything first and then what changes. The daemon that listens there is the
 * active one.
 */
#ifndef DAEMONS_GMPD_BACKUP_SERVER_H
#define DAEMONS_GMPD_BACKUP_SERVER_H

#include <cstdint>
#include <map>
#include <set>

#include "daemons/common/reactor.h"
#include "daemons/gmpd/user_indexes.h"

namespace gmpd
{

class BackupServer
{
public:
    // Standbys at a time; others are turned away.
    static constexpr size_t MOST_STANDBYS = 4;

    // Both must outlive the server.
    BackupServer(mcastd::Reactor &reactor, const UserIndexes &indexes);
    ~BackupServer();
    BackupServer(const BackupServer &) = delete;
    BackupServer &operator=(const BackupServer &) = delete;

    // Listens on the port. False on failure, which is logged.
    bool open(uint16_t port);

    // Ends listening and every connection, which tells the standbys that nobody is active; harmless when not
    // open.
    void close();

    // The user's index came or went.
    void index_changed(const UserKey &user);

    // Tells the standbys what they have not been told; to be called after everything that a wake-up brought.
    void flush();

    // Standbys that know everything.
    size_t synchronised() const;

private:
    // A connected standby. It is told of the users in the order of their keys, in
    // whatever state each is then. So what waits for a slow one is bounded by the number of users.
    struct Peer {
        std::set<UserKey> untold;
        bool begun = false;
        bool synchronised = false;
        bool missed = false; // there was no memory for what it is to be told
        bool waits_for_room = false;
    };

    void accept_standbys();
    void adopt(int fd);
    void serve(int fd, uint32_t events);
    bool send_untold(int fd, Peer &standby);
    bool send_some(int fd, Peer &standby);
    void drop(int fd, const char *why);

    mcastd::Reactor &reactor_;
    const UserIndexes &indexes_;
    int listener_ = -1;
    std::map<int, Peer> standbys_;
};

} // namespace gmpd

#endif
