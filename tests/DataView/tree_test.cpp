#include "FileAlloc/TTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "libn/memTraceTable.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "support/slot.h"

using FileWorkLibrary::file_point;
using FileWorkLibrary::TPointNode;
using FileWorkLibrary::TPointTree;

namespace {

struct Tree : TPointTree {
    using TTree::count;
    using TTree::maxDepth;
    using TTree::root;
};

constexpr unsigned kLargest = std::numeric_limits<unsigned>::max();

// Checks a subtree: its keys lie in [least, most], each balance is the difference of the heights
// and at most 1, the third field is 1.  Its height.
int checkedHeight(const TPointNode* node, std::uint64_t least, std::uint64_t most, int& nodes) {
    if (node == nullptr)
        return 0;
    ++nodes;
    EXPECT_GE(node->key, least);
    EXPECT_LE(node->key, most);
    EXPECT_EQ(node->one, 1u);
    int lesser = 0;
    if (node->key != 0) {
        lesser = checkedHeight(node->lesser, least, node->key - 1, nodes);
    } else {
        EXPECT_EQ(node->lesser, nullptr);
    }
    const int greater = checkedHeight(node->greater, std::uint64_t{node->key} + 1, most, nodes);
    EXPECT_EQ(node->balance, greater - lesser);
    EXPECT_LE(std::abs(greater - lesser), 1);
    return 1 + std::max(lesser, greater);
}

void check(const Tree& tree) {
    int nodes = 0;
    const int height = checkedHeight(tree.root, 0, kLargest, nodes);
    EXPECT_EQ(static_cast<unsigned>(nodes), tree.count);
    EXPECT_LE(height - 1, tree.maxDepth);
}

void fill(Tree& tree, std::initializer_list<unsigned> keys) {
    for (const unsigned key : keys)
        tree.insert(key, file_point::at(key));
}

// The keys in the order in which the tree is walked.
std::vector<unsigned> walked(const Tree& tree, TPointNode* from) {
    std::vector<unsigned> keys;
    tree.walk(
        from,
        [](TPointNode& node, void* context) {
            static_cast<std::vector<unsigned>*>(context)->push_back(node.key);
        },
        &keys);
    return keys;
}
std::vector<unsigned> walked(const Tree& tree) {
    return walked(tree, tree.root);
}

using Keys = std::vector<unsigned>;

} // namespace

TEST(Tree, VirtualOperationsStandInTheirOrder) {
    EXPECT_EQ(slotOf(&Tree::isGreater), 0);
    EXPECT_EQ(slotOf(&Tree::isGreaterOrEqual), 1);
    EXPECT_EQ(slotOf(&Tree::isLess), 2);
    EXPECT_EQ(slotOf(&Tree::balanceGreater), 3);
    EXPECT_EQ(slotOf(&Tree::balanceLesser), 4);
    EXPECT_EQ(slotOf(&Tree::rotateFromLesser), 5);
    EXPECT_EQ(slotOf(&Tree::rotateDoubleLesser), 6);
    EXPECT_EQ(slotOf(&Tree::rotateFromGreater), 7);
    EXPECT_EQ(slotOf(&Tree::rotateDoubleGreater), 8);
    EXPECT_EQ(slotOf(&Tree::insertAt), 9);
    EXPECT_EQ(slotOf(&Tree::walk), 10);
    EXPECT_EQ(slotOf(&Tree::freeSubtree), 11);
    EXPECT_EQ(slotOf(&Tree::insert), 14); // the destructor between takes two
    EXPECT_EQ(slotOf(&Tree::insertNear), 15);
    EXPECT_EQ(slotOf(&Tree::find), 16);
    EXPECT_EQ(slotOf(&Tree::findNearest), 17);
}

TEST(Tree, FieldsStandInTheirOrder) {
    const Tree tree;
    const auto at = [&](const void* field) {
        return static_cast<const char*>(field) - reinterpret_cast<const char*>(&tree);
    };
    EXPECT_EQ(at(&tree.root), 8);
    EXPECT_EQ(at(&tree.count), 16);
    EXPECT_EQ(at(&tree.maxDepth), 20);
    static_assert(offsetof(TPointNode, key) == 0);
    static_assert(offsetof(TPointNode, value) == 4);
    static_assert(offsetof(TPointNode, one) == 12);
    static_assert(offsetof(TPointNode, greater) == 16);
    static_assert(offsetof(TPointNode, lesser) == 24);
    static_assert(offsetof(TPointNode, balance) == 32);
    static_assert(std::has_virtual_destructor_v<TPointTree::Pair>);
}

TEST(Tree, KeysAreComparedAsUnsigned) {
    const Tree tree;
    EXPECT_TRUE(tree.isGreater(kLargest, 1));
    EXPECT_FALSE(tree.isGreater(1, 1));
    EXPECT_TRUE(tree.isGreaterOrEqual(1, 1));
    EXPECT_FALSE(tree.isGreaterOrEqual(0, 1));
    EXPECT_TRUE(tree.isLess(0, kLargest));
    EXPECT_FALSE(tree.isLess(2, 2));
}

TEST(Tree, NewTreeHasNothing) {
    const Tree tree;
    EXPECT_EQ(tree.root, nullptr);
    EXPECT_EQ(tree.nodeCount(), 0u);
    EXPECT_EQ(tree.greatestDepth(), -1);
    EXPECT_EQ(tree.find(0).node, nullptr);
    bool found = true;
    EXPECT_EQ(tree.findNearest(5, found).node, nullptr);
    EXPECT_FALSE(found);
    EXPECT_EQ(walked(tree), Keys{});
}

TEST(Tree, FirstNodeStandsAtDepthZero) {
    Tree tree;
    tree.insert(7, file_point::at(70));
    ASSERT_NE(tree.root, nullptr);
    EXPECT_EQ(tree.root->key, 7u);
    EXPECT_EQ(tree.root->value, file_point::at(70));
    EXPECT_EQ(tree.root->one, 1u);
    EXPECT_EQ(tree.root->greater, nullptr);
    EXPECT_EQ(tree.root->lesser, nullptr);
    EXPECT_EQ(tree.root->balance, 0);
    EXPECT_EQ(tree.nodeCount(), 1u);
    EXPECT_EQ(tree.greatestDepth(), 0);
}

TEST(Tree, KeyThatExistsGetsTheNewValue) {
    Tree tree;
    fill(tree, {10, 5, 20, 1});
    const TPointNode* const node = tree.find(1).node;
    const std::int32_t depth = tree.maxDepth;
    tree.insert(1, file_point::at(99));
    EXPECT_EQ(tree.find(1).node, node);
    EXPECT_EQ(node->value, file_point::at(99));
    EXPECT_EQ(tree.nodeCount(), 4u);
    EXPECT_EQ(tree.maxDepth, depth);
    check(tree);
}

TEST(Tree, BalancesFollowTheInsertions) {
    Tree tree;
    fill(tree, {10});
    fill(tree, {20});
    EXPECT_EQ(tree.root->balance, 1);
    fill(tree, {5});
    EXPECT_EQ(tree.root->balance, 0);
    fill(tree, {3});
    EXPECT_EQ(tree.root->balance, -1);
    EXPECT_EQ(tree.root->lesser->balance, -1);
    check(tree);
}

// Each row makes one rotation; the walk shows node, lesser side, greater side.
TEST(Tree, RotationsGiveTheirShapes) {
    struct Row {
        std::initializer_list<unsigned> keys;
        Keys shape;
    };
    for (const Row& row : {
             Row{{10, 20, 30}, {20, 10, 30}},
             Row{{30, 20, 10}, {20, 10, 30}},
             Row{{10, 30, 20}, {20, 10, 30}},
             Row{{30, 10, 20}, {20, 10, 30}},
             // With subtrees, the inner node leaning to either side.
             Row{{20, 10, 40, 30, 50, 60}, {40, 20, 10, 30, 50, 60}},
             Row{{50, 30, 60, 20, 40, 10}, {30, 20, 10, 50, 40, 60}},
             Row{{20, 10, 50, 40, 60, 30}, {40, 20, 10, 30, 50, 60}},
             Row{{20, 10, 50, 40, 60, 45}, {40, 20, 10, 50, 45, 60}},
             Row{{50, 20, 60, 10, 30, 40}, {30, 20, 10, 50, 40, 60}},
             Row{{50, 20, 60, 10, 30, 25}, {30, 20, 10, 25, 50, 60}},
         }) {
        Tree tree;
        fill(tree, row.keys);
        EXPECT_EQ(walked(tree), row.shape);
        check(tree);
    }
}

TEST(Tree, InsertAtTellsGrowthAndDepth) {
    struct Row {
        unsigned key;
        bool grew;
        std::int32_t depth;
    };
    Tree tree;
    TPointNode* link = nullptr;
    for (const Row& row :
         {Row{20, true, 0}, Row{30, true, 1}, Row{10, false, 1}, Row{40, true, 2},
          // a single rotation takes the growth back, and a double one at the end
          Row{50, false, 3}, Row{50, false, 2}, Row{20, false, 0}, Row{35, false, 3}}) {
        bool grew = !row.grew;
        std::int32_t depth = 0;
        tree.insertAt(link, row.key, file_point::at(1), grew, depth);
        EXPECT_EQ(grew, row.grew) << row.key;
        EXPECT_EQ(depth, row.depth) << row.key;
        tree.root = link;
    }
    EXPECT_EQ(tree.maxDepth, 3);
    EXPECT_EQ(tree.count, 6u);
    check(tree);
}

TEST(Tree, InsertAtCountsFromTheDepthItIsGiven) {
    Tree tree;
    TPointNode* link = nullptr;
    bool grew = false;
    std::int32_t depth = 5;
    tree.insertAt(link, 1, file_point::at(1), grew, depth);
    EXPECT_TRUE(grew);
    EXPECT_EQ(depth, 5);
    EXPECT_EQ(tree.maxDepth, 5);
    tree.insertAt(link, 2, file_point::at(1), grew, depth);
    EXPECT_EQ(depth, 6);
    EXPECT_EQ(tree.maxDepth, 6);
    tree.root = link;
}

TEST(Tree, GreatestDepthIsThatOfInsertionsAndNotOfTheTree) {
    Tree tree;
    fill(tree, {10, 20, 30}); // 30 stood at depth 2 before the rotation
    EXPECT_EQ(tree.greatestDepth(), 2);
    int nodes = 0;
    EXPECT_EQ(checkedHeight(tree.root, 0, kLargest, nodes), 2);
}

TEST(Tree, ThousandAscendingInsertionsStayBalanced) {
    Tree tree;
    for (unsigned key = 0; key < 1000; ++key) {
        tree.insert(key, file_point::at(key * 100));
        if (key % 50 == 0)
            check(tree);
    }
    check(tree);
    EXPECT_EQ(tree.nodeCount(), 1000u);
    int nodes = 0;
    EXPECT_EQ(checkedHeight(tree.root, 0, kLargest, nodes), 10);
    for (unsigned key = 0; key < 1000; ++key)
        ASSERT_EQ(tree.find(key).node->value, file_point::at(key * 100));
    EXPECT_EQ(tree.find(1000).node, nullptr);
}

TEST(Tree, DescendingInsertionsStayBalanced) {
    Tree tree;
    for (unsigned key = 1000; key-- > 0;)
        tree.insert(key, file_point::at(key));
    check(tree);
    EXPECT_EQ(tree.nodeCount(), 1000u);
}

TEST(Tree, RandomInsertionsAgreeWithAMap) {
    std::mt19937 random(7);
    for (const unsigned range : {50u, 3000u, kLargest}) {
        Tree tree;
        std::map<unsigned, std::uint64_t> expected;
        std::uniform_int_distribution<unsigned> keys(0, range);
        for (int i = 0; i < 3000; ++i) {
            const unsigned key = keys(random);
            const std::uint64_t value = random();
            tree.insert(key, file_point::at(value));
            expected[key] = value;
            if (i % 500 == 0)
                check(tree);
        }
        check(tree);
        ASSERT_EQ(tree.nodeCount(), expected.size());
        for (const auto& [key, value] : expected)
            ASSERT_EQ(tree.find(key).node->value, file_point::at(value));
        for (int i = 0; i < 3000; ++i) {
            const unsigned key = keys(random);
            bool found = false;
            const TPointNode* const neighbour = tree.findNearest(key, found).node;
            ASSERT_EQ(tree.find(key).node != nullptr, expected.contains(key));
            ASSERT_EQ(found, expected.contains(key));
            // The key itself, or a neighbour on either side.
            const auto above = expected.lower_bound(key);
            const bool isAbove = above != expected.end() && neighbour->key == above->first;
            const bool isBelow =
                above != expected.begin() && neighbour->key == std::prev(above)->first;
            ASSERT_TRUE(found ? neighbour->key == key : isAbove || isBelow);
        }
    }
}

TEST(Tree, ExtremeKeysAreKeysLikeOthers) {
    Tree tree;
    fill(tree, {0, kLargest, 0x80000000, 0x7FFFFFFF});
    check(tree);
    EXPECT_EQ(tree.find(kLargest).node->key, kLargest);
    EXPECT_EQ(tree.find(0).node->key, 0u);
}

TEST(Tree, NearestIsANeighbourAndSaysThatItIsNotTheKey) {
    Tree tree;
    fill(tree, {10, 20});
    bool found = true;
    const unsigned key = tree.findNearest(15, found).node->key;
    EXPECT_FALSE(found);
    EXPECT_TRUE(key == 10 || key == 20) << key;
    EXPECT_EQ(tree.findNearest(10, found).node->key, 10u);
    EXPECT_TRUE(found);
    EXPECT_EQ(tree.findNearest(5, found).node->key, 10u);
    EXPECT_FALSE(found);
    EXPECT_EQ(tree.findNearest(25, found).node->key, 20u);
    EXPECT_FALSE(found);
}

TEST(Tree, InsertionNearANodeKeepsTheWholeTreeRight) {
    Tree tree;
    std::mt19937 random(3);
    std::map<unsigned, unsigned> expected;
    for (unsigned i = 0; i < 2000; ++i) {
        const unsigned key = static_cast<unsigned>(random() % 5000);
        bool found = false;
        tree.insertNear(tree.findNearest(key, found), key, file_point::at(i));
        ASSERT_EQ(found, expected.contains(key));
        expected[key] = i;
        if (i % 100 == 0)
            check(tree);
    }
    check(tree);
    ASSERT_EQ(tree.nodeCount(), expected.size());
    for (const auto& [key, value] : expected)
        ASSERT_EQ(tree.find(key).node->value, file_point::at(value));
}

TEST(Tree, InsertionNearTheWrongNodeKeepsTheOrder) {
    Tree tree;
    fill(tree, {10, 5, 20});
    tree.insertNear(tree.find(5), 30, file_point::at(1));
    tree.insertNear(TPointTree::Pair(), 1, file_point::at(1));
    check(tree);
    EXPECT_NE(tree.find(30).node, nullptr);
    EXPECT_NE(tree.find(1).node, nullptr);
}

TEST(Tree, WalkVisitsTheNodeThenLesserThenGreater) {
    Tree tree;
    fill(tree, {40, 20, 60, 10, 30, 50, 70});
    EXPECT_EQ(walked(tree), (Keys{40, 20, 10, 30, 60, 50, 70}));
    EXPECT_EQ(walked(tree, tree.root->greater), (Keys{60, 50, 70}));
    EXPECT_EQ(walked(tree, nullptr), Keys{});
}

namespace {

std::vector<unsigned> freed;
const TPointNode* nodesOf[8];

// Notes nodes in the order in which their memory goes back.
void noteFreed(void* block) {
    for (const TPointNode* node : nodesOf)
        if (node == block && node != nullptr)
            freed.push_back(node->key);
}

} // namespace

TEST(Tree, SubtreeIsFreedLesserThenGreaterThenNode) {
    const MemTraceTable saved = memTraceTable;
    freed.clear();
    {
        Tree tree;
        fill(tree, {40, 20, 60, 10, 30, 50, 70});
        for (unsigned i = 1; i < 8; ++i)
            nodesOf[i] = tree.find(10 * i).node;
        memTraceTable = {[](void*, std::size_t, const char*, int) {}, noteFreed};
        memTraceEnabled = true;
    }
    memTraceEnabled = false;
    memTraceTable = saved;
    EXPECT_EQ(freed, (Keys{10, 30, 20, 50, 70, 60, 40}));
}

TEST(Tree, ClearedTreeIsAsNew) {
    const std::uint32_t balance = memCountMalloc - memCountFree;
    Tree tree;
    fill(tree, {40, 20, 60});
    EXPECT_EQ(memCountMalloc - memCountFree, balance + 3);
    tree.clear();
    EXPECT_EQ(memCountMalloc - memCountFree, balance);
    EXPECT_EQ(tree.root, nullptr);
    EXPECT_EQ(tree.nodeCount(), 0u);
    EXPECT_EQ(tree.greatestDepth(), -1);
    fill(tree, {1});
    EXPECT_EQ(tree.greatestDepth(), 0);
}

TEST(Tree, EndOfTheTreeFreesAllNodes) {
    const std::uint32_t balance = memCountMalloc - memCountFree;
    {
        Tree tree;
        for (unsigned key = 0; key < 100; ++key)
            tree.insert(key, file_point::at(0));
    }
    EXPECT_EQ(memCountMalloc - memCountFree, balance);
}

TEST(Tree, FailedAllocationRaisesAndChangesNothing) {
    Tree tree;
    fill(tree, {10, 20});
    {
        const FailingMalloc failing(sizeof(TPointNode));
        EXPECT_NE(raisedText([&] {
                      tree.insert(30, file_point::at(1));
                  }).find("Can't allocate memory at Common/DataView/FileAlloc/filealloc:"),
                  std::string::npos);
        tree.insert(20, file_point::at(5)); // needs no memory
    }
    EXPECT_EQ(tree.nodeCount(), 2u);
    EXPECT_EQ(tree.greatestDepth(), 1);
    EXPECT_EQ(tree.find(20).node->value, file_point::at(5));
    check(tree);
    fill(tree, {30});
    check(tree);
}

TEST(Tree, ResultOfALookUpCanBeKept) {
    Tree tree;
    fill(tree, {10, 20});
    const TPointTree::Pair none;
    TPointTree::Pair kept = tree.find(20);
    const TPointTree::Pair copy = kept;
    kept = none;
    EXPECT_EQ(none.node, nullptr);
    EXPECT_EQ(kept.node, nullptr);
    EXPECT_EQ(copy.node->key, 20u);
}
