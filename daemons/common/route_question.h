/*
 * What a refused question for a route says: that there is none, or nothing about routes.
 */
#ifndef DAEMONS_COMMON_ROUTE_QUESTION_H
#define DAEMONS_COMMON_ROUTE_QUESTION_H

#include <cerrno>

namespace mcastd
{

// Whether the error of a look-up says nothing about routes: the kernel could not be asked, and later perhaps can.
inline bool could_not_ask(int error)
{
    return error == ENOMEM || error == ENOBUFS || error == EMFILE || error == ENFILE || error == EAGAIN ||
           error == EINTR;
}

} // namespace mcastd

#endif
