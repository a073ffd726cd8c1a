#ifndef TESTS_GDB_STOPPED_H
#define TESTS_GDB_STOPPED_H

/* Announces two users to the process's own service, through a local socket. 0 when they are there. */
int AnnounceUsers(void);

#endif
