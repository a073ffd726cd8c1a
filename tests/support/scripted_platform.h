/*
 * The platform under a test's control: stand-ins for the platform's interface data, ordered trees, hash
 * tables and prefix trees that are as simple as can be, fail on demand and count what is alive. Test programs
 * that link the library's objects link these. Their own memory is not counted by fault::LiveBlocks.
 */
#ifndef TESTS_SUPPORT_SCRIPTED_PLATFORM_H
#define TESTS_SUPPORT_SCRIPTED_PLATFORM_H

#include <cstdint>

namespace platform
{

/* The operations that can be made to fail. */
enum class Operation {
    kCreateInstance, /* IF_CreatePDInstance */
    kSetPrivateData, /* IF_SetPrivateData */
    kTreeInit,       /* AVL_Init */
    kTreeInsert,     /* AVL_Insert */
    kPrefixInsert,   /* insert of g_astRdxAFICBArray */
    kHashInit,       /* HASH_Init */
    kHashInsert,     /* HASH_Insert */
    kCount
};

/* Makes the nth call of the operation from now fail (1 = the next); 0 fails none. */
void Fail(Operation operation, unsigned long nth);

/* Makes every call of the operation fail until Reset. */
void FailAlways(Operation operation);

/* Calls of the operation since Reset, failed ones included. */
unsigned long Calls(Operation operation);

/* Ends all failures and forgets the calls counted. Instances, trees and tables live on. */
void Reset();

/* Private-data instances, ordered trees and hash tables created and not yet ended. */
long LiveInstances();
long LiveTrees();
long LiveTables();

} // namespace platform

#endif
