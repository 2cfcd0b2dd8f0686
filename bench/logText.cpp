// What the log benchmarks share, see logText.h.

#include "logText.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <utility>

#include "support.h"

namespace bench {

std::string errorIntroduction() {
    return "Running " + std::filesystem::read_symlink("/proc/self/exe").string() + ": Error: ";
}

PlainLine::PlainLine(char letter, std::string introduction)
    : m_letter(letter),
      m_introduction(std::move(introduction)),
      m_process(::getpid()),
      m_thread(static_cast<unsigned long>(::gettid())) {}

std::size_t PlainLine::make(int number) {
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != m_second) {
        std::tm local = {};
        ::localtime_r(&now.tv_sec, &local);
        std::strftime(m_date, sizeof m_date, "%e %b %y (%a) %T", &local);
        m_second = now.tv_sec;
    }
    return static_cast<std::size_t>(
        std::snprintf(m_text, sizeof m_text, "%c: %s.%03d (%d:%lu): %s" BENCH_PRINTF_MESSAGE "\r\n",
                      m_letter, m_date, static_cast<int>(now.tv_nsec / 1'000'000), m_process,
                      m_thread, m_introduction.c_str(), BENCH_ARGUMENTS(number)));
}

// The process's number stands in the pattern: spdlog would ask the kernel for it at each line.
std::unique_ptr<spdlog::formatter> spdlogFormatter(char letter, const std::string& introduction) {
    const std::string pattern = std::string(1, letter) + ": %d %b %y (%a) %H:%M:%S.%e (" +
                                std::to_string(::getpid()) + ":%t): " + introduction + "%v";
    return std::make_unique<spdlog::pattern_formatter>(pattern, spdlog::pattern_time_type::local,
                                                       "\r\n");
}

std::string emptyLog(const char* name) {
    const std::string file = outputFile(name);
    std::ofstream(file, std::ios::trunc);
    return file;
}

std::size_t sizeOf(const std::string& file) {
    struct stat found = {};
    return ::stat(file.c_str(), &found) == 0 ? static_cast<std::size_t>(found.st_size) : 0;
}

std::size_t linesOf(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::size_t lines = 0;
    for (std::istreambuf_iterator<char> at(in), end; at != end; ++at)
        lines += *at == '\n';
    return lines;
}

bool waitForSize(const std::string& file, std::size_t size) {
    constexpr std::chrono::seconds kPatience{10};
    const auto giveUp = std::chrono::steady_clock::now() + kPatience;
    while (sizeOf(file) < size) {
        if (std::chrono::steady_clock::now() > giveUp)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return sizeOf(file) == size;
}

} // namespace bench
