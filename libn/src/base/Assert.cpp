// Reports of failed assertions and of exceptions that nobody expected.

#include "libn/Assert.h"

#include <cstdio>
#include <exception>
#include <string>

#include "vdreader/errors.hpp"
#include "vdreader/log.h"

namespace libn {

namespace {

constexpr char kSource[] = "libn/src/Assert";

void write(const std::string& message) {
    std::fprintf(stderr, "%s\n", message.c_str());
    std::fflush(stderr);
    error("%s", message.c_str());
}

// Written at the end of its scope, with as much as is known then.
class Report {
  public:
    Report(const char* function, const char* file, int line)
        : m_function(function), m_file(file), m_line(line) {}
    ~Report() {
        try {
            write("Unhandled " + type + " exception caught in function " + m_function + ", file " +
                  m_file + ", line " + std::to_string(m_line) + ": \"" + text + "\".");
        } catch (...) {
            assertionFailed("Unhandled exception caught", kSource, 176);
        }
    }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    std::string type = "UNKNOWN";
    std::string text = "Unresolved Exception";

  private:
    const char* m_function;
    const char* m_file;
    int m_line;
};

} // namespace

void assertionFailed(const char* text, const char* file, int line) noexcept {
    write(std::string("Assertion Failed (predefined): \"") + text + "\" in file " + file +
          ", line " + std::to_string(line) + ".");
}

void reportUnhandled(const char* function, const char* file, int line) noexcept {
    try {
        Report report(function, file, line);
        try {
            throw;
        } catch (const sarn::Exception& failure) {
            report.type = "LOCAL";
            report.text = failure.what();
        } catch (const std::exception& failure) {
            // Deliberate: the word ends in T.  Scripts that watch the error log look for it.
            report.type = "STANDART";
            report.text = failure.what();
        } catch (const char* thrown) {
            report.type = "C-STRING";
            report.text = thrown != nullptr ? thrown : "";
        } catch (int code) {
            report.type = "INTEGER";
            report.text = "Code: " + std::to_string(code);
        } catch (...) {
            assertionFailed("Unhandled exception caught", kSource, 173);
        }
    } catch (...) {
        assertionFailed("Unhandled exception caught", kSource, 176);
    }
}

} // namespace libn
