/*
 * A process that can open no further descriptor for as long as one of these lives: everything below its limit
 * is taken.
 */
#ifndef TESTS_DAEMONS_DESCRIPTOR_SHORTAGE_H
#define TESTS_DAEMONS_DESCRIPTOR_SHORTAGE_H

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

class Shortage
{
public:
    Shortage()
    {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
        const rlimit few{DESCRIPTORS, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        int fd;
        while ((fd = dup(STDERR_FILENO)) >= 0) {
            taken_.push_back(fd);
        }
    }
    ~Shortage()
    {
        setrlimit(RLIMIT_NOFILE, &before_);
        for (const int fd : taken_) {
            close(fd);
        }
    }
    Shortage(const Shortage &) = delete;
    Shortage &operator=(const Shortage &) = delete;

private:
    static constexpr rlim_t DESCRIPTORS = 256; // more than a test has open

    rlimit before_{};
    std::vector<int> taken_;
};

#endif
