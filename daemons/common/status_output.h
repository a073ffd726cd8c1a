/*
 * Where a daemon's status goes: to a file, which is replaced as a whole so that its readers never see half of it,
 * or to standard output, whose reader the daemon does not wait for. A round of the event loop makes and writes one
 * part of it, so that the memory it takes is that of a part:
 *
 *      begin ──► first part ──► part, a round ──► ... ──► last part: the file is in place
 *                                      └── standard output is full: when its reader has taken the part
 */
#ifndef DAEMONS_COMMON_STATUS_OUTPUT_H
#define DAEMONS_COMMON_STATUS_OUTPUT_H

#include <optional>
#include <string>

#include "daemons/common/atomic_file.h"
#include "daemons/common/descriptor_reserve.h"
#include "daemons/common/nonblocking_output.h"
#include "daemons/common/reactor.h"
#include "daemons/common/text_parts.h"

namespace mcastd
{

class StatusOutput
{
public:
    // The reactor must outlive the object.
    explicit StatusOutput(Reactor &reactor);

    // Begins to write the text to the file, or to print it when path is empty, with its first part; while busy, does
    // nothing. Failures are logged, and end it.
    void write(const std::string &path, TextParts parts);

    // Writes the next part. Whether one is left that need not wait for a reader.
    bool go_on();

    // Whether a text is being written.
    bool busy() const
    {
        return parts_ != nullptr || !printing_.empty();
    }

    // Whether it waits for the reader of standard output.
    bool waits_for_reader() const
    {
        return waits_for_room_;
    }

private:
    bool make_part(std::string *text);
    void print();
    void fail();

    Reactor &reactor_;
    NonblockingOutput standard_output_;
    TextParts parts_; // empty when there are no more
    std::string path_;
    AtomicFile file_;
    std::optional<DescriptorLoan> loan_; // while the file is written
    std::string printing_;               // the rest of a part that standard output has not taken yet
    bool waits_for_room_ = false;
};

} // namespace mcastd

#endif
