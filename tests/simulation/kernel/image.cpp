#include "tests/simulation/kernel/image.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <link.h>
#include <map>
#include <unistd.h>

#include "tests/simulation/kernel/memory.h"

namespace sim
{

Image *g_loading_image;

namespace
{

std::string g_folder = ".";

// The sanitizer keeps what lies between globals poisoned; this copies all the same.
__attribute__((noinline, no_sanitize("address"))) void copy_raw(uint8_t *to, const uint8_t *from, size_t size)
{
    asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(size)::"memory");
}

struct Search {
    uintptr_t base;
    dl_phdr_info found;
};

int find_object(dl_phdr_info *info, size_t, void *context)
{
    Search &search = *static_cast<Search *>(context);
    if (info->dlpi_addr != search.base) {
        return 0;
    }
    search.found = *info;
    return 1;
}

dl_phdr_info object_at(uintptr_t base)
{
    Search search{base, {}};
    dl_iterate_phdr(find_object, &search);
    return search.found;
}

struct Pool {
    std::map<std::string, std::vector<std::unique_ptr<Image>>> unused;
    std::map<const Image *, std::string> daemons;
};

Pool &pool()
{
    static Pool &all = *new Pool; // images outlive everything
    return all;
}

void give_back(Image *image)
{
    pool().unused[pool().daemons.at(image)].emplace_back(image);
}

// A copy that nobody else has: the loader knows a program by its file. The kernel finds a name that is free, for other
// simulations may run as the same process number in other namespaces, or have left theirs behind.
std::string copy_of(const std::string &file)
{
    std::string copy = std::filesystem::temp_directory_path() / "simulation.XXXXXX";
    const int made = mkstemp(copy.data());
    if (made < 0) {
        perror(copy.c_str());
        exit(2);
    }
    close(made);
    std::filesystem::copy_file(file, copy, std::filesystem::copy_options::overwrite_existing);
    return copy;
}

} // namespace

Image::Image(const std::string &file)
{
    const std::string copy = copy_of(file);
    g_loading_image = this;
    g_account = &g_loading_account;
    handle_ = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    g_account = nullptr;
    g_loading_image = nullptr;
    std::filesystem::remove(copy);
    if (handle_ == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        exit(2);
    }
    main_ = reinterpret_cast<Main>(dlsym(handle_, "main"));
    assertions_ = static_cast<uint32_t *>(dlsym(handle_, "g_uiMcastAssertCnt"));
    save();
}

void Image::save()
{
    link_map *map = nullptr;
    dlinfo(handle_, RTLD_DI_LINKMAP, &map);
    base_ = map->l_addr;
    const dl_phdr_info info = object_at(base_);
    uintptr_t read_only_end = 0; // what relocation alone writes
    for (int i = 0; i < info.dlpi_phnum; ++i) {
        const auto &part = info.dlpi_phdr[i];
        if (part.p_type == PT_GNU_RELRO) {
            read_only_end = (base_ + part.p_vaddr + part.p_memsz) & ~uintptr_t{4095};
        }
    }
    for (int i = 0; i < info.dlpi_phnum; ++i) {
        const auto &part = info.dlpi_phdr[i];
        const uintptr_t begin = base_ + part.p_vaddr;
        const uintptr_t end = begin + part.p_memsz;
        if (part.p_type == PT_TLS) {
            thread_local_.assign(part.p_memsz, 0);
            copy_raw(thread_local_.data(), reinterpret_cast<const uint8_t *>(begin), part.p_filesz);
        } else if (part.p_type == PT_LOAD) {
            end_ = std::max(end_, end);
            if ((part.p_flags & PF_W) != 0) {
                const uintptr_t from = std::max(begin, read_only_end);
                segments_.push_back({reinterpret_cast<uint8_t *>(from), Bytes(end - from)});
                copy_raw(segments_.back().saved.data(), segments_.back().at, end - from);
            }
        }
    }
}

void Image::restore()
{
    for (const Segment &segment : segments_) {
        copy_raw(segment.at, segment.saved.data(), segment.saved.size());
    }
    const dl_phdr_info info = object_at(base_);
    if (info.dlpi_tls_data != nullptr) {
        copy_raw(static_cast<uint8_t *>(info.dlpi_tls_data), thread_local_.data(), thread_local_.size());
    }
}

uintptr_t Image::offset_of(const void *address) const
{
    const uintptr_t at = reinterpret_cast<uintptr_t>(address);
    return at >= base_ && at < end_ ? at - base_ : 0;
}

ImageLease lease_image(const std::string &daemon)
{
    auto &unused = pool().unused[daemon];
    if (unused.empty()) {
        unused.push_back(std::make_unique<Image>(image_file(daemon)));
        pool().daemons[unused.back().get()] = daemon;
    }
    ImageLease lease(unused.back().release(), give_back);
    unused.pop_back();
    return lease;
}

void set_image_folder(const std::string &folder)
{
    g_folder = folder;
}

std::string image_file(const std::string &daemon)
{
    return g_folder + "/simulation_" + daemon + ".so";
}

} // namespace sim
