// What the library logs while a scope lasts, instead of what the sinks did before.
//
// One object at a time.  Any thread may log meanwhile.

#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "dw_util/logSinks.h"

class CapturedLog {
  public:
    // Named as in LogSinks.
    enum Family { errors, events, exceptions, netEvents };

    CapturedLog() : m_saved(logSinks) {
        clear();
        logSinks = {keep<errors>, keep<events>, keep<exceptions>, keep<netEvents>};
    }
    ~CapturedLog() { logSinks = m_saved; }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    // The lines of one family as its sink got them, in order.
    std::vector<std::string> lines(Family family) const {
        const std::lock_guard guard(s_lock);
        std::vector<std::string> found;
        for (const auto& [of, line] : s_lines)
            if (of == family)
                found.push_back(line);
        return found;
    }

    // The same without header and line feed; for threads without a banner, this is the message.
    std::vector<std::string> messages(Family family) const {
        std::vector<std::string> found = lines(family);
        for (std::string& line : found)
            line = message(line);
        return found;
    }

    // Number of lines of all families.
    std::size_t size() const {
        const std::lock_guard guard(s_lock);
        return s_lines.size();
    }

    void clear() {
        const std::lock_guard guard(s_lock);
        s_lines.clear();
    }

    static std::string message(const std::string& line) {
        // "V: 21 Nov 26 (Sat) 10:40:30.123 (1234:5678): "
        const std::size_t header = line.find("): ");
        std::string text = header == std::string::npos ? line : line.substr(header + 3);
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        return text;
    }

  private:
    template <Family family>
    static void keep(const char* line) {
        const std::lock_guard guard(s_lock);
        s_lines.emplace_back(family, line);
    }

    static inline std::mutex s_lock;
    static inline std::vector<std::pair<Family, std::string>> s_lines;

    LogSinks m_saved;
};
