/*
 * Descriptors that a loop leaves alone for a second, because their handlers can do nothing about them and they
 * would be ready all the time until then:
 *
 *  - a local socket whose peer has stopped sending, and of which everything was read: who waits for nothing but
 *    hang-up does not notice the end of what comes. After the second the connection is shut, which is hang-up;
 *  - a listener on which a connection waits for which there is no descriptor or memory. After the second it is
 *    watched again.
 *
 * A registration that its owner changes meanwhile counts from then on.
 */
#ifndef HOST_SRC_LOOP_REST_H
#define HOST_SRC_LOOP_REST_H

#include <cstdint>

#include "loop.h"

namespace host
{

// To be called after the handler of the descriptor ran, with the events that the kernel told.
void rest_when_useless(Loop *loop, int fd, uint32_t events);

// accept on the listener found a connection, and no descriptor or memory for it; or it gave one out.
void accept_ran_short(int listener);
void accept_went_well(int listener);

} // namespace host

#endif
