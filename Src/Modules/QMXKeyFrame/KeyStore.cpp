// The counted B+ tree behind a curve's keys. Leaves are doubly linked for
// iteration; every node knows its parent and its place there, so that counts
// and first times are kept up to date by walking up from the changed leaf.
#include "KeyStore.h"

#include <algorithm>

#include "qmx_check.h"

namespace core {

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

bool TimeBefore(const TimeValuePair& key, double time)
{
    return key.GetTime() < time;
}

bool BeforeTime(double time, const TimeValuePair& key)
{
    return time < key.GetTime();
}

// The place in a leaf's keys where a search for `time` ends: the first key
// after it (`after`) or at or after it. Keys are often evenly spaced (one on
// every frame), so the place is first guessed from the times at both ends
// of the leaf and checked there and beside it, which touches a cache line
// or two; a binary search answers otherwise (and for NaN).
int PlaceInLeaf(const TimeValuePair* keys, int count, double time, bool after)
{
    const auto before = [&](int k) { return after ? !(time < keys[k].GetTime()) : keys[k].GetTime() < time; };
    if (count > 2) {
        const double first = keys[0].GetTime();
        const double guess = (time - first) / (keys[count - 1].GetTime() - first) * (count - 1);
        if (guess >= 0.0 && guess < count) {
            const int from = static_cast<int>(guess);
            for (int place = from; place <= from + 2 && place <= count; ++place)
                if ((place == 0 || before(place - 1)) && (place == count || !before(place)))
                    return place;
        }
    }
    const TimeValuePair* at = after ? std::upper_bound(keys, keys + count, time, BeforeTime)
                                    : std::lower_bound(keys, keys + count, time, TimeBefore);
    return static_cast<int>(at - keys);
}

// A node filled to less than a quarter is merged with a neighbour under
// the same parent when both fit in one; `merge` takes the left and the
// right of the two.
template <typename Node, typename Merge>
void MergeIfSparse(Node* node, int capacity, Merge merge)
{
    if (node->count >= capacity / 4)
        return;
    auto* parent = node->parent;
    const int slot = node->slot;
    if (slot + 1 < parent->count) {
        Node* right = static_cast<Node*>(parent->child[slot + 1]);
        if (node->count + right->count <= capacity)
            merge(node, right);
    } else if (slot > 0) {
        Node* left = static_cast<Node*>(parent->child[slot - 1]);
        if (left->count + node->count <= capacity)
            merge(left, node);
    }
}

}  // namespace

KeyStore::KeyStore()
{
    Reset();
}

KeyStore::KeyStore(const KeyStore& other) : KeyStore()
{
    for (const TimeValuePair& key : other)
        insert(key);
}

KeyStore& KeyStore::operator=(const KeyStore& other)
{
    if (this != &other) {
        KeyStore copy(other);
        swap(copy);
    }
    return *this;
}

void KeyStore::swap(KeyStore& other)
{
    std::swap(m_root, other.m_root);
    std::swap(m_head, other.m_head);
    std::swap(m_tail, other.m_tail);
    std::swap(m_size, other.m_size);
    m_hintLeaf.store(nullptr, kRelaxed);
    other.m_hintLeaf.store(nullptr, kRelaxed);
}

KeyStore::~KeyStore()
{
    Free(m_root);
}

void KeyStore::clear()
{
    Free(m_root);
    Reset();
}

void KeyStore::Reset()
{
    Leaf* leaf = new Leaf;
    m_root = m_head = m_tail = leaf;
    m_size = 0;
    m_hintLeaf.store(nullptr, kRelaxed);
}

void KeyStore::Free(Node* node)
{
    if (node->leaf) {
        delete static_cast<Leaf*>(node);
        return;
    }
    Inner* inner = static_cast<Inner*>(node);
    for (int i = 0; i < inner->count; ++i)
        Free(inner->child[i]);
    delete inner;
}

double KeyStore::FirstTime(const Node* node)
{
    return node->leaf ? static_cast<const Leaf*>(node)->keys[0].GetTime() : static_cast<const Inner*>(node)->first[0];
}

size_t KeyStore::SizeOf(const Node* node)
{
    if (node->leaf)
        return static_cast<size_t>(node->count);
    const Inner* inner = static_cast<const Inner*>(node);
    size_t total = 0;
    for (int i = 0; i < inner->count; ++i)
        total += inner->size[i];
    return total;
}

// ---- lookup ----

KeyStore::iterator KeyStore::Locate(double time, bool after)
{
    Node* node = m_root;
    while (!node->leaf) {
        // The child holding the answer is the last one whose first time lies
        // before it; past that child's keys the answer is the next leaf's
        // first key.
        Inner* inner = static_cast<Inner*>(node);
        const double* from = inner->first + 1;
        const double* to = inner->first + inner->count;
        const double* cut = after ? std::upper_bound(from, to, time) : std::lower_bound(from, to, time);
        node = inner->child[cut - inner->first - 1];
    }
    Leaf* leaf = static_cast<Leaf*>(node);
    int pos = PlaceInLeaf(leaf->keys, leaf->count, time, after);
    if (pos == leaf->count && leaf->next != nullptr) {
        leaf = leaf->next;
        pos = 0;
    }
    return {leaf, pos};
}

KeyStore::iterator KeyStore::find_by_order(size_t index)
{
    QMX_CHECK(index < m_size);
    Node* node = m_root;
    while (!node->leaf) {
        Inner* inner = static_cast<Inner*>(node);
        int c = 0;
        while (index >= inner->size[c])
            index -= inner->size[c++];
        node = inner->child[c];
    }
    return {static_cast<Leaf*>(node), static_cast<int>(index)};
}

size_t KeyStore::order_of(const_iterator key) const
{
    size_t index = static_cast<size_t>(key.m_pos);
    for (const Node* node = key.m_leaf; node->parent != nullptr; node = node->parent)
        for (int i = 0; i < node->slot; ++i)
            index += node->parent->size[i];
    return index;
}

KeyStore::const_iterator KeyStore::UpperBoundRemembered(double time) const
{
    const const_iterator found = upper_bound(time);
    m_hintLeaf.store(found.m_leaf, kRelaxed);
    m_hintPos.store(found.m_pos, kRelaxed);
    return found;
}

// ---- changes ----

std::pair<KeyStore::iterator, bool> KeyStore::InsertSearching(const TimeValuePair& key)
{
    const double time = key.GetTime();
    Leaf* leaf = m_tail;
    int pos = m_tail->count;
    // After the last key, the full last leaf is split below.
    if (!(m_size == 0 || m_tail->keys[m_tail->count - 1].GetTime() < time)) {
        const iterator at = lower_bound(time);
        if (at != end() && at->GetTime() == time)
            return {at, false};
        leaf = at.m_leaf;
        pos = static_cast<int>(at.m_pos);
    }
    if (leaf->count == kLeafKeys) {
        Leaf* right = SplitLeaf(leaf, leaf == m_tail && pos == kLeafKeys);
        if (pos >= leaf->count) {
            pos -= leaf->count;
            leaf = right;
        }
    }
    std::move_backward(leaf->keys + pos, leaf->keys + leaf->count, leaf->keys + leaf->count + 1);
    leaf->keys[pos] = key;
    ++leaf->count;
    ++m_size;
    AddCount(leaf, 1);
    if (pos == 0)
        FixFirst(leaf);
    return {{leaf, pos}, true};
}

void KeyStore::erase(iterator key)
{
    Leaf* leaf = key.m_leaf;
    const int pos = static_cast<int>(key.m_pos);
    QMX_CHECK(pos < leaf->count);
    m_hintLeaf.store(nullptr, kRelaxed);
    std::move(leaf->keys + pos + 1, leaf->keys + leaf->count, leaf->keys + pos);
    leaf->keys[--leaf->count] = TimeValuePair();
    --m_size;
    AddCount(leaf, -1);
    Inner* parent = leaf->parent;
    if (parent == nullptr)
        return;
    if (leaf->count == 0) {
        Unlink(leaf);
        const int slot = leaf->slot;
        delete leaf;
        RemoveChild(parent, slot);
        return;
    }
    if (pos == 0)
        FixFirst(leaf);
    MergeIfSparse(leaf, kLeafKeys, [this](Leaf* left, Leaf* right) { MergeLeaves(left, right); });
}

void KeyStore::retime(iterator key, double time)
{
    key.m_leaf->keys[key.m_pos].SetTime(time);
    if (key.m_pos == 0)
        FixFirst(key.m_leaf);
}

// ---- tree upkeep ----

void KeyStore::FixFirst(Node* node)
{
    const double time = FirstTime(node);
    for (; node->parent != nullptr; node = node->parent) {
        node->parent->first[node->slot] = time;
        if (node->slot != 0)
            break;
    }
}

void KeyStore::Unlink(Leaf* leaf)
{
    (leaf->prev != nullptr ? leaf->prev->next : m_head) = leaf->next;
    (leaf->next != nullptr ? leaf->next->prev : m_tail) = leaf->prev;
}

KeyStore::Leaf* KeyStore::SplitLeaf(Leaf* leaf, bool atEnd)
{
    // Appending opens an empty leaf, so that a curve built in time order
    // keeps full leaves; otherwise the upper half moves.
    Leaf* right = new Leaf;
    if (!atEnd) {
        const int half = leaf->count / 2;
        std::move(leaf->keys + half, leaf->keys + leaf->count, right->keys);
        std::fill(leaf->keys + half, leaf->keys + leaf->count, TimeValuePair());
        right->count = leaf->count - half;
        leaf->count = half;
    }
    right->prev = leaf;
    right->next = leaf->next;
    (leaf->next != nullptr ? leaf->next->prev : m_tail) = right;
    leaf->next = right;
    if (leaf->parent == nullptr) {
        Inner* root = new Inner;
        root->count = 1;
        root->child[0] = leaf;
        root->first[0] = FirstTime(leaf);
        root->size[0] = 0;
        leaf->parent = root;
        leaf->slot = 0;
        m_root = root;
    }
    InsertChild(leaf->parent, leaf->slot + 1, right);
    // Counts and first times of both halves' ancestors, which the splits
    // above may have left out of date; every other node kept its keys.
    for (Node* node : {static_cast<Node*>(leaf), static_cast<Node*>(right)})
        for (; node->parent != nullptr; node = node->parent) {
            node->parent->size[node->slot] = SizeOf(node);
            if (node->count > 0)
                node->parent->first[node->slot] = FirstTime(node);
        }
    return right;
}

void KeyStore::InsertChild(Inner* parent, int slot, Node* node)
{
    if (parent->count == kInnerChildren) {
        SplitInner(parent);
        if (slot > parent->count) {
            slot -= parent->count;
            parent = static_cast<Inner*>(parent->parent->child[parent->slot + 1]);
        }
    }
    for (int i = parent->count; i > slot; --i) {
        parent->child[i] = parent->child[i - 1];
        parent->first[i] = parent->first[i - 1];
        parent->size[i] = parent->size[i - 1];
        parent->child[i]->slot = i;
    }
    parent->child[slot] = node;
    parent->first[slot] = parent->first[slot - 1];  // until the caller's upkeep
    parent->size[slot] = 0;
    node->parent = parent;
    node->slot = slot;
    ++parent->count;
}

void KeyStore::SplitInner(Inner* inner)
{
    Inner* right = new Inner;
    const int half = inner->count / 2;
    right->count = inner->count - half;
    for (int i = 0; i < right->count; ++i) {
        right->child[i] = inner->child[half + i];
        right->first[i] = inner->first[half + i];
        right->size[i] = inner->size[half + i];
        right->child[i]->parent = right;
        right->child[i]->slot = i;
    }
    inner->count = half;
    if (inner->parent == nullptr) {
        Inner* root = new Inner;
        root->count = 1;
        root->child[0] = inner;
        root->first[0] = inner->first[0];
        root->size[0] = 0;
        inner->parent = root;
        inner->slot = 0;
        m_root = root;
    }
    InsertChild(inner->parent, inner->slot + 1, right);
    inner->parent->size[inner->slot] = SizeOf(inner);
    right->parent->size[right->slot] = SizeOf(right);
    right->parent->first[right->slot] = right->first[0];
}

void KeyStore::RemoveChild(Inner* parent, int slot)
{
    for (int i = slot; i + 1 < parent->count; ++i) {
        parent->child[i] = parent->child[i + 1];
        parent->first[i] = parent->first[i + 1];
        parent->size[i] = parent->size[i + 1];
        parent->child[i]->slot = i;
    }
    --parent->count;
    Inner* grand = parent->parent;
    if (parent->count == 0) {  // its only child went
        if (grand != nullptr) {
            const int at = parent->slot;
            delete parent;
            RemoveChild(grand, at);
        } else {
            delete parent;
            Reset();
        }
        return;
    }
    if (slot == 0)
        FixFirst(parent);
    if (grand == nullptr) {
        if (parent->count == 1) {  // a root with one child steps down
            m_root = parent->child[0];
            m_root->parent = nullptr;
            m_root->slot = 0;
            delete parent;
        }
        return;
    }
    MergeIfSparse(parent, kInnerChildren, [this](Inner* left, Inner* right) { MergeInner(left, right); });
}

void KeyStore::MergeLeaves(Leaf* left, Leaf* right)
{
    std::move(right->keys, right->keys + right->count, left->keys + left->count);
    left->count += right->count;
    Inner* parent = left->parent;
    parent->size[left->slot] += static_cast<size_t>(right->count);
    Unlink(right);
    const int slot = right->slot;
    delete right;
    RemoveChild(parent, slot);
}

void KeyStore::MergeInner(Inner* left, Inner* right)
{
    for (int i = 0; i < right->count; ++i) {
        const int to = left->count + i;
        left->child[to] = right->child[i];
        left->first[to] = right->first[i];
        left->size[to] = right->size[i];
        left->child[to]->parent = left;
        left->child[to]->slot = to;
    }
    left->count += right->count;
    Inner* parent = left->parent;
    parent->size[left->slot] += SizeOf(right);
    const int slot = right->slot;
    right->count = 0;
    delete right;
    RemoveChild(parent, slot);
}

}  // namespace core
