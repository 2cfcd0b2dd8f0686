// The payload of the first block of data.vd.  docs/formats/data.md tells the format.
//
// It is read and written in place, in a view that other processes share; shared() does so for
// fields that change while they are looked at.

#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "FileAlloc/file_point.h"

// Naturally packed: every field stands at a multiple of 4, and so does the payload.
struct CURDATA_HEADER {
    static constexpr char kSignature[] = "0B6C6676-8C6E-4807-B8CA-60367206277A";
    static constexpr std::uint32_t kOpenStamp = 0;
    static constexpr std::uint32_t kClosedStamp = 0xDDFDDFDD;

    char signature[37];
    char reserved37[7];
    std::int32_t elements;
    std::int32_t maxSecs;
    std::int32_t dataPageCount;
    std::uint32_t dataPageSize;
    char reserved60[4];
    FileWorkLibrary::file_point firstDataPage;
    std::uint32_t eventPageSize;
    char reserved76[4];
    FileWorkLibrary::file_point firstEventPage;
    FileWorkLibrary::file_point currentEventPage;
    std::uint32_t closeStamp;
    std::int32_t eventPageCount;

    // What a field holds at this moment.  An aligned number is read in one piece.
    template <class Number>
    static Number shared(const Number& field) {
        return *static_cast<const volatile Number*>(&field);
    }
};

static_assert(sizeof(CURDATA_HEADER) == 104);
static_assert(alignof(CURDATA_HEADER) == 4);
static_assert(sizeof(CURDATA_HEADER::kSignature) == sizeof(CURDATA_HEADER::signature));
static_assert(offsetof(CURDATA_HEADER, signature) == 0);
static_assert(offsetof(CURDATA_HEADER, reserved37) == 37);
static_assert(offsetof(CURDATA_HEADER, elements) == 44);
static_assert(offsetof(CURDATA_HEADER, maxSecs) == 48);
static_assert(offsetof(CURDATA_HEADER, dataPageCount) == 52);
static_assert(offsetof(CURDATA_HEADER, dataPageSize) == 56);
static_assert(offsetof(CURDATA_HEADER, reserved60) == 60);
static_assert(offsetof(CURDATA_HEADER, firstDataPage) == 64);
static_assert(offsetof(CURDATA_HEADER, eventPageSize) == 72);
static_assert(offsetof(CURDATA_HEADER, reserved76) == 76);
static_assert(offsetof(CURDATA_HEADER, firstEventPage) == 80);
static_assert(offsetof(CURDATA_HEADER, currentEventPage) == 88);
static_assert(offsetof(CURDATA_HEADER, closeStamp) == 96);
static_assert(offsetof(CURDATA_HEADER, eventPageCount) == 100);
static_assert(std::is_trivially_copyable_v<CURDATA_HEADER>);
