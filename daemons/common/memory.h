/*
 * The one rule for a lack of memory. What would make the daemon hold more is refused and counted; what it holds
 * stays; what must work all the same takes its memory from a reserve that is kept for it:
 *
 *      free for the C library ├── HEADROOM ──┤
 *      kept back              ├──────── RESERVE ────────┤   lent to operator new, timers and must_have when
 *                                                           an allocation fails; then memory is short
 *
 * Growth asks memory_permits first. While there is headroom, all that follows from the growth finds room, also in
 * libraries that know nothing of the reserve. Without headroom memory is short: nothing grows until the reserve is
 * whole and there is headroom again. Everything else goes on.
 *
 * Should the reserve too be used up, std::bad_alloc ends what is being done, at the nearest place where something
 * can be refused as a whole: an event, a timer, a callback (memory_unit). The daemon goes on with the next one. Memory
 * counts as short then, and rounds of the event loop come in which it is looked for what is left to be done.
 *
 * All of it belongs to the event loop's thread but the handler of operator new, which any thread may call.
 */
#ifndef DAEMONS_COMMON_MEMORY_H
#define DAEMONS_COMMON_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <new>

namespace mcastd
{

// What is kept back, and what is to be free beside it while state may grow.
constexpr size_t MEMORY_RESERVE = size_t{1024} * 1024;
constexpr size_t MEMORY_HEADROOM = size_t{512} * 1024;

// Takes the reserve and becomes the handler of operator new. False when there is not even that much; nothing is
// kept back then. Before it, and in programs that never call it, everything may grow.
bool memory_open();

// Whether something that takes about so many bytes may be made; what is refused is counted.
bool memory_permits(size_t bytes);

// Whether growth is refused at present.
bool memory_is_short();

// Gives the reserve to whoever cannot go on without memory. False when it is lent already.
bool memory_lend();

// To be called every round of the event loop: looks whether there is room again. The milliseconds after which it wants
// to be called again at the latest, -1 for no wish.
int memory_tend();

// What was refused for lack of memory, growth and whole units, and how often the reserve was lent.
uint64_t memory_refusals();
uint64_t memory_lent();

// Counts a refusal and says so; for what finds no memory where it did not ask before.
void memory_refuse(const char *what);

// What make returns, NULL for a failure, with the help of the reserve. Throws std::bad_alloc when that is used up.
template <typename Make> auto must_have(const Make &make)
{
    auto *made = make();
    if (made == nullptr && memory_lend()) {
        made = make();
    }
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    return made;
}

// Does the work. False when it found no memory, which is counted; what names it in the log. No exception leaves it,
// so that it may be called by code that knows none.
template <typename Work> bool memory_unit(const char *what, const Work &work) noexcept
{
    try {
        work();
        return true;
    } catch (const std::bad_alloc &) {
        memory_refuse(what);
        return false;
    }
}

} // namespace mcastd

#endif
