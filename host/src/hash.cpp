/*
 * The platform's hash tables: an array of ring heads and Boost.Intrusive's list algorithms on them.
 */
#include "platform/hash.h"

#include <boost/intrusive/circular_list_algorithms.hpp>
#include <new>
#include <vector>

#include "mcasthost/loop.h"

namespace
{

struct Node {
    Node *next;
    Node *previous;
};

static_assert(sizeof(Node) <= sizeof(HASH_NODE_S) && alignof(Node) <= alignof(HASH_NODE_S));

struct NodeTraits {
    using node = Node;
    using node_ptr = Node *;
    using const_node_ptr = const Node *;

    static Node *get_next(const Node *node)
    {
        return node->next;
    }
    static void set_next(Node *node, Node *next)
    {
        node->next = next;
    }
    static Node *get_previous(const Node *node)
    {
        return node->previous;
    }
    static void set_previous(Node *node, Node *previous)
    {
        node->previous = previous;
    }
};

using Algorithms = boost::intrusive::circular_list_algorithms<NodeTraits>;

struct Table {
    std::vector<Node> buckets;
    HASH_FREE free_record;

    Node *bucket(uint32_t hash)
    {
        return &buckets[hash % buckets.size()];
    }
};

Table *table_of(HASH_HANDLE handle)
{
    return reinterpret_cast<Table *>(handle);
}

Node *first_from(Table &table, size_t position)
{
    for (; position < table.buckets.size(); ++position) {
        Node *head = &table.buckets[position];
        if (head->next != head) {
            return head->next;
        }
    }
    return nullptr;
}

} // namespace

extern "C" {

HOST_API HASH_HANDLE HASH_Init(uint32_t bucket_count, HASH_FREE free_record)
{
    if (bucket_count == 0) {
        return 0;
    }
    try {
        Table *table = new Table{std::vector<Node>(bucket_count), free_record};
        for (Node &head : table->buckets) {
            Algorithms::init_header(&head);
        }
        return reinterpret_cast<HASH_HANDLE>(table);
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

HOST_API uint32_t HASH_FreeAll(HASH_HANDLE handle)
{
    Table *table = table_of(handle);
    if (table == nullptr) {
        return HOST_FAILED;
    }
    for (Node &head : table->buckets) {
        while (head.next != &head) {
            Node *node = head.next;
            Algorithms::unlink(node);
            if (table->free_record != nullptr) {
                table->free_record(node);
            }
        }
    }
    return 0;
}

HOST_API void HASH_Fini(HASH_HANDLE handle)
{
    if (handle != 0) {
        HASH_FreeAll(handle);
        delete table_of(handle);
    }
}

HOST_API uint32_t HASH_Insert(HASH_HANDLE handle, uint32_t hash, void *record)
{
    Table *table = table_of(handle);
    if (table == nullptr || record == nullptr) {
        return HOST_FAILED;
    }
    Algorithms::link_after(table->bucket(hash), ::new (record) Node);
    return 0;
}

HOST_API uint32_t HASH_Remove(HASH_HANDLE handle, uint32_t hash, void *record)
{
    Table *table = table_of(handle);
    if (table == nullptr) {
        return 0;
    }
    // Looked for, because the links of a record that is not in the table may hold anything.
    Node *head = table->bucket(hash);
    for (Node *node = head->next; node != head; node = node->next) {
        if (node == record) {
            Algorithms::unlink(node);
            return 1;
        }
    }
    return 0;
}

HOST_API void *HASH_Get(HASH_HANDLE handle, uint32_t hash, const void *key, HASH_KEY_COMPARE compare)
{
    Table *table = table_of(handle);
    if (table == nullptr || compare == nullptr) {
        return nullptr;
    }
    Node *head = table->bucket(hash);
    for (Node *node = head->next; node != head; node = node->next) {
        if (compare(node, key) == 0) {
            return node;
        }
    }
    return nullptr;
}

HOST_API void *HASH_GetFirst(HASH_HANDLE handle)
{
    return handle == 0 ? nullptr : first_from(*table_of(handle), 0);
}

HOST_API void *HASH_GetNext(HASH_HANDLE handle, uint32_t hash, const void *record)
{
    Table *table = table_of(handle);
    if (table == nullptr || record == nullptr) {
        return nullptr;
    }
    Node *next = static_cast<const Node *>(record)->next;
    return next != table->bucket(hash) ? next : first_from(*table, hash % table->buckets.size() + 1);
}

} // extern "C"
