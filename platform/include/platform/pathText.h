// Names of files between the text that the system's narrow calls take and paths.
//
// On Linux both hold the same bytes.

#pragma once

#include <filesystem>
#include <string>

namespace platform {

// The path in the process's code page (WideCharToMultiByte with CP_ACP).  A character that has no
// place there becomes "?", which no file's name holds.
std::string narrowName(const std::filesystem::path& path);

// The path of a name in the code page of the current C locale, which is the process's own where
// nobody set another (MultiByteToWideChar).
std::filesystem::path pathOfName(const std::string& name);

} // namespace platform
