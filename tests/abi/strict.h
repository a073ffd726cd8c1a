/* What strict.c saw of the records. */
#ifndef TESTS_ABI_STRICT_H
#define TESTS_ABI_STRICT_H

#include <stddef.h>

struct strict_layout {
    size_t lock_size;
    size_t lock_alignment;
    size_t instance_size;
    size_t last_field_of_instance;
};

extern const struct strict_layout strict_layout;

#endif
