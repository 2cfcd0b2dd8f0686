// A file that the calling thread may write and not read.

#pragma once

#ifdef _WIN32
#  include <windows.h>
#else
#  include <linux/capability.h>
#  include <sys/stat.h>
#  include <sys/syscall.h>
#  include <unistd.h>
#endif

#include <fstream>
#include <string>

// Holds an existing file so for a scope: on Linux by its mode, which root heeds on this thread
// meanwhile, on Windows as a process does that lets others write alone.
class WriteOnlyFile {
  public:
    explicit WriteOnlyFile(const std::string& path) : m_path(path) { hold(); }
    ~WriteOnlyFile() { release(); }
    WriteOnlyFile(const WriteOnlyFile&) = delete;
    WriteOnlyFile& operator=(const WriteOnlyFile&) = delete;

    // False where a file system without rights keeps it readable.
    bool holds() const { return !std::ifstream(m_path).is_open(); }

  private:
#ifdef _WIN32
    void hold() {
        m_holder = ::CreateFileA(m_path.c_str(), GENERIC_WRITE, FILE_SHARE_WRITE, nullptr,
                                 OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    }
    void release() {
        ::CloseHandle(m_holder);
    }

    HANDLE m_holder = INVALID_HANDLE_VALUE;
#else
    void hold() {
        ::chmod(m_path.c_str(), 0200);
        ::syscall(SYS_capget, &m_thread, m_capabilities);
        auto reduced = m_capabilities[0];
        reduced.effective &= ~(1u << CAP_DAC_OVERRIDE | 1u << CAP_DAC_READ_SEARCH);
        const __user_cap_data_struct heeding[] = {reduced, m_capabilities[1]};
        ::syscall(SYS_capset, &m_thread, heeding);
    }
    void release() {
        ::syscall(SYS_capset, &m_thread, m_capabilities);
        ::chmod(m_path.c_str(), 0600);
    }

    __user_cap_header_struct m_thread = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct m_capabilities[2] = {};
#endif
    const std::string m_path;
};
