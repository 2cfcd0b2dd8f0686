// Buffered output and the frame around a program's body.

#include "support/program.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

namespace tool {

namespace {

constexpr std::size_t kPieceSize = 64 * 1024;

} // namespace

bool Output::write(std::string_view text) {
    m_pending.append(text);
    if (m_pending.size() >= kPieceSize)
        flush();
    return !m_readerIsGone;
}

void Output::flush() {
    if (!m_readerIsGone) {
        const auto result = m_standard.write(m_pending);
        if (result == StandardOutput::Result::Failed)
            throw Failure(kOutputFailed,
                          std::string("cannot write to standard output: ") + std::strerror(errno));
        m_readerIsGone = result == StandardOutput::Result::NoReader;
    }
    m_pending.clear();
}

void Output::finish() {
    flush();
    if (m_standard.close() == StandardOutput::Result::Failed && !m_readerIsGone)
        throw Failure(kOutputFailed,
                      std::string("cannot write to standard output: ") + std::strerror(errno));
}

int runProgram(const char* name, const std::function<int()>& body) {
    int code = kInternal;
    std::string text;
    try {
        return body();
    } catch (const Failure& failure) {
        code = failure.code;
        text = failure.what();
    } catch (const std::exception& failure) {
        text = failure.what();
    }
    for (char& letter : text)
        if (letter == '\n' || letter == '\r')
            letter = ' ';
    std::fprintf(stderr, "%s: %s\n", name, text.c_str());
    return code;
}

} // namespace tool
