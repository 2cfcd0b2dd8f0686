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

StorageHandle openStorage(const char* path, StorageAccess access);
bool closeStorage(StorageHandle file);
std::int64_t storageSize(StorageHandle file);
bool seekStorage(StorageHandle file, std::uint64_t offset);
bool truncateStorage(StorageHandle file);
bool readStorage(StorageHandle file, void* out, std::uint32_t size, std::uint32_t* done);
bool moveStorage(StorageHandle file, std::int64_t offset, SeekOrigin origin,
                 std::int64_t* position);
bool writeStorage(StorageHandle file, const void* data, std::uint32_t size, std::uint32_t* done);
bool appendStorage(StorageHandle file, const void* data, std::uint32_t size, std::uint32_t* done);
bool creationTime(const char* path, std::int64_t* seconds, int* error);
bool moveFile(const char* from, const char* to);
bool removeFile(const char* path);
bool setCurrentFolder(const char* path);
void sleepFor(std::uint32_t milliseconds);
MappingHandle createMapping(StorageHandle file, std::uint64_t size, bool writes);
bool closeMapping(MappingHandle mapping);
void* mapView(MappingHandle mapping, std::uint64_t offset, std::uint64_t size, bool writes);
bool unmapView(void* view);

WallTime wallClock();
void invalidParameter();

} // namespace platform::system
