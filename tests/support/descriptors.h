/*
 * Counting the process's open descriptors, so that a test can see one leak.
 */
#ifndef TESTS_SUPPORT_DESCRIPTORS_H
#define TESTS_SUPPORT_DESCRIPTORS_H

#include <dirent.h>

/* Descriptors open now, or -1 when they cannot be listed. */
inline int OpenDescriptors()
{
    DIR *directory = opendir("/proc/self/fd");
    int count = 0;
    if (directory == nullptr) {
        return -1;
    }
    while (readdir(directory) != nullptr) {
        ++count;
    }
    closedir(directory);
    return count;
}

#endif
