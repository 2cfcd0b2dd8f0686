// Names of files between code pages and paths on Windows.

#include "platform/pathText.h"

#include <locale.h>
#include <windows.h>

namespace platform {

std::string narrowName(const std::filesystem::path& path) {
    const std::wstring& wide = path.native();
    const int length = static_cast<int>(wide.size());
    // No best fit: it would turn a name into that of another file.  A process in UTF-8 knows none.
    const DWORD flags = ::GetACP() == CP_UTF8 ? 0 : WC_NO_BEST_FIT_CHARS;
    const auto convert = [&](char* out, int size) {
        return ::WideCharToMultiByte(CP_ACP, flags, wide.data(), length, out, size, nullptr,
                                     nullptr);
    };
    std::string name(static_cast<std::size_t>(convert(nullptr, 0)), '\0');
    convert(name.data(), static_cast<int>(name.size()));
    return name;
}

std::filesystem::path pathOfName(const std::string& name) {
    const int length = static_cast<int>(name.size());
    const UINT codePage = ___lc_codepage_func(); // 0, that is CP_ACP, in the locale "C"
    const auto convert = [&](wchar_t* out, int size) {
        return ::MultiByteToWideChar(codePage, 0, name.data(), length, out, size);
    };
    std::wstring wide(static_cast<std::size_t>(convert(nullptr, 0)), L'\0');
    convert(wide.data(), static_cast<int>(wide.size()));
    return wide;
}

} // namespace platform
