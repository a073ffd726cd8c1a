/*
 * Where a daemon's status goes: to a file, which is replaced as a whole so that its readers never see half of it,
 * or to standard output, whose reader the daemon does not wait for.
 */
#ifndef DAEMONS_COMMON_STATUS_OUTPUT_H
#define DAEMONS_COMMON_STATUS_OUTPUT_H

#include <string>

#include "daemons/common/nonblocking_output.h"
#include "daemons/common/reactor.h"

namespace mcastd
{

class StatusOutput
{
public:
    // The reactor must outlive the object.
    explicit StatusOutput(Reactor &reactor);

    // Writes the text to the file, or prints it when path is empty. What the reader of standard output does not
    // take at once is written when it does; until then no other text is printed. Failures are logged.
    void write(const std::string &path, std::string text);

private:
    void print(std::string text);
    void go_on_printing();

    Reactor &reactor_;
    NonblockingOutput standard_output_;
    std::string printing_; // the rest of a text that standard output has not taken yet
    bool waits_for_room_ = false;
};

// Replaces the file by one that holds text. False with errno set when a step failed; the old file then stays.
bool write_file_atomically(const std::string &path, const std::string &text);

} // namespace mcastd

#endif
