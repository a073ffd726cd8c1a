/*
 * A folder of a test's own for local ports, which goes with the object.
 */
#ifndef TESTS_DAEMONS_RUNTIME_FOLDER_H
#define TESTS_DAEMONS_RUNTIME_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <string>

class RuntimeFolder
{
public:
    RuntimeFolder()
    {
        char path[] = "/tmp/mcast-test-XXXXXX";
        if (mkdtemp(path) == nullptr || setenv("MCAST_HOST_RUNTIME_DIR", path, 1) != 0) {
            std::abort();
        }
        path_ = path;
    }
    ~RuntimeFolder()
    {
        unsetenv("MCAST_HOST_RUNTIME_DIR");
        std::filesystem::remove_all(path_);
    }
    RuntimeFolder(const RuntimeFolder &) = delete;
    RuntimeFolder &operator=(const RuntimeFolder &) = delete;

    const std::string &path() const
    {
        return path_;
    }

private:
    std::string path_;
};

#endif
