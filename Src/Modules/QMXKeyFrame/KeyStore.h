// core::KeyStore: the ordered keys of one curve, unique by time, in a counted
// B+ tree. Keys sit contiguously in leaves of up to kLeafKeys (so a search
// ends in one block of memory and a playback walk stays in it), inner nodes
// keep each child's first time and key count, so that a search by time and a
// lookup by index both cost O(log n). Appending after the last key fills
// leaves completely, which keeps a curve built in time order near the size of
// its keys.
//
// Keys are changed in place through an iterator, but never their times: a
// time changes through retime(), which keeps the first times of the inner
// nodes right. Any insert or erase invalidates every iterator.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <type_traits>
#include <utility>

#include "TimeValuePair.h"

namespace core {

class KeyStore {
    struct Inner;
    struct Leaf;

public:
    static constexpr int kLeafKeys = 64;
    static constexpr int kInnerChildren = 64;

    template <bool Const>
    class Iter {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = TimeValuePair;
        using difference_type = std::ptrdiff_t;
        using reference = std::conditional_t<Const, const TimeValuePair&, TimeValuePair&>;
        using pointer = std::conditional_t<Const, const TimeValuePair*, TimeValuePair*>;

        Iter() = default;
        template <bool C = Const, typename = std::enable_if_t<C>>
        Iter(const Iter<false>& other) : m_leaf(other.m_leaf), m_pos(other.m_pos)
        {
        }

        reference operator*() const { return m_leaf->keys[m_pos]; }
        pointer operator->() const { return &m_leaf->keys[m_pos]; }
        Iter& operator++()
        {
            if (++m_pos == m_leaf->count && m_leaf->next != nullptr) {
                m_leaf = m_leaf->next;
                m_pos = 0;
            }
            return *this;
        }
        Iter& operator--()
        {
            if (m_pos == 0) {
                m_leaf = m_leaf->prev;
                m_pos = m_leaf->count;
            }
            --m_pos;
            return *this;
        }
        Iter operator++(int)
        {
            Iter was = *this;
            ++*this;
            return was;
        }
        Iter operator--(int)
        {
            Iter was = *this;
            --*this;
            return was;
        }
        friend bool operator==(const Iter& a, const Iter& b) { return a.m_leaf == b.m_leaf && a.m_pos == b.m_pos; }
        friend bool operator!=(const Iter& a, const Iter& b) { return !(a == b); }

    private:
        friend class KeyStore;
        friend class Iter<!Const>;
        Iter(Leaf* leaf, std::ptrdiff_t pos) : m_leaf(leaf), m_pos(pos) {}

        Leaf* m_leaf = nullptr;
        // Below the leaf's count, except at the end. As wide as the pointer:
        // iterators are copied through memory as two whole words.
        std::ptrdiff_t m_pos = 0;
    };
    using iterator = Iter<false>;
    using const_iterator = Iter<true>;

    KeyStore();
    KeyStore(const KeyStore& other);
    KeyStore& operator=(const KeyStore& other);
    ~KeyStore();

    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    iterator begin() { return {m_head, 0}; }
    iterator end() { return {m_tail, m_tail->count}; }
    const_iterator begin() const { return {m_head, 0}; }
    const_iterator end() const { return {m_tail, m_tail->count}; }
    void clear();
    void swap(KeyStore& other);

    // The first key at or after / after `time`; the end when there is none.
    // Times are compared with <, so a NaN time gives an arbitrary place:
    // callers answer NaN themselves.
    iterator lower_bound(double time) { return Locate(time, false); }
    iterator upper_bound(double time) { return Locate(time, true); }
    const_iterator lower_bound(double time) const { return const_cast<KeyStore*>(this)->Locate(time, false); }
    const_iterator upper_bound(double time) const { return const_cast<KeyStore*>(this)->Locate(time, true); }
    // Key `index` (below size()), and the index of a key (size() for the end).
    iterator find_by_order(size_t index);
    const_iterator find_by_order(size_t index) const { return const_cast<KeyStore*>(this)->find_by_order(index); }
    size_t order_of(const_iterator key) const;

    // Inserts `key` unless a key has its time; returns the key at that time
    // and whether it is the new one.
    std::pair<iterator, bool> insert(const TimeValuePair& key)
    {
        // Keys arriving in time order go straight to the end of the last
        // leaf while it has room (building a curve, reading a text).
        Leaf* tail = m_tail;
        const int pos = tail->count;
        if (pos == kLeafKeys || !(m_size == 0 || tail->keys[pos - 1].GetTime() < key.GetTime()))
            return InsertSearching(key);
        tail->keys[pos] = key;
        tail->count = pos + 1;
        ++m_size;
        AddCount(tail, 1);
        if (pos == 0)
            FixFirst(tail);
        return {{tail, pos}, true};
    }
    void erase(iterator key);
    // Gives the key a new time, which must keep it between its neighbours.
    void retime(iterator key, double time);

    // upper_bound for a walk through times in order: the place where the
    // last search ended, or the one after it, is checked first. Readers on
    // several threads share that hint: each part is read and written whole,
    // and a place is checked against the keys before it is used, so a stale
    // or mixed hint only costs a search. Changes drop it.
    const_iterator upper_bound_near(double time) const
    {
        Leaf* leaf = m_hintLeaf.load(std::memory_order_relaxed);
        if (leaf != nullptr) {
            const std::ptrdiff_t pos = m_hintPos.load(std::memory_order_relaxed);
            if (Fits(leaf, pos, time))
                return {leaf, pos};
            if (Fits(leaf, pos + 1, time)) {  // the next segment of a walk
                m_hintPos.store(pos + 1, std::memory_order_relaxed);
                return {leaf, pos + 1};
            }
            Leaf* next = leaf->next;
            if (pos + 1 >= leaf->count && next != nullptr && Fits(next, 0, time)) {  // into the next leaf
                m_hintLeaf.store(next, std::memory_order_relaxed);
                m_hintPos.store(0, std::memory_order_relaxed);
                return {next, 0};
            }
        }
        return UpperBoundRemembered(time);
    }

private:
    struct Node {
        Inner* parent = nullptr;
        int slot = 0;   // place in the parent
        int count = 0;  // keys of a leaf, children of an inner node
        bool leaf;
        explicit Node(bool isLeaf) : leaf(isLeaf) {}
    };
    struct Leaf : Node {
        Leaf() : Node(true) {}
        Leaf* prev = nullptr;
        Leaf* next = nullptr;
        TimeValuePair keys[kLeafKeys];
    };
    struct Inner : Node {
        Inner() : Node(false) {}
        double first[kInnerChildren];  // first time under each child
        size_t size[kInnerChildren];   // keys under each child
        Node* child[kInnerChildren];
    };

    iterator Locate(double time, bool after);
    // upper_bound, remembered as the hint of upper_bound_near.
    const_iterator UpperBoundRemembered(double time) const;
    // insert, for a key that goes anywhere but the end of a last leaf with room.
    std::pair<iterator, bool> InsertSearching(const TimeValuePair& key);
    // Whether place `pos` of `leaf` is where upper_bound(time) ends: the key
    // there is after `time` and the key before it is not (NaN fits nowhere
    // but in an empty store).
    bool Fits(const Leaf* leaf, std::ptrdiff_t pos, double time) const
    {
        if (pos < 0 || pos > leaf->count)
            return false;
        if (pos == leaf->count)
            return leaf == m_tail && (pos == 0 || leaf->keys[pos - 1].GetTime() <= time);
        if (!(time < leaf->keys[pos].GetTime()))
            return false;
        if (pos > 0)
            return leaf->keys[pos - 1].GetTime() <= time;
        return leaf->prev == nullptr || leaf->prev->keys[leaf->prev->count - 1].GetTime() <= time;
    }
    // Inserts `node` as child `slot` (1 or more) of `parent`, splitting the
    // parent when full; the new entry's count and first time are left for
    // the caller to set.
    void InsertChild(Inner* parent, int slot, Node* node);
    // Takes child `slot` out of `parent` (merging or freeing emptied nodes).
    void RemoveChild(Inner* parent, int slot);
    // Split a full node in two and put the new right half beside it; a leaf
    // split at the end gives an empty right half.
    Leaf* SplitLeaf(Leaf* leaf, bool atEnd);
    void SplitInner(Inner* inner);
    // Adds `delta` to the key counts above `node`.
    static void AddCount(Node* node, std::ptrdiff_t delta)
    {
        for (; node->parent != nullptr; node = node->parent)
            node->parent->size[node->slot] += static_cast<size_t>(delta);
    }
    // Writes the node's first time into its ancestors.
    void FixFirst(Node* node);
    void MergeLeaves(Leaf* left, Leaf* right);
    void MergeInner(Inner* left, Inner* right);
    void Unlink(Leaf* leaf);
    static double FirstTime(const Node* node);
    static size_t SizeOf(const Node* node);
    static void Free(Node* node);
    void Reset();

    Node* m_root = nullptr;
    Leaf* m_head = nullptr;
    Leaf* m_tail = nullptr;
    size_t m_size = 0;
    // The hint of upper_bound_near: a leaf and a place in it.
    mutable std::atomic<Leaf*> m_hintLeaf{nullptr};
    mutable std::atomic<std::ptrdiff_t> m_hintPos{0};
};

}  // namespace core
