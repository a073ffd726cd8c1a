/*
 * The min-heap beside boost::heap, a std::priority_queue that can neither remove nor move, and a plain binary
 * heap with compare and index callbacks as network daemons carry one. Elements are 64-byte records scattered
 * in memory.
 */
#include <benchmark/benchmark.h>
#include <queue>

#include "mcast/heap.h"
#include "rounds.h"

#ifdef BENCH_WITH_BOOST
#include <boost/heap/d_ary_heap.hpp>
#include <boost/heap/pairing_heap.hpp>
#endif

namespace
{

using bench::Figures;
using bench::Order;
using bench::Population;

struct Element;

struct Later {
    bool operator()(const Element *one, const Element *other) const;
};

#ifdef BENCH_WITH_BOOST
using DAry = boost::heap::d_ary_heap<Element *, boost::heap::arity<2>, boost::heap::mutable_<true>,
                                     boost::heap::compare<Later>>;
using Pairing = boost::heap::pairing_heap<Element *, boost::heap::compare<Later>>;
#endif

struct alignas(64) Element {
    uint64_t position;
    uint64_t key;
#ifdef BENCH_WITH_BOOST
    DAry::handle_type d_ary;
    Pairing::handle_type pairing;
#endif
};

bool Later::operator()(const Element *one, const Element *other) const
{
    return one->key > other->key;
}

int64_t Compare(const void *first, const void *second)
{
    uint64_t one = static_cast<const Element *>(first)->key;
    uint64_t other = static_cast<const Element *>(second)->key;
    return (one > other) - (one < other);
}

void SetIndex(void *element, const uint64_t *position)
{
    static_cast<Element *>(element)->position = *position;
}

/*
 * The phases, the same for every heap. A Heap has Insert(element), Pop(), Changed(element, earlier) and
 * Remove(element); kPlain leaves the last two out.
 */
template <typename Heap, bool kPlain = false> void Phases(Population &population, Figures &figures)
{
    std::vector<Element> elements(population.entries);

    for (size_t repeat = 0; repeat < population.repeats; ++repeat) {
        Order keys = population.Shuffled();
        Order removes = population.Shuffled();
        double before = bench::Allocated();
        Heap heap;

        for (size_t index = 0; index < elements.size(); ++index) {
            elements[index].key = uint64_t{keys[index]} * 16;
        }
        figures.Time("insert", elements.size(), [&] {
            for (Element &element : elements) {
                heap.Insert(element);
            }
        });
        double bytes = bench::Allocated() - before;

        if constexpr (!kPlain) {
            Order picks = population.Shuffled();

            figures.Time("change key", picks.size(), [&] {
                for (size_t index = 0; index < picks.size(); ++index) {
                    Element &element = elements[picks[index]];
                    uint64_t key = uint64_t{picks[picks.size() - 1 - index]} * 16 + 1;
                    bool earlier = key < element.key;

                    element.key = key;
                    heap.Changed(element, earlier);
                }
            });
        }
        figures.Time("pop", elements.size(), [&] {
            for (size_t index = 0; index < elements.size(); ++index) {
                heap.Pop();
            }
        });
        if constexpr (!kPlain) {
            for (Element &element : elements) {
                heap.Insert(element);
            }
            figures.Time("remove", removes.size(), [&] {
                for (uint32_t entry : removes) {
                    heap.Remove(elements[entry]);
                }
            });
        }
        if (repeat == 0) {
            figures.Note("bytes an entry", bytes / static_cast<double>(population.entries));
        }
    }
}

class Ours
{
public:
    Ours() : heap(MCAST_MinHeapCreate(0, Compare, SetIndex))
    {
    }

    ~Ours()
    {
        MCAST_MinHeapDestory(heap);
    }

    void Insert(Element &element)
    {
        MCAST_MinHeapInsert(heap, &element);
    }

    void Pop()
    {
        benchmark::DoNotOptimize(MCAST_MinHeapExtract(heap));
    }

    void Changed(const Element &element, bool earlier)
    {
        if (earlier) {
            MCAST_MinHeapMoveUp(heap, element.position);
        } else {
            MCAST_MinHeapMoveDown(heap, element.position);
        }
    }

    void Remove(const Element &element)
    {
        MCAST_MinHeapRemove(heap, element.position);
    }

private:
    MCAST_MINHEAP_S *heap;
};

/*
 * A binary heap with callbacks, written plainly: 1-based array that doubles, holes that sift. Not inlined, as
 * it would not be from a library.
 */
class Callbacks
{
public:
    Callbacks() : compare(Compare), set_index(SetIndex)
    {
        benchmark::DoNotOptimize(compare);
        benchmark::DoNotOptimize(set_index);
    }

    [[gnu::noinline]] void Insert(Element &element)
    {
        slots.push_back(nullptr);
        Up(slots.size() - 1, &element);
    }

    [[gnu::noinline]] void Pop()
    {
        RemoveAt(1);
    }

    [[gnu::noinline]] void Changed(Element &element, bool earlier)
    {
        if (earlier) {
            Up(element.position, &element);
        } else {
            Down(element.position, &element);
        }
    }

    [[gnu::noinline]] void Remove(const Element &element)
    {
        RemoveAt(element.position);
    }

private:
    void Put(uint64_t position, Element *element)
    {
        slots[position] = element;
        set_index(element, &position);
    }

    void Up(uint64_t position, Element *element)
    {
        for (; position > 1 && compare(element, slots[position / 2]) < 0; position /= 2) {
            Put(position, slots[position / 2]);
        }
        Put(position, element);
    }

    void Down(uint64_t position, Element *element)
    {
        uint64_t count = slots.size() - 1;

        while (2 * position <= count) {
            uint64_t child = 2 * position;

            if (child < count && compare(slots[child + 1], slots[child]) < 0) {
                ++child;
            }
            if (compare(slots[child], element) >= 0) {
                break;
            }
            Put(position, slots[child]);
            position = child;
        }
        Put(position, element);
    }

    void RemoveAt(uint64_t position)
    {
        Element *removed = slots[position];
        Element *last = slots.back();
        slots.pop_back();
        if (removed == last) {
            return;
        }
        if (compare(last, removed) < 0) {
            Up(position, last);
        } else {
            Down(position, last);
        }
    }

    std::vector<Element *> slots{nullptr};
    MCAST_HEAP_COMPARE compare;
    MCAST_HEAP_SET_INDEX set_index;
};

class PriorityQueue
{
public:
    void Insert(Element &element)
    {
        queue.push(&element);
    }

    void Pop()
    {
        queue.pop();
    }

private:
    std::priority_queue<Element *, std::vector<Element *>, Later> queue;
};

#ifdef BENCH_WITH_BOOST
template <typename Heap, typename Heap::handle_type Element::*kHandle> class Boost
{
public:
    void Insert(Element &element)
    {
        element.*kHandle = heap.push(&element);
    }

    void Pop()
    {
        heap.pop();
    }

    void Changed(Element &element, bool earlier)
    {
        if (earlier) {
            heap.increase(element.*kHandle);
        } else {
            heap.decrease(element.*kHandle);
        }
    }

    void Remove(Element &element)
    {
        heap.erase(element.*kHandle);
    }

private:
    Heap heap;
};
#endif

} // namespace

int main()
{
    std::vector<bench::Contender> contenders = {
        {"ours", Phases<Ours>},
        {"callbacks", Phases<Callbacks>},
#ifdef BENCH_WITH_BOOST
        {"boost d-ary", Phases<Boost<DAry, &Element::d_ary>>},
        {"boost pairing", Phases<Boost<Pairing, &Element::pairing>>},
#endif
        {"priority_queue", Phases<PriorityQueue, true>},
    };
    bench::Compare("min-heap", {1 << 10, 32 << 10, 256 << 10, 1 << 20}, contenders);
    return 0;
}
