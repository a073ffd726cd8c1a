/*
 * The invariants of the user authentication's store.
 */
#ifndef TESTS_SUPPORT_USRAUTH_VALIDATE_H
#define TESTS_SUPPORT_USRAUTH_VALIDATE_H

namespace usrauth_test
{

/*
 * What is wrong with the store, or nullptr: nodes and their trees, lists and back links, the interface tree,
 * the counts of each user's table, flags, the detail records' limit and order. Not from another thread than
 * the event loop's. Linear in everything that is stored.
 */
const char *StoreFault();

} // namespace usrauth_test

#endif
