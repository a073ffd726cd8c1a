/* The library's radix tree as a container of the radix benchmark. */
#ifndef BENCH_RADIX_OURS_H
#define BENCH_RADIX_OURS_H

#include "radix_container.h"

namespace radix_bench
{

class Ours : public Container
{
public:
    explicit Ours(const Workload &of)
        : Container(of), entries(of.stored.size()),
          tree(MRT_RDX_CreateTree(offsetof(Entry, key), offsetof(Entry, length),
                                  offsetof(MCAST_ADDR_S, address), FullLength(of)))
    {
        for (size_t i = 0; i < entries.size(); ++i) {
            entries[i] = {&of.stored[i].address, of.stored[i].length};
        }
    }

    ~Ours() override
    {
        MRT_RDX_DestroyTree(tree);
    }

    void Insert(size_t index) override
    {
        MRT_RDX_AddNode(tree, &entries[index]);
    }

    void Delete(size_t index) override
    {
        MRT_RDX_DeleteNode(tree, &entries[index]);
    }

    size_t Exact() override
    {
        size_t hits = 0;
        for (const Prefix &prefix : work.present) {
            hits += MRT_RDX_Locate(tree, &prefix.address, prefix.length) != nullptr;
        }
        return hits;
    }

    size_t Best() override
    {
        size_t hits = 0;
        for (const Prefix &prefix : work.targets) {
            hits += MRT_RDX_LocateBest(tree, &prefix.address, FullLength(work), nullptr, nullptr) != nullptr;
        }
        return hits;
    }

    size_t Next() override
    {
        size_t hits = 0;
        for (const Prefix &prefix : work.present) {
            hits += MRT_RDX_GetNext(tree, &prefix.address, prefix.length) != nullptr;
        }
        return hits;
    }

    size_t Walk() override
    {
        MRT_RDX_WALK_S *walk = MRT_RDX_CreateWalk(tree, nullptr, 0, MRT_RDX_WALK_FORWARD);
        size_t hits = 0;
        while (MRT_RDX_WalkNext(walk) != nullptr) {
            ++hits;
        }
        MRT_RDX_DestroyWalk(walk);
        return hits;
    }

private:
    struct Entry {
        const MCAST_ADDR_S *key;
        uint8_t length;
    };

    std::vector<Entry> entries;
    MRT_RDX_TREE_S *tree;
};

} // namespace radix_bench

#endif
