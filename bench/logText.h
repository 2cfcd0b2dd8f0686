// The lines of the log benchmarks, written by everybody alike: the header of the library, a message
// with two numbers and two texts, carriage return and line feed.

#pragma once

#include <spdlog/pattern_formatter.h>
#include <cstddef>
#include <memory>
#include <string>

namespace bench {

// The numbers of messages start here and have as many digits up to a million.
inline constexpr int kFirstNumber = 100'000;

// The same message in two languages, and its arguments for a number.
#define BENCH_PRINTF_MESSAGE "Request %d of client %s: %d lots of %s queued"
#define BENCH_SPDLOG_MESSAGE "Request {} of client {}: {} lots of {} queued"
#define BENCH_ARGUMENTS(number) (number), "Q24531", (number) % 7, "GAZP"

// What stands between header and message of an error: "Running PROGRAM: Error: ".
std::string errorIntroduction();

// The least that a line takes: the date's text is made once a second, the ids are known, and one
// snprintf makes the rest.  For one thread.
class PlainLine {
  public:
    PlainLine(char letter, std::string introduction);

    // Formats the line of a number and gives its length; it stands in text().
    std::size_t make(int number);
    const char* text() const { return m_text; }

  private:
    char m_letter;
    std::string m_introduction;
    int m_process;
    unsigned long m_thread;
    long m_second = -1;
    char m_date[64] = {};
    char m_text[2000];
};

// The same header for spdlog.
std::unique_ptr<spdlog::formatter> spdlogFormatter(char letter, const std::string& introduction);

// Where a log goes: a file of this name beside the data, made empty.
std::string emptyLog(const char* name);

// Its bytes, and the lines that stand in it.
std::size_t sizeOf(const std::string& file);
std::size_t linesOf(const std::string& file);

// Waits until the file has `size` bytes; false after some seconds.
bool waitForSize(const std::string& file, std::size_t size);

} // namespace bench
