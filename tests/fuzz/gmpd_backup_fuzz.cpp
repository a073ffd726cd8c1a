/*
 * Bytes into the reader of a standby. What is read as a message is written as the same bytes.
 */
#include <algorithm>
#include <cstdlib>

#include "daemons/gmpd/backup_message.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto message = gmpd::decode_backup(std::span(data, size));

    if (message) {
        const std::vector<uint8_t> again = gmpd::encode(*message);

        if (!std::equal(again.begin(), again.end(), data, data + size)) {
            abort();
        }
    }
    return 0;
}
