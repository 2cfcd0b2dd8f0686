// A record of the message logger: who submitted it, when, its kind, and typed parameters.
//
// Two parameters lie in the record; further ones are nodes of a list.  Texts below 32
// characters are kept in the parameter itself, longer ones in a block of their own.

#pragma once

#include <cstddef>
#include <cstdint>

enum class SysLogParamType : std::uint8_t {
    none = 0,
    character = 1,
    text = 2,
    real = 3,
    int32 = 4,
    int16 = 5,
    uint32 = 6,
    uint16 = 7,
    character2 = 8, // an alternative code of the same
    int64 = 9,
    uint64 = 10,
    boolean = 11, // one byte; not 0 is true
};

struct SysLogParam {
    static constexpr std::size_t kValueSize = 32;

    // A number stands at the start, in its own width.  A text stands here with its terminator, or
    // its block's address in the last 8 bytes behind 8 bytes of zero.
    alignas(8) char value[kValueSize];
    SysLogParamType type;

    // The text behind the address, null for one that stands in the value.
    char* heapText() const;
    // The characters of a parameter of type text.
    const char* text() const;
    // Keeps a copy.  The value is zero before, and the text is no null.
    void setText(const char* text, std::size_t length);
    // Releases the copy of a longer text.
    void release();

    // The value as a number of its type.
    template <class Number>
    Number number() const;
};
static_assert(sizeof(SysLogParam) == 40);

// A parameter behind the second.
struct SysLogParamNode {
    SysLogParam param;
    SysLogParamNode* next;
};
static_assert(sizeof(SysLogParamNode) == 48);

struct SysLogRecord {
    static constexpr std::size_t kInlineParams = 2;

    std::uint32_t threadId;      // of the thread that submitted it
    std::uint32_t date;          // day, month << 8, year << 16, day of the week << 28
    std::uint32_t time;          // milliseconds, seconds << 10, minutes << 16, hours << 24
    std::uint16_t inlineCount;   // parameters in inlineParams
    std::uint16_t overflowCount; // parameters in the list
    std::uint32_t id;            // number of the message, level << 24
    SysLogParamNode* overflow;
    SysLogParam inlineParams[kInlineParams];

    std::uint8_t level() const { return static_cast<std::uint8_t>(id >> 24); }
    // Parameter number `index`, counted from 1; null where there is none.
    const SysLogParam* param(std::uint16_t index) const;
};
static_assert(sizeof(SysLogRecord) == 112);

// A record of the level and number without parameters, all else zero.
SysLogRecord* newSysLogRecord(std::uint8_t level, std::uint32_t number);

// Releases the record with its texts and nodes.  Null is accepted.
void freeSysLogRecord(SysLogRecord* record) noexcept;

// Appends a parameter of type text; nothing for a null text.  std::bad_alloc leaves the record as
// it was.
void addStringParam(SysLogRecord& record, const char* text);
// The same where the length is known; the text holds no NUL.
void addStringParam(SysLogRecord& record, const char* text, std::size_t length);

// Owns a record for a scope.
struct SysLogRecordFree {
    void operator()(SysLogRecord* record) const noexcept { freeSysLogRecord(record); }
};

template <class Number>
Number SysLogParam::number() const {
    Number number;
    __builtin_memcpy(&number, value, sizeof number);
    return number;
}
