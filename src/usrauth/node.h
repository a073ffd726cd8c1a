/*
 * Access nodes: found by number, made for their first user, gone with their last.
 */
#ifndef SRC_USRAUTH_NODE_H
#define SRC_USRAUTH_NODE_H

#include "usrauth/store.h"

namespace mcast::usrauth
{

/* The node of that number, or nullptr. */
Node *FindNode(uint16_t number);

/* The first node and the one behind another, in no particular order; or nullptr. */
Node *FirstNode();
Node *NextNode(const Node *node);

/* Makes a node without users; nullptr when memory is short. */
Node *CreateNode(uint16_t number) MCAST_REQUIRES(g_stUsrAuthRWLock);

/* Frees the node when it has no users. */
void DeleteNodeIfEmpty(Node *node) MCAST_REQUIRES(g_stUsrAuthRWLock);

/* For the hash: frees a node with its users and stops its timers. */
void FreeNodeRecord(void *record);

/* Whether the node of that number has a user of the kind, which is below kKinds. */
bool HasUserOfKind(uint16_t number, uint32_t kind);

/* Puts the user at the end of the list of its kind, and takes it out. */
void LinkKind(User *user) MCAST_REQUIRES(g_stUsrAuthRWLock);
void UnlinkKind(User *user) MCAST_REQUIRES(g_stUsrAuthRWLock);

/* Calls node_kind_changed. */
void TellNodeKind(uint16_t number, uint32_t kind, uint32_t up) MCAST_EXCLUDES(g_stUsrAuthRWLock);

/*
 * Calls node_kind_changed with up 0 when the node has no user of the kind. Kinds without a list are ignored.
 */
void TellIfKindIsGone(uint16_t number, uint32_t kind) MCAST_EXCLUDES(g_stUsrAuthRWLock);

} // namespace mcast::usrauth

#endif
