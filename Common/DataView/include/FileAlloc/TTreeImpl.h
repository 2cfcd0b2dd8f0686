// Definitions of TTree.h, which includes this file.

#pragma once

#include <cstdint>
#include <new>

#include "FileAlloc/TTree.h"

namespace ServantsLibrary {

inline constexpr char kTTreeSource[] = "Common/DataView/FileAlloc/filealloc";

template <class Key, class Value, class Comparison, class Node>
TTree<Key, Value, Comparison, Node>::~TTree() {
    TTree::freeSubtree(root);
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::rotateFromGreater(Node*& link) {
    Node* const node = link;
    Node* const child = node->greater;
    node->greater = child->lesser;
    child->lesser = node;
    node->balance = child->balance = 0;
    link = child;
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::rotateFromLesser(Node*& link) {
    Node* const node = link;
    Node* const child = node->lesser;
    node->lesser = child->greater;
    child->greater = node;
    node->balance = child->balance = 0;
    link = child;
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::rotateDoubleGreater(Node*& link) {
    Node* const node = link;
    Node* const child = node->greater;
    Node* const inner = child->lesser;
    node->greater = inner->lesser;
    child->lesser = inner->greater;
    inner->lesser = node;
    inner->greater = child;
    node->balance = inner->balance > 0 ? -1 : 0;
    child->balance = inner->balance < 0 ? 1 : 0;
    inner->balance = 0;
    link = inner;
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::rotateDoubleLesser(Node*& link) {
    Node* const node = link;
    Node* const child = node->lesser;
    Node* const inner = child->greater;
    node->lesser = inner->greater;
    child->greater = inner->lesser;
    inner->greater = node;
    inner->lesser = child;
    node->balance = inner->balance < 0 ? 1 : 0;
    child->balance = inner->balance > 0 ? -1 : 0;
    inner->balance = 0;
    link = inner;
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::balanceGreater(Node*& link, bool& grew) {
    if (link->greater->balance > 0)
        rotateFromGreater(link);
    else
        rotateDoubleGreater(link);
    grew = false;
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::balanceLesser(Node*& link, bool& grew) {
    if (link->lesser->balance < 0)
        rotateFromLesser(link);
    else
        rotateDoubleLesser(link);
    grew = false;
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::insertAt(Node*& link, const Key& wanted,
                                                   const Value& value, bool& grew,
                                                   std::int32_t& depth) {
    const Key key = wanted;
    // The links on the way down; those of nodes that lean to neither side are passed on the way up.
    Node** path[kMostHeight];
    int height = 0;
    Node** at = &link;
    for (Node* node = *at; node != nullptr; node = *at) {
        if (this->isLess(node->key, key)) {
            path[height++] = at;
            at = &node->greater;
        } else if (this->isGreater(node->key, key)) {
            path[height++] = at;
            at = &node->lesser;
        } else {
            node->value = value;
            grew = false;
            depth += height;
            return;
        }
    }
    *at = newNode(key, value);
    ++count;
    grew = true;
    depth += height;
    if (depth > maxDepth)
        maxDepth = depth;
    while (grew && height != 0) {
        Node** const parent = path[--height];
        settle(*parent, at == &(*parent)->greater, grew);
        at = parent;
    }
}

template <class Key, class Value, class Comparison, class Node>
Node* TTree<Key, Value, Comparison, Node>::newNode(const Key& key, const Value& value) {
    void* const block = dwminiAlloc(sizeof(Node), kTTreeSource, __LINE__, false);
    return new (block) Node{key, value, 1, nullptr, nullptr, 0};
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::settle(Node*& link, bool onGreater, bool& grew) {
    const std::int32_t side = onGreater ? 1 : -1;
    if (link->balance == 0) {
        link->balance = side;
    } else if (link->balance != side) {
        link->balance = 0;
        grew = false;
    } else if (onGreater) {
        balanceGreater(link, grew);
    } else {
        balanceLesser(link, grew);
    }
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::insert(const Key& key, const Value& value) {
    Node* link = root;
    bool grew = false;
    std::int32_t depth = 0;
    insertAt(link, key, value, grew, depth);
    root = link;
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::insertNear(const Pair&, const Key& key,
                                                     const Value& value) {
    // A node does not know what stands above it, and the balances up there may have to change; so
    // the way down is gone from the root, which comes by the given node.
    TTree::insert(key, value);
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::walk(Node* node, Visit visit, void* context) const {
    if (node == nullptr)
        return;
    Node* const lesser = node->lesser;
    Node* const greater = node->greater;
    visit(*node, context);
    walk(lesser, visit, context);
    walk(greater, visit, context);
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::freeSubtree(Node* node) {
    if (node == nullptr)
        return;
    freeSubtree(node->lesser);
    freeSubtree(node->greater);
    void* block = node;
    dwminiFree(&block);
}

// One of two nodes without a jump: which way a search goes cannot be guessed, and a processor that
// guesses wrong at every other node loses more than the search takes.
template <class Node>
Node* eitherOf(bool first, Node* a, Node* b) noexcept {
    const std::uintptr_t x = reinterpret_cast<std::uintptr_t>(a);
    const std::uintptr_t y = reinterpret_cast<std::uintptr_t>(b);
    return reinterpret_cast<Node*>(y ^ ((x ^ y) & -static_cast<std::uintptr_t>(first)));
}

template <class Key, class Value, class Comparison, class Node>
Node* TTree<Key, Value, Comparison, Node>::descend(const Key& wanted, bool& found) const {
    const Key key = wanted;
    Node* last = nullptr;
    Node* node = root;
    while (node != nullptr && node->key != key) {
        last = node;
        node = eitherOf(this->isLess(node->key, key), node->greater, node->lesser);
    }
    found = node != nullptr;
    return found ? node : last;
}

template <class Key, class Value, class Comparison, class Node>
auto TTree<Key, Value, Comparison, Node>::find(const Key& key) const -> Pair {
    bool found;
    Node* const node = descend(key, found);
    return Pair(found ? node : nullptr);
}

template <class Key, class Value, class Comparison, class Node>
auto TTree<Key, Value, Comparison, Node>::findNearest(const Key& key, bool& found) const -> Pair {
    return Pair(descend(key, found));
}

template <class Key, class Value, class Comparison, class Node>
void TTree<Key, Value, Comparison, Node>::clear() {
    freeSubtree(root);
    root = nullptr;
    count = 0;
    maxDepth = -1;
}

} // namespace ServantsLibrary
