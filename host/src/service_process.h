// Processes of services: started, reaped, and found again by whoever looks.
#ifndef HOST_SRC_SERVICE_PROCESS_H
#define HOST_SRC_SERVICE_PROCESS_H

#include <string>
#include <vector>

namespace host
{

/*
 * Starts the command: a session of its own, in the calling thread's network namespace, with our environment,
 * directory and standard output and error, nothing on its standard input, no signal blocked or ignored, and
 * of our descriptors only the mark, as its descriptor 3. It is reaped when it ends. 0, or the errno of what
 * failed. May throw std::bad_alloc and std::system_error.
 */
int start_process(const std::vector<std::string> &command, int mark);

} // namespace host

#endif
