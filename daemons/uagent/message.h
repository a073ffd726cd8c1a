/*
 * The messages of a command, in the order in which they are sent.
 *
 *     announce        announce, group list ..., group list end
 *     update          update, group list ..., group list end
 *     groups          group list ..., group list end
 *     withdraw        withdraw
 *     refresh-begin   refresh begin
 *     refresh-end     refresh end
 *
 * A daemon reads at most USRAUTH_MSG_RECV_MAX bytes at once and joins nothing over two reads. So no message
 * is longer than that, and a long group list goes out in as many messages as it takes.
 */
#ifndef DAEMONS_UAGENT_MESSAGE_H
#define DAEMONS_UAGENT_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "daemons/uagent/command.h"

namespace uagent
{

struct Message {
    uint16_t type = 0;
    std::vector<uint8_t> bytes;
    // The permissions of the command that it carries.
    size_t first_permission = 0;
    size_t permission_count = 0;
};

std::vector<Message> build_messages(const Command &command);

} // namespace uagent

#endif
