/*
 * What the whole process has: its configuration, its interfaces, and what they all need.
 */
#ifndef DAEMONS_GMPD_PROCESS_H
#define DAEMONS_GMPD_PROCESS_H

#include <cstdint>
#include <map>
#include <memory>

#include "daemons/gmpd/config.h"
#include "daemons/gmpd/effects.h"
#include "daemons/gmpd/interface.h"
#include "daemons/gmpd/policy.h"
#include "daemons/gmpd/users.h"
#include "mcast/timer.h"

namespace gmpd
{

// The policy of a process that has been given none.
inline const Policy EVERYTHING_MAY{};

struct Process {
    Config config;
    MCAST_TMR_S *timers = nullptr;          // not owned; outlives the interfaces
    QuerySink *queries = nullptr;           // not owned
    MribSink *mrib = nullptr;               // not owned
    const Policy *policy = &EVERYTHING_MAY; // not owned
    Users *users = nullptr;                 // not owned; NULL without authentication
    ProcessUse use;
    std::map<uint32_t, std::unique_ptr<Interface>> interfaces;
};

} // namespace gmpd

#endif
