/*
 * Descriptors kept back for what must work when all others are taken: answering mcastctl and reading the
 * configuration again. Each is an open /dev/null, closed when it is lent, so that the next one the process
 * opens takes its place. What was lent comes back when a descriptor is free (Reactor).
 *
 * One reserve a process, of the event loop's thread.
 */
#ifndef DAEMONS_COMMON_DESCRIPTOR_RESERVE_H
#define DAEMONS_COMMON_DESCRIPTOR_RESERVE_H

#include <cstddef>
#include <cstdint>

namespace mcastd
{

// How many are kept back, and how many of them connections to the control port may not take.
constexpr size_t RESERVED_DESCRIPTORS = 8;
constexpr size_t RESERVED_FROM_CONTROL = 4;

// Opens what is missing, as far as there are descriptors.
void fill_descriptor_reserve();

// Closes one if more than keep are there; the caller opens another one at once. Whether it did.
bool lend_descriptor(size_t keep);

// How often lend_descriptor closed one.
uint64_t descriptors_lent();

// Lends all for as long as it lives, to what opens and closes a few.
class DescriptorLoan
{
public:
    DescriptorLoan();
    ~DescriptorLoan();
    DescriptorLoan(const DescriptorLoan &) = delete;
    DescriptorLoan &operator=(const DescriptorLoan &) = delete;
};

} // namespace mcastd

#endif
