/*
 * What this router asks before a membership ends that another querier let run out.
 */
#ifndef DAEMONS_GMPD_OWN_QUESTION_H
#define DAEMONS_GMPD_OWN_QUESTION_H

#include <cstdint>
#include <optional>

#include "daemons/gmpd/interface.h"

namespace gmpd
{

struct PutOff {
    uint32_t end_s; // since boot
    bool asked;     // hosts have been asked and can answer until then
};

// To be called when something on the link that hosts want has not been confirmed for a membership interval: until
// when it lives on, or nothing when it may end now. May send a general query.
std::optional<PutOff> ask_before_end(Interface &link);

// What is confirmed up to now is to be asked about before it ends: another router has been the querier.
void doubt_memberships(Interface &link);

// Ends asking and doubt.
void forget_own_question(Interface &link);

} // namespace gmpd

#endif
