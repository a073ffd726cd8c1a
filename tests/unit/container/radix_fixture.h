/* Entries as a caller of the radix tree keeps them, and short ways to write prefixes. */
#ifndef TESTS_UNIT_CONTAINER_RADIX_FIXTURE_H
#define TESTS_UNIT_CONTAINER_RADIX_FIXTURE_H

#include <arpa/inet.h>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mcast/radix.h"

namespace radix_test
{

/* An entry whose key pointer and length do not stand at its beginning. */
struct Entry {
    uint64_t payload;
    const MCAST_ADDR_S *key;
    uint8_t length;
    MCAST_ADDR_S record;
};

inline MCAST_ADDR_S Address(const char *text)
{
    MCAST_ADDR_S address = {};
    address.family = std::string(text).find(':') == std::string::npos ? MCAST_FAMILY_IPV4 : MCAST_FAMILY_IPV6;
    inet_pton(address.family, text, address.address);
    return address;
}

inline MRT_RDX_TREE_S *NewTree(unsigned maximum_length)
{
    return MRT_RDX_CreateTree(offsetof(Entry, key), offsetof(Entry, length), offsetof(MCAST_ADDR_S, address),
                              maximum_length);
}

/* A tree and its entries, both gone at the end of the test. */
class Fixture
{
public:
    explicit Fixture(unsigned maximum_length) : tree(NewTree(maximum_length))
    {
    }

    ~Fixture()
    {
        if (tree != nullptr) {
            MRT_RDX_DestroyTree(tree);
        }
    }

    Fixture(const Fixture &) = delete;
    Fixture &operator=(const Fixture &) = delete;

    Entry *Make(const char *address, unsigned length)
    {
        entries.push_back(std::make_unique<Entry>());
        Entry *entry = entries.back().get();

        entry->record = Address(address);
        entry->key = &entry->record;
        entry->length = static_cast<uint8_t>(length);
        return entry;
    }

    Entry *Add(const char *address, unsigned length)
    {
        Entry *entry = Make(address, length);
        MRT_RDX_AddNode(tree, entry);
        return entry;
    }

    void *Locate(const char *address, unsigned length) const
    {
        MCAST_ADDR_S key = Address(address);
        return MRT_RDX_Locate(tree, &key, length);
    }

    void *Best(const char *address, unsigned length, MRT_RDX_FILTER filter = nullptr,
               void *argument = nullptr) const
    {
        MCAST_ADDR_S key = Address(address);
        return MRT_RDX_LocateBest(tree, &key, length, filter, argument);
    }

    void *Next(const char *address, unsigned length) const
    {
        MCAST_ADDR_S key = Address(address);
        return MRT_RDX_GetNext(tree, &key, length);
    }

    void *SearchNext(const char *address, unsigned length) const
    {
        MCAST_ADDR_S key = Address(address);
        return MRT_RDX_SearchNextBest(tree, &key, length);
    }

    MRT_RDX_WALK_S *Walk(const char *address, unsigned length, unsigned kind) const
    {
        MCAST_ADDR_S key = Address(address);
        return MRT_RDX_CreateWalk(tree, &key, length, kind);
    }

    /* Everything that a walk still yields; the walk is destroyed. */
    static std::vector<void *> Drain(MRT_RDX_WALK_S *walk)
    {
        std::vector<void *> yielded;
        for (void *entry = MRT_RDX_WalkNext(walk); entry != nullptr; entry = MRT_RDX_WalkNext(walk)) {
            yielded.push_back(entry);
        }
        MRT_RDX_DestroyWalk(walk);
        return yielded;
    }

    std::vector<void *> All(unsigned kind = MRT_RDX_WALK_FORWARD) const
    {
        return Drain(MRT_RDX_CreateWalk(tree, nullptr, 0, kind));
    }

    MRT_RDX_TREE_S *tree;
    std::vector<std::unique_ptr<Entry>> entries;
};

using Entries = std::vector<void *>;

} // namespace radix_test

#endif
