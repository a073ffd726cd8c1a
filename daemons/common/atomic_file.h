/*
 * A file that is replaced as a whole, so that its readers never see half of it, however slowly it is written.
 */
#ifndef DAEMONS_COMMON_ATOMIC_FILE_H
#define DAEMONS_COMMON_ATOMIC_FILE_H

#include <string>

#include "daemons/common/descriptor.h"

namespace mcastd
{

class AtomicFile
{
public:
    AtomicFile() = default;
    // Unless it was committed, nothing of what was written remains.
    ~AtomicFile();
    AtomicFile(const AtomicFile &) = delete;
    AtomicFile &operator=(const AtomicFile &) = delete;

    // Each is false with errno set when a step failed; the file at path is then as it was.
    // Begins a new text beside the file, in place of one that is being written. All may read it.
    bool open(const std::string &path);
    bool append(const std::string &text);
    // Puts the text in place of the file, and ends writing.
    bool commit();

    bool is_open() const
    {
        return file_.valid();
    }

    // Ends writing without a trace. errno stays.
    void abandon();

private:
    std::string path_;
    std::string temporary_;
    Descriptor file_;
};

} // namespace mcastd

#endif
