// What the memory tracer and reports show as the source of this folder.

#pragma once

namespace FileWorkLibrary {

inline constexpr char kFileAllocSource[] = "Common/DataView/FileAlloc/filealloc";

} // namespace FileWorkLibrary
