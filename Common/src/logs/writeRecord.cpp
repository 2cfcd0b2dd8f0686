// From a record to text: templates and parameters.

#include <charconv>
#include <cstdio>
#include <iostream>

#include "logs/SysLogger.h"

namespace {

// The bit of a mask that lets a priority pass; none for undefined ones.
std::uint32_t bitOf(MsgPriority priority) {
    switch (priority) {
        case MsgPriority::Low:
            return 2;
        case MsgPriority::Normal:
            return 4;
        case MsgPriority::High:
            return 8;
        default:
            return 0;
    }
}

// In the classic form of numbers, whatever the host's locale is.
template <class Number, class... Form>
void putNumber(LogStream& to, Number number, Form... form) {
    char text[400]; // the largest double has 309 digits in front of its point
    const std::to_chars_result end = std::to_chars(text, text + sizeof text, number, form...);
    to.put(text, static_cast<std::size_t>(end.ptr - text));
}

// Deliberate: digits behind the point as an output stream has them by default.
constexpr int kDecimals = 6;

} // namespace

void SysLogger::writeRecord(const SysLogRecord* record) {
    if (record == nullptr)
        return;
    const std::lock_guard guard(outputMutex);
    writeWhole(*record);
}

// Under outputMutex.
void SysLogger::writeWhole(const SysLogRecord& record) {
    // The writing of another record has failed on this thread, which reports that right now.
    if (writing)
        stream->discard();
    if (diag == nullptr)
        return;
    const CMsgDiagElem* elem = diag->find(record.level());
    if (elem == nullptr || (maskOf(record.level()) & bitOf(elem->priority)) == 0)
        return;
    // Deliberate: dropped without a word.  Components of the family share the logger and post
    // records of other schemes.
    const auto count = static_cast<std::uint16_t>(record.inlineCount + record.overflowCount);
    if (count != elem->fieldCount)
        return;
    try {
        writing = true;
        putRecord(record, *elem);
        writing = false;
    } catch (...) {
        writing = false;
        stream->discard(); // no half of a record
        throw;
    }
    stream->flush();
}

void SysLogger::putRecord(const SysLogRecord& record, const CMsgDiagElem& elem) {
    if (schemeType != 1)
        putDate(record);
    for (const MsgField& field : elem.fields) {
        stream->put(field.text);
        if (field.paramIndex != 0)
            putParam(record.param(field.paramIndex));
    }
}

// Deliberate: the line feed stands in front.  Files of these schemes are read record by record from
// there.
void SysLogger::putDate(const SysLogRecord& record) {
    char text[64];
    std::snprintf(text, sizeof text, "\n%02d.%02d.%4d %02d:%02d:%02d.%03d ",
                  static_cast<int>(record.date & 0xFF), static_cast<int>(record.date >> 8 & 0xFF),
                  static_cast<int>(record.date >> 16 & 0xFFF), static_cast<int>(record.time >> 24),
                  static_cast<int>(record.time >> 16 & 0xFF),
                  static_cast<int>(record.time >> 10 & 0x3F),
                  static_cast<int>(record.time & 0x3FF));
    stream->put(text);
}

void SysLogger::putParam(const SysLogParam* param) {
    switch (param != nullptr ? param->type : SysLogParamType::none) {
        case SysLogParamType::character:
        case SysLogParamType::character2:
            return stream->put(param->value, 1);
        case SysLogParamType::text:
            return stream->put(param->text(), std::char_traits<char>::length(param->text()));
        case SysLogParamType::real:
            return putNumber(*stream, param->number<double>(), std::chars_format::fixed, kDecimals);
        case SysLogParamType::int32:
            return putNumber(*stream, param->number<std::int32_t>());
        case SysLogParamType::int16:
            return putNumber(*stream, param->number<std::int16_t>());
        case SysLogParamType::uint32:
            return putNumber(*stream, param->number<std::uint32_t>());
        case SysLogParamType::uint16:
            return putNumber(*stream, param->number<std::uint16_t>());
        case SysLogParamType::int64:
            return putNumber(*stream, param->number<std::int64_t>());
        case SysLogParamType::uint64:
            return putNumber(*stream, param->number<std::uint64_t>());
        case SysLogParamType::boolean:
            return stream->put(*param->value != 0 ? "Y" : "N", 1);
        default:
            std::cerr << "Syslog parameter of unknown type." << '\n' << std::flush;
    }
}
