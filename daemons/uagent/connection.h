/*
 * The connection to a daemon. Messages are batched by the library's messager into packets of at most one read
 * of the daemon; a packet that the socket does not take waits in it and is tried again in order.
 *
 * Nothing in the protocol says that a message arrived, and a daemon drops what a connection that has ended
 * left unread. So finish waits until everything was read.
 */
#ifndef DAEMONS_UAGENT_CONNECTION_H
#define DAEMONS_UAGENT_CONNECTION_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "daemons/common/descriptor.h"
#include "mcast/messager.h"

namespace uagent
{

class Connection
{
public:
    // timeout_ms bounds each wait for the daemon.
    explicit Connection(int timeout_ms);

    // Connects to the daemon of the family. Like those below: false with *error set when it failed, and no
    // further use then.
    bool open(uint16_t family, std::string *error);

    // Appends a message, which is at most one packet long.
    bool send(const std::vector<uint8_t> &message, std::string *error);

    // Hands what was appended to the socket.
    bool flush(std::string *error);

    // The same, and waits until the daemon has read it.
    bool finish(std::string *error);

    // flush and finish, and send where it waits, fail as soon as the function says so.
    void stop_waiting_when(bool (*asked_for)())
    {
        stop_asked_for_ = asked_for;
    }

    // Whether the daemon closed the connection.
    bool hung_up() const;

    // The socket; hang-up is reported on it when the daemon closes the connection.
    int descriptor() const
    {
        return socket_.get();
    }

private:
    struct End {
        void operator()(MESSAGER_S *messager) const
        {
            Messager_Fini(messager);
        }
    };

    int timeout_ms_;
    bool (*stop_asked_for_)() = [] { return false; };
    mcastd::Descriptor socket_;
    std::unique_ptr<MESSAGER_S, End> messager_;
};

} // namespace uagent

#endif
