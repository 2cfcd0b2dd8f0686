// The index of event pages: 10,000 record numbers, ascending, each with the position of its page.
//
// Insertion into an empty tree, where the release is not timed:
//   limit  one block of the heap for each key, of the size of a node, with key and value in it
//   ours   TPointTree::insert
//   map    insert_or_assign of a std::map
//
// Look-up of keys that are there, in an order that cannot be guessed:
//   limit  a binary search without jumps in one sorted array of keys, then the value
//   ours   TPointTree::find
//   map    find of a std::map

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <map>
#include <random>
#include <vector>

#include "FileAlloc/TTree.h"
#include "support.h"

namespace {

using FileWorkLibrary::file_point;
using FileWorkLibrary::TPointNode;
using FileWorkLibrary::TPointTree;
using Map = std::map<unsigned, file_point>;

constexpr unsigned kKeys = 10'000;
constexpr unsigned kRecordsOfAPage = 1000;
constexpr std::uint64_t kPageBytes = 81'948;

unsigned keyOf(unsigned page) {
    return page * kRecordsOfAPage;
}
file_point pointOf(unsigned page) {
    return file_point::at(page * kPageBytes);
}

template <class Index>
void fill(Index& index, void (*insert)(Index&, unsigned, const file_point&)) {
    for (unsigned page = 0; page < kKeys; ++page)
        insert(index, keyOf(page), pointOf(page));
}

void insertIntoTree(TPointTree& tree, unsigned key, const file_point& point) {
    tree.insert(key, point);
}
void insertIntoMap(Map& map, unsigned key, const file_point& point) {
    map.insert_or_assign(key, point);
}

// ---- insertion ----

template <class Index>
void insertAll(benchmark::State& state, void (*insert)(Index&, unsigned, const file_point&)) {
    bench::keepFreedMemory();
    for (auto _ : state) {
        state.PauseTiming();
        {
            Index index;
            state.ResumeTiming();
            fill(index, insert);
            benchmark::DoNotOptimize(index);
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
}

void insertLimit(benchmark::State& state) {
    bench::keepFreedMemory();
    std::vector<TPointNode*> nodes(kKeys);
    for (auto _ : state) {
        for (unsigned page = 0; page < kKeys; ++page) {
            nodes[page] = static_cast<TPointNode*>(std::malloc(sizeof(TPointNode)));
            nodes[page]->key = keyOf(page);
            nodes[page]->value = pointOf(page);
        }
        benchmark::ClobberMemory();
        state.PauseTiming();
        for (TPointNode* node : nodes)
            std::free(node);
        state.ResumeTiming();
    }
}

// ---- look-up ----

const std::vector<unsigned>& questions() {
    static const std::vector<unsigned> all = [] {
        std::vector<unsigned> keys(1 << 17);
        std::mt19937 random(1);
        for (unsigned& key : keys)
            key = keyOf(random() % kKeys);
        return keys;
    }();
    return all;
}

// `look` gives the position for a key.  The time is that of one question.
template <class Look>
void runLookUp(benchmark::State& state, Look look) {
    const std::vector<unsigned>& all = questions();
    std::size_t next = 0;
    for (auto _ : state) {
        const unsigned key = all[next];
        next = (next + 1) % all.size();
        if (look(key) != pointOf(key / kRecordsOfAPage))
            state.SkipWithError("a key was not found");
    }
}

void lookUpLimit(benchmark::State& state) {
    std::vector<unsigned> keys;
    std::vector<file_point> points;
    for (unsigned page = 0; page < kKeys; ++page) {
        keys.push_back(keyOf(page));
        points.push_back(pointOf(page));
    }
    runLookUp(state, [&](unsigned key) {
        const unsigned* from = keys.data();
        for (std::size_t left = keys.size(); left > 1; left -= left / 2)
            from += from[left / 2] <= key ? left / 2 : 0;
        return points[static_cast<std::size_t>(from - keys.data())];
    });
}

void lookUpOurs(benchmark::State& state) {
    TPointTree tree;
    fill(tree, insertIntoTree);
    runLookUp(state, [&](unsigned key) { return tree.find(key).node->value; });
}

void lookUpMap(benchmark::State& state) {
    Map map;
    fill(map, insertIntoMap);
    runLookUp(state, [&](unsigned key) { return map.find(key)->second; });
}

void add(const char* name, void (*run)(benchmark::State&), benchmark::TimeUnit unit) {
    benchmark::RegisterBenchmark(name, run)->UseRealTime()->Unit(unit);
}

const bool added = [] {
    add("tree insert/limit", insertLimit, benchmark::kMicrosecond);
    add(
        "tree insert/ours", [](benchmark::State& s) { insertAll<TPointTree>(s, insertIntoTree); },
        benchmark::kMicrosecond);
    add(
        "tree insert/map", [](benchmark::State& s) { insertAll<Map>(s, insertIntoMap); },
        benchmark::kMicrosecond);
    add("tree find/limit", lookUpLimit, benchmark::kNanosecond);
    add("tree find/ours", lookUpOurs, benchmark::kNanosecond);
    add("tree find/map", lookUpMap, benchmark::kNanosecond);
    return true;
}();

} // namespace
