// The inner state of ICurDataIterator: a copy of one page of the journal and the place in it.

#pragma once

#include <cstdint>
#include <cstring>

#include "FileAlloc/pages.h"
#include "vdreader/curdata.hpp"

// Bytes that a record takes, its payload included.
inline std::uint32_t recordLength(const ENC_DATA& head) noexcept {
    return static_cast<std::uint32_t>(sizeof head) + head.maskSize + 4u * head.longCount +
           8u * head.doubleCount;
}

struct ICurData::interface_inner_data {
    interface_inner_data() = default;
    interface_inner_data(const interface_inner_data&) = delete;
    interface_inner_data& operator=(const interface_inner_data&) = delete;
    virtual ~interface_inner_data() = default;

    // The record at `place`, with its length in `length`; null where the page has no whole one.
    ENC_DATA* at(std::uint32_t place, std::uint32_t& length) const noexcept {
        const std::uint32_t left = limit - place;
        if (place >= limit || left < sizeof(ENC_DATA))
            return nullptr;
        auto* const record = reinterpret_cast<ENC_DATA*>(payload + place);
        length = recordLength(*record);
        return length <= left ? record : nullptr;
    }

    // The same for the record at `offset`.
    ENC_DATA* current(std::uint32_t& length) const noexcept { return at(offset, length); }

    // The same and a step over it.
    // Deliberate: `offset` is behind what was given last, so Current shows what comes next. Callers
    // of the family look ahead with it.
    ENC_DATA* take() noexcept {
        std::uint32_t length = 0;
        ENC_DATA* const record = current(length);
        offset += length * (record != nullptr);
        return record;
    }

    // Loads the block at `point`, whose payload has `size` bytes, into the page.
    void load(FileWorkLibrary::TFileStorageAllocatorNew& file, std::uint32_t size,
              FileWorkLibrary::file_point point);

    FileWorkLibrary::TLoadPage page;
    std::uint32_t number = 0; // asked for
    std::uint32_t offset = 0; // in the payload

    // The payload and how much of it may be handed out, as they were after the last load.
    char* payload = nullptr;
    std::uint32_t limit = 0;
};
