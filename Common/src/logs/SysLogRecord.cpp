// Building and releasing of records.

#include "logs/SysLogRecord.h"

#include <cstring>

namespace {
constexpr std::size_t kGuard = SysLogParam::kValueSize - 2 * sizeof(char*);
constexpr std::size_t kAddress = SysLogParam::kValueSize - sizeof(char*);
} // namespace

char* SysLogParam::heapText() const {
    std::uint64_t guard = 0;
    char* block = nullptr;
    std::memcpy(&guard, value + kGuard, sizeof guard);
    std::memcpy(&block, value + kAddress, sizeof block);
    return guard == 0 ? block : nullptr;
}

const char* SysLogParam::text() const {
    const char* block = heapText();
    return block != nullptr ? block : value;
}

void SysLogParam::setText(const char* text, std::size_t length) {
    if (length < kValueSize) {
        std::memcpy(value, text, length);
    } else {
        char* block = new char[length + 1];
        std::memcpy(block, text, length);
        block[length] = '\0';
        std::memcpy(value + kAddress, &block, sizeof block);
    }
    type = SysLogParamType::text;
}

void SysLogParam::release() {
    if (type == SysLogParamType::text)
        delete[] heapText();
}

const SysLogParam* SysLogRecord::param(std::uint16_t index) const {
    if (index == 0)
        return nullptr;
    if (index <= kInlineParams)
        return index <= inlineCount ? &inlineParams[index - 1] : nullptr;
    const SysLogParamNode* node = overflow;
    for (std::size_t at = kInlineParams + 1; node != nullptr && at < index; ++at)
        node = node->next;
    return node != nullptr ? &node->param : nullptr;
}

SysLogRecord* newSysLogRecord(std::uint8_t level, std::uint32_t number) {
    auto* record = new SysLogRecord{};
    record->id = (number & 0xFFFFFF) | std::uint32_t{level} << 24;
    return record;
}

void freeSysLogRecord(SysLogRecord* record) noexcept {
    if (record == nullptr)
        return;
    for (std::size_t i = 0; i < record->inlineCount; ++i)
        record->inlineParams[i].release();
    for (SysLogParamNode* node = record->overflow; node != nullptr;) {
        SysLogParamNode* next = node->next;
        node->param.release();
        delete node;
        node = next;
    }
    delete record;
}

void addStringParam(SysLogRecord& record, const char* text) {
    if (text != nullptr)
        addStringParam(record, text, std::strlen(text));
}

void addStringParam(SysLogRecord& record, const char* text, std::size_t length) {
    if (record.inlineCount < SysLogRecord::kInlineParams) {
        record.inlineParams[record.inlineCount].setText(text, length);
        ++record.inlineCount;
        return;
    }
    auto* node = new SysLogParamNode{};
    try {
        node->param.setText(text, length);
    } catch (...) {
        delete node;
        throw;
    }
    SysLogParamNode** end = &record.overflow;
    while (*end != nullptr)
        end = &(*end)->next;
    *end = node;
    ++record.overflowCount;
}
