#include "support/scripted_platform.h"

#include <array>
#include <atomic>
#include <map>
#include <set>

#include "platform/avl.h"
#include "platform/interface.h"

namespace
{

using platform::Operation;

struct Script {
    unsigned long calls = 0;
    unsigned long failing = 0; /* the call that fails */
    bool always = false;
};

std::array<Script, static_cast<std::size_t>(Operation::kCount)> g_scripts;

Script &ScriptOf(Operation operation)
{
    return g_scripts.at(static_cast<std::size_t>(operation));
}

using PrivateData = std::map<uint32_t, void *>;

/* Readers of different instances and trees may run in parallel, so nothing but these counts is shared. */
std::atomic<long> g_live_instances{0};
std::atomic<long> g_live_trees{0};

PrivateData *InstanceOf(IF_INSTANCE handle)
{
    return handle == IF_NO_INSTANCE ? nullptr : reinterpret_cast<PrivateData *>(handle);
}

uint32_t Fetch(PrivateData &data, PrivateData::iterator at, uint32_t *if_index, void **out)
{
    if (at == data.end()) {
        return 1;
    }
    *if_index = at->first;
    *out = at->second;
    return 0;
}

/* What a tree search looks for: a key of its own, with the comparison that knows it. */
struct Probe {
    const void *key;
    AVL_KEY_COMPARE compare;
};

struct RecordLess {
    using is_transparent = void;
    AVL_NODE_COMPARE compare;

    bool operator()(const void *first, const void *second) const
    {
        return compare(first, second) < 0;
    }
    bool operator()(const void *record, const Probe &probe) const
    {
        return probe.compare(record, probe.key) < 0;
    }
    bool operator()(const Probe &probe, const void *record) const
    {
        return probe.compare(record, probe.key) > 0;
    }
};

struct Tree {
    std::set<void *, RecordLess> records;
    AVL_FREE free_record;
};

Tree *TreeOf(AVL_HANDLE handle)
{
    return reinterpret_cast<Tree *>(handle);
}

} // namespace

namespace platform
{

/* For the stand-ins of this folder: counts a call and tells whether it is to fail. */
bool Fails(Operation operation)
{
    Script &script = ScriptOf(operation);
    ++script.calls;
    if (script.failing != 0 && --script.failing == 0) {
        return true;
    }
    return script.always;
}

void Fail(Operation operation, unsigned long nth)
{
    ScriptOf(operation).failing = nth;
}

void FailAlways(Operation operation)
{
    ScriptOf(operation).always = true;
}

unsigned long Calls(Operation operation)
{
    return ScriptOf(operation).calls;
}

void Reset()
{
    g_scripts.fill({});
}

long LiveInstances()
{
    return g_live_instances;
}

long LiveTrees()
{
    return g_live_trees;
}

} // namespace platform

IF_INSTANCE IF_CreatePDInstance(uint32_t kind, uint32_t option)
{
    if (platform::Fails(Operation::kCreateInstance) || kind != 2 || option != 0) {
        return IF_NO_INSTANCE;
    }
    auto *instance = new PrivateData;

    ++g_live_instances;
    return reinterpret_cast<IF_INSTANCE>(instance);
}

uint32_t IF_DestroyPDInstance(IF_INSTANCE handle)
{
    PrivateData *instance = InstanceOf(handle);
    if (instance == nullptr) {
        return 1;
    }
    --g_live_instances;
    delete instance;
    return 0;
}

uint32_t IF_SetPrivateData(IF_INSTANCE handle, uint32_t if_index, void *data, uint32_t option)
{
    PrivateData *instance = InstanceOf(handle);
    if (platform::Fails(Operation::kSetPrivateData) || instance == nullptr || data == nullptr ||
        option != 0) {
        return 1;
    }
    (*instance)[if_index] = data;
    return 0;
}

uint32_t IF_DelPrivateData(IF_INSTANCE handle, uint32_t if_index, uint32_t option)
{
    PrivateData *instance = InstanceOf(handle);
    return instance != nullptr && option == 0 && instance->erase(if_index) == 1 ? 0 : 1;
}

uint32_t IF_GetPrivateData(IF_INSTANCE handle, uint32_t if_index, void **data)
{
    PrivateData *instance = InstanceOf(handle);
    uint32_t found = 0;
    return instance == nullptr ? 1 : Fetch(*instance, instance->find(if_index), &found, data);
}

uint32_t IF_GetFirstPrivateData(IF_INSTANCE handle, uint32_t *if_index, void **data)
{
    PrivateData *instance = InstanceOf(handle);
    return instance == nullptr ? 1 : Fetch(*instance, instance->begin(), if_index, data);
}

uint32_t IF_GetNextPrivateData(IF_INSTANCE handle, uint32_t after, uint32_t *if_index, void **data)
{
    PrivateData *instance = InstanceOf(handle);
    return instance == nullptr ? 1 : Fetch(*instance, instance->upper_bound(after), if_index, data);
}

AVL_HANDLE AVL_Init(AVL_NODE_COMPARE compare, uint32_t option, AVL_FREE free_record)
{
    if (platform::Fails(Operation::kTreeInit) || option != 0) {
        return 0;
    }
    auto *tree = new Tree{std::set<void *, RecordLess>(RecordLess{compare}), free_record};

    ++g_live_trees;
    return reinterpret_cast<AVL_HANDLE>(tree);
}

void AVL_Fini(AVL_HANDLE handle)
{
    if (handle == 0) {
        return;
    }
    AVL_FreeAll(handle);
    --g_live_trees;
    delete reinterpret_cast<Tree *>(handle);
}

uint32_t AVL_FreeAll(AVL_HANDLE handle)
{
    Tree *tree = TreeOf(handle);

    if (tree == nullptr) {
        return 1;
    }
    while (!tree->records.empty()) {
        void *record = *tree->records.begin();

        tree->records.erase(tree->records.begin());
        if (tree->free_record != nullptr) {
            tree->free_record(record);
        }
    }
    return 0;
}

uint32_t AVL_Insert(AVL_HANDLE handle, void *record)
{
    if (platform::Fails(Operation::kTreeInsert) || handle == 0 || record == nullptr) {
        return 1;
    }
    return TreeOf(handle)->records.insert(record).second ? 0 : 1;
}

uint32_t AVL_Remove(AVL_HANDLE handle, void *record)
{
    Tree *tree = TreeOf(handle);
    if (tree == nullptr) {
        return 0;
    }
    auto at = tree->records.find(record);
    if (at == tree->records.end() || *at != record) {
        return 0;
    }
    tree->records.erase(at);
    return 1;
}

void *AVL_Get(AVL_HANDLE handle, const void *key, AVL_KEY_COMPARE compare)
{
    Tree *tree = TreeOf(handle);
    if (tree == nullptr) {
        return nullptr;
    }
    auto at = tree->records.find(Probe{key, compare});
    return at == tree->records.end() ? nullptr : *at;
}

void *AVL_GetLeftMost(AVL_HANDLE handle)
{
    Tree *tree = TreeOf(handle);
    return tree == nullptr || tree->records.empty() ? nullptr : *tree->records.begin();
}

void *AVL_GetNext(AVL_HANDLE handle, const void *record_or_probe)
{
    Tree *tree = TreeOf(handle);
    if (tree == nullptr) {
        return nullptr;
    }
    auto at = tree->records.upper_bound(const_cast<void *>(record_or_probe));
    return at == tree->records.end() ? nullptr : *at;
}

void *AVL_GetPrev(AVL_HANDLE handle, const void *record_or_probe)
{
    Tree *tree = TreeOf(handle);
    if (tree == nullptr) {
        return nullptr;
    }
    auto at = tree->records.lower_bound(const_cast<void *>(record_or_probe));
    return at == tree->records.begin() ? nullptr : *--at;
}

uint32_t AVL_Count(AVL_HANDLE handle)
{
    return handle == 0 ? 0 : static_cast<uint32_t>(TreeOf(handle)->records.size());
}
