// An allocator whose inside can be looked at, and the bytes of a block.

#pragma once

#include <cstring>
#include <string>

#include "FileAlloc/filealloc.h"

struct OpenAllocator : FileWorkLibrary::TFileStorageAllocatorNew {
    using Base = FileWorkLibrary::TFileStorageAllocatorNew;
    using Base::Base;
    using Base::count;
    using Base::enterView;
    using Base::errorText;
    using Base::fileName;
    using Base::granularity;
    using Base::head;
    using Base::lock;
    using Base::state;
    using Base::storage;
    using Base::tail;

    Node* node(int number) const {
        Node* found = head.get();
        for (; number >= 0 && found != nullptr; --number)
            found = found->next;
        return found;
    }

    // Maps a block that must be mappable.
    bool map(std::uint64_t offset, std::uint32_t size, FileWorkLibrary::TPage& page) {
        return mapBlock(FileWorkLibrary::file_point::at(offset), size, page);
    }
    bool loadAt(std::uint64_t offset, FileWorkLibrary::TLoadPage& page, std::uint32_t size) {
        return loadBlock(FileWorkLibrary::file_point::at(offset), page, size);
    }
};

// The bytes of a head, as they stand in a file.
inline std::string headBytes(std::uint32_t capacity, std::uint32_t used, std::uint64_t point,
                             std::uint32_t elements, std::uint16_t reserved = 0) {
    std::string bytes(24, '\0');
    const std::uint16_t marker = 0xFFED;
    std::memcpy(&bytes[0], &marker, 2);
    std::memcpy(&bytes[2], &reserved, 2);
    std::memcpy(&bytes[4], &capacity, 4);
    std::memcpy(&bytes[8], &used, 4);
    std::memcpy(&bytes[12], &point, 8);
    std::memcpy(&bytes[20], &elements, 4);
    return bytes;
}

// A whole block: head, payload filled up with zeroes, and the four bytes behind it.
inline std::string blockBytes(std::uint32_t capacity, std::uint32_t used, std::uint64_t point,
                              std::uint32_t elements, std::string payload) {
    payload.resize(std::size_t{capacity} + 4);
    return headBytes(capacity, used, point, elements) + payload;
}
