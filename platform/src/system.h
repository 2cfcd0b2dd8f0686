// The system's own form of each call of the table; one definition for each target.

#pragma once

#include "platform/calls.h"

namespace platform::system {

FileHandle openForReading(const char* path);
std::ptrdiff_t readAt(FileHandle file, std::uint64_t offset, void* out, std::size_t size);
std::int64_t fileSize(FileHandle file);
void closeFile(FileHandle file);

std::FILE* openStream(const char* path);
bool seekStream(std::FILE* stream, std::int64_t offset, int origin);
std::int64_t tellStream(std::FILE* stream);
std::size_t readStream(void* out, std::size_t size, std::size_t count, std::FILE* stream);

std::size_t executablePath(char* out, std::size_t size);
void* allocateLarge(std::size_t size);

} // namespace platform::system
