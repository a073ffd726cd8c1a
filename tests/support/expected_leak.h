/*
 * Blocks that a contract loses on purpose: what is allocated while an ExpectedLeak lives is no finding of the
 * leak sanitizer. Without that sanitizer it does nothing; fault::LiveBlocks still counts the blocks.
 */
#ifndef TESTS_SUPPORT_EXPECTED_LEAK_H
#define TESTS_SUPPORT_EXPECTED_LEAK_H

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MCAST_LEAK_SANITIZER 1
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define MCAST_LEAK_SANITIZER 1
#endif

#ifdef MCAST_LEAK_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

class ExpectedLeak
{
public:
    ExpectedLeak()
    {
#ifdef MCAST_LEAK_SANITIZER
        __lsan_disable();
#endif
    }

    ~ExpectedLeak()
    {
#ifdef MCAST_LEAK_SANITIZER
        __lsan_enable();
#endif
    }

    ExpectedLeak(const ExpectedLeak &) = delete;
    ExpectedLeak &operator=(const ExpectedLeak &) = delete;
};

#endif
