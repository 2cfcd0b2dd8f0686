// How the values of a class's parameters stand in the slots of the current data.

#pragma once

#include <cstdint>

// A set of parameters: bit i % 64 of word i / 64.
struct ParamSet {
    std::uint64_t words[2] = {};
};

struct ValueForm {
    // The parameters that have values, by their kind.
    ParamSet doubles;
    ParamSet longs;
    // None of them is this one or behind it.
    unsigned limit = 0;
};
