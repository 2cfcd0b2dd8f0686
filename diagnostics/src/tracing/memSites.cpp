// Source positions of the memory tracer.

#include <cstring>

#include "diagnostics/memTables.h"

std::size_t MemSites::bucketOf(const char* file, std::int32_t line) {
    std::uint64_t hash = 0;
    for (; *file != '\0'; ++file)
        hash = hash * 31 + static_cast<std::uint64_t>(static_cast<signed char>(*file));
    signed char bytes[sizeof line];
    std::memcpy(bytes, &line, sizeof line);
    for (const signed char byte : bytes)
        hash = hash * 31 + static_cast<std::uint64_t>(byte);
    return hash % kBuckets;
}

std::int16_t MemSites::numberOf(const char* file, std::int32_t line) {
    const auto address = reinterpret_cast<std::uintptr_t>(file);
    const std::size_t place =
        (address ^ (address >> 8) ^ static_cast<std::uint32_t>(line) * 37u) % kRemembered;
    Known& known = m_remembered[place];
    if (known.file != file || known.line != line || file == nullptr)
        known = {file, line, search(file != nullptr ? file : "", line)};
    return known.site;
}

std::int16_t MemSites::search(const char* file, std::int32_t line) {
    std::vector<Known>& bucket = m_index[bucketOf(file, line)];
    for (const Known& known : bucket)
        if (known.line == line && std::strcmp(known.file, file) == 0)
            return known.site;
    constexpr std::size_t kNumbers = 32768;
    const std::size_t index = m_sites.size();
    const std::int16_t number = index < kNumbers ? static_cast<std::int16_t>(index) : kNoNumber;
    bucket.push_back({file, line, number});
    try {
        m_sites.push_back({file, line});
    } catch (...) {
        bucket.pop_back();
        throw;
    }
    return number;
}
