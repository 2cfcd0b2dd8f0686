// An AVL tree whose nodes come from the traced allocator.
//
// Depths are counted from 0 at the root.  The height of the two subtrees of a node differs by one
// at most; `balance` tells which is the deeper one.

#pragma once

#include <cstdint>

#include "FileAlloc/file_point.h"
#include "libn/dwmini.h"

namespace ServantsLibrary {

// The order of keys.  First in the table of virtual operations of a tree.
template <class Key>
class comparison {
  public:
    virtual bool isGreater(const Key& a, const Key& b) const final { return a > b; }
    virtual bool isGreaterOrEqual(const Key& a, const Key& b) const final { return a >= b; }
    virtual bool isLess(const Key& a, const Key& b) const final { return a < b; }

  protected:
    ~comparison() = default;
};

template <class Key, class Value>
struct TBaseNode {
    Key key;
    Value value;
    std::uint32_t one; // 1 in every node
    TBaseNode* greater;
    TBaseNode* lesser;
    std::int32_t balance; // 1: `greater` is the deeper side, -1: `lesser`, 0: neither
};

// What a look-up gives: a node of the tree, or null for none.  Good until the tree is cleared.
template <class Node>
class _TTreePair {
  public:
    explicit _TTreePair(Node* found = nullptr) : node(found) {}
    _TTreePair(const _TTreePair&) = default;
    _TTreePair& operator=(const _TTreePair&) = default;
    virtual ~_TTreePair() = default;

    Node* node;
};

// The order of the virtual operations, the destructor in its place among them, is binding for other
// modules.
//
// Threads: any number of readers, or one that changes the tree.
template <class Key, class Value, class Comparison, class Node>
class TTree : public Comparison {
  public:
    using Pair = _TTreePair<Node>;
    using Visit = void (*)(Node& node, void* context);

    // The highest tree that 32-bit counts can make is below this.
    static constexpr int kMostHeight = 48;

    TTree() = default;
    TTree(const TTree&) = delete;
    TTree& operator=(const TTree&) = delete;

    // Mend the node at `link` after its `greater` (`lesser`) side, already the deeper one, grew:
    // a single or a double rotation, chosen by the child's balance.  `grew` is false afterwards.
    virtual void balanceGreater(Node*& link, bool& grew);
    virtual void balanceLesser(Node*& link, bool& grew);

    // Lift the `lesser` (`greater`) child, or that child's inner child, to the place of the node at
    // `link`, with the balances that insertion makes of it.
    virtual void rotateFromLesser(Node*& link);
    virtual void rotateDoubleLesser(Node*& link);
    virtual void rotateFromGreater(Node*& link);
    virtual void rotateDoubleGreater(Node*& link);

    // Inserts below `link`, which stands at depth `depth`; a node with an equal key gets the value
    // instead.  `grew`: whether the subtree became higher.  `depth`: that of the key's node when
    // the search ended.  Raises a COSError where memory is exhausted, with the tree as it was.
    virtual void insertAt(Node*& link, const Key& key, const Value& value, bool& grew,
                          std::int32_t& depth);

    // Visits the subtree of `node`, null for none: the node, its `lesser` side, its `greater` side.
    virtual void walk(Node* node, Visit visit, void* context) const;

    // Frees the subtree: its `lesser` side, its `greater` side, the node.  Null for none.
    virtual void freeSubtree(Node* node);

    virtual ~TTree();

    // Raises as insertAt does.
    virtual void insert(const Key& key, const Value& value);

    // Inserts below a node that a look-up has given, or from the root if it holds none.  The order
    // and the heights of the whole tree are kept, so a node that the key does not belong below
    // counts for nothing.  Raises as insertAt does.
    virtual void insertNear(const Pair& place, const Key& key, const Value& value);

    // The node with the key, or none.
    virtual Pair find(const Key& key) const;

    // The node with the key, and `found` true; else one of the two neighbours of the key, or none
    // in an empty tree, and `found` false.
    virtual Pair findNearest(const Key& key, bool& found) const;

    // Frees all nodes; the tree is as new.
    void clear();

    Node* rootNode() const noexcept { return root; }
    std::uint32_t nodeCount() const noexcept { return count; }
    // The greatest depth at which a node was ever inserted, -1 in a new tree.
    std::int32_t greatestDepth() const noexcept { return maxDepth; }

  protected:
    Node* newNode(const Key& key, const Value& value);
    // Tells the node at `link` that one of its sides grew.
    void settle(Node*& link, bool onGreater, bool& grew);
    // The node with the key, or the last one on the way to where it would stand.
    Node* descend(const Key& key, bool& found) const;

    Node* root = nullptr;
    std::uint32_t count = 0;
    std::int32_t maxDepth = -1;
};

} // namespace ServantsLibrary

#include "FileAlloc/TTreeImpl.h"

namespace FileWorkLibrary {

// From the number of a record to where its page stands.
using TPointNode = ServantsLibrary::TBaseNode<unsigned, file_point>;
using TPointTree =
    ServantsLibrary::TTree<unsigned, file_point, ServantsLibrary::comparison<unsigned>, TPointNode>;

} // namespace FileWorkLibrary

extern template class ServantsLibrary::TTree<
    unsigned, FileWorkLibrary::file_point, ServantsLibrary::comparison<unsigned>,
    ServantsLibrary::TBaseNode<unsigned, FileWorkLibrary::file_point>>;
