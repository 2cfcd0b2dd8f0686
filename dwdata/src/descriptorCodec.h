// The stored form of the descriptors: fields in stored order, little-endian, without padding.
//
// Runs of fixed fields are listed once and read in two ways: in one piece where the run is at hand,
// field by field where the file ends inside it, so that each field is read whole or left alone.

#pragma once

#include "dwdata/ByteStream.h"
#include "vdreader/descriptors.hpp"

namespace codec {

// Smallest stored forms in bytes: no names, no sub-descriptors.
inline constexpr std::size_t kLeastParamSize = 35;
inline constexpr std::size_t kLeastSecuritySize = 500;

// Clear what the default of a descriptor leaves as the memory held it.
void clearUntouched(PARAMS_DESC& param);
inline void clearUntouched(SECURITY_DESC&) {}

// Read one descriptor into a default-made one.  Raise std::length_error "vector too long" for a
// count of names or sub-descriptors that asks for more than ClassStorage::kMostBytes.
void read(ByteStream& stream, PARAMS_DESC& param);
void read(ByteStream& stream, SECURITY_DESC& security);

// Raises std::length_error "vector too long" for more than ClassStorage::kMostBytes.
void checkVectorSize(std::uint64_t count, std::size_t elementSize);

} // namespace codec
