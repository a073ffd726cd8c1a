/*
 * Where the lines of log and traces go: standard error, through a buffer of fixed size. A reader that stalls
 * fills the buffer; what finds no room is lost and counted, and where the gap is a line says how large it is.
 * Nothing here waits or takes memory. All of it belongs to the thread of the event loop.
 */
#ifndef DAEMONS_COMMON_LOG_OUTPUT_H
#define DAEMONS_COMMON_LOG_OUTPUT_H

#include <cstddef>
#include <cstdint>

namespace mcastd
{

// Bytes that wait for the reader at most, beside what its pipe holds.
constexpr size_t LOG_BUFFER_SIZE = size_t{64} * 1024;

// The longest line, newline included.
constexpr size_t LOG_LINE_MAX = 1024;

// Opens what writing needs, so that it works when descriptors have run out.
void log_output_prepare();

// Writes the line, which ends with a newline, or keeps it until there is room. errno is kept.
void log_output_line(const char *line, size_t size);

// Writes what waits, as far as there is room. Whether something still waits.
bool log_output_flush();

// Lines that found no room, or that a reader who is gone did not take.
uint64_t log_lines_lost();

} // namespace mcastd

#endif
