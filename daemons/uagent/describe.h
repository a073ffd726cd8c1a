/*
 * What is sent, in words: one line a message, for people or as a JSON object.
 */
#ifndef DAEMONS_UAGENT_DESCRIBE_H
#define DAEMONS_UAGENT_DESCRIBE_H

#include <string>

#include "daemons/uagent/message.h"

namespace uagent
{

// message is one of build_messages(command). Without a newline.
std::string describe(const Command &command, const Message &message);
std::string describe_json(const Command &command, const Message &message);

} // namespace uagent

#endif
