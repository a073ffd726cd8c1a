/*
 * The code and data of one daemon, loaded once for each of its instances. A daemon with its own main() and with
 * both libraries is linked into one shared object that shows nothing but main and is bound to itself, so that
 * every copy has its own globals. The loader knows files by their inode: each copy is a file of its own.
 *
 * A new life of a daemon finds the globals as they were after loading: the writable segments are saved then, and
 * put back. Nothing is ever unloaded.
 */
#ifndef TESTS_SIMULATION_KERNEL_IMAGE_H
#define TESTS_SIMULATION_KERNEL_IMAGE_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/simulation/kernel/basics.h"

namespace sim
{

class Image
{
public:
    using Main = int (*)(int, char **);

    // Ends the program when the file cannot be loaded.
    explicit Image(const std::string &file);
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;

    // Globals and thread-local data as after loading.
    void restore();
    Main main() const
    {
        return main_;
    }
    // How many invariants of the library were found broken in this life.
    uint32_t broken_invariants() const
    {
        return *assertions_;
    }
    // For a test, which breaks one.
    void break_invariant() const
    {
        ++*assertions_;
    }
    // What the constructors of its globals want done at the end of a life.
    void at_exit(void (*function)(void *), void *argument)
    {
        at_exit_.emplace_back(function, argument);
    }
    const std::vector<std::pair<void (*)(void *), void *>> &at_exit() const
    {
        return at_exit_;
    }
    // The offset of an address in the file, for addr2line; 0 when the address is elsewhere.
    uintptr_t offset_of(const void *address) const;

private:
    struct Segment {
        uint8_t *at;
        Bytes saved;
    };

    void save();

    void *handle_ = nullptr;
    Main main_ = nullptr;
    uint32_t *assertions_ = nullptr;
    uintptr_t base_ = 0;
    uintptr_t end_ = 0;
    std::vector<Segment> segments_;
    std::vector<std::pair<void (*)(void *), void *>> at_exit_;
    Bytes thread_local_;
};

// The one that is being loaded.
extern Image *g_loading_image;

// A loaded image of the daemon that nobody uses at present; it goes back when the pointer ends.
using ImageLease = std::unique_ptr<Image, void (*)(Image *)>;
ImageLease lease_image(const std::string &daemon);

// The folder with the images; the program's own unless set.
void set_image_folder(const std::string &folder);
std::string image_file(const std::string &daemon);

} // namespace sim

#endif
