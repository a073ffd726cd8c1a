/*
 * As whom mcastctl talks to the daemons. They listen in a directory of their user's own, so that it takes that
 * user's place, and root can take anybody's.
 */
#ifndef DAEMONS_MCASTCTL_DAEMON_USER_H
#define DAEMONS_MCASTCTL_DAEMON_USER_H

#include <string>

namespace mcastctl
{

// Becomes the user, a name or a number. With an empty text root, unless daemons of root's own run in this
// network namespace, becomes the one user whose daemons do; everybody else, and root without such a user,
// stays. False with *error set when the user cannot be taken, or there are several to choose from.
bool become_daemons_user(const std::string &user, std::string *error);

} // namespace mcastctl

#endif
