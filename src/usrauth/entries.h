/*
 * The (group, source) pairs that a user may join. Those that an agent sends are marked as seen; the end of
 * its list takes the others away.
 */
#ifndef SRC_USRAUTH_ENTRIES_H
#define SRC_USRAUTH_ENTRIES_H

#include "usrauth/message.h"
#include "usrauth/store.h"

namespace mcast::usrauth
{

/* Sets an empty table up. False when memory is short. */
bool InitEntries(MTABLE_S *table);

/* Ends the table with all its entries. */
void FiniEntries(MTABLE_S *table);

/* Adds the entries of a message, and marks them as seen. Those for which memory is short are left out. */
void AddEntries(MTABLE_S *table, EntryReader entries) MCAST_REQUIRES(g_stUsrAuthRWLock);

/* Removes the entries that were not seen and clears the mark of the others. True when any was removed. */
bool EndEntries(MTABLE_S *table) MCAST_REQUIRES(g_stUsrAuthRWLock);

} // namespace mcast::usrauth

#endif
