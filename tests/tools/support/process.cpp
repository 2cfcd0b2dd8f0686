// The child inherits standard output and standard error as they stand: both are turned to files,
// or to the wanted kind of trouble, around its start, and turned back behind it.

#include "support/process.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>

#include "support/tempFolder.h"

#include <fcntl.h>

#ifdef _WIN32
#  include <io.h>
#  include <process.h>
#else
#  include <spawn.h>
#  include <sys/wait.h>
#  include <unistd.h>
extern char** environ;
#endif

namespace toolTest {

namespace {

#ifdef _WIN32
constexpr int kBinary = _O_BINARY;

int makePipe(int (&ends)[2]) {
    return _pipe(ends, 4096, _O_BINARY | _O_NOINHERIT);
}

// The run-time joins the arguments with blanks and quotes nothing.
std::string quoted(const std::string& argument) {
    std::string text = "\"";
    std::size_t slashes = 0;
    for (const char letter : argument) {
        slashes = letter == '\\' ? slashes + 1 : 0;
        if (letter == '"')
            text += '\\';
        text += letter;
    }
    return text.append(slashes, '\\') + '"';
}

int start(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<std::string> texts{quoted(program)};
    for (const std::string& argument : arguments)
        texts.push_back(quoted(argument));
    std::vector<const char*> list;
    for (const std::string& text : texts)
        list.push_back(text.c_str());
    list.push_back(nullptr);
    return static_cast<int>(_spawnv(_P_WAIT, program.c_str(), list.data()));
}
#else
constexpr int kBinary = 0;

int makePipe(int (&ends)[2]) {
    return pipe(ends);
}

int start(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<char*> list{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        list.push_back(const_cast<char*>(argument.c_str()));
    list.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawn(&child, program.c_str(), nullptr, nullptr, list.data(), environ) != 0)
        return -1;
    int status = 0;
    if (waitpid(child, &status, 0) != child)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}
#endif

// Turns one of the process's numbers to another file until the object goes.
class Redirected {
  public:
    Redirected(int number, int file) : m_number(number), m_former(dup(number)) {
        dup2(file, number);
        close(file);
    }
    ~Redirected() {
        dup2(m_former, m_number);
        close(m_former);
    }

  private:
    int m_number;
    int m_former;
};

int openForWriting(const std::string& path) {
    return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | kBinary, 0600);
}

int openOutput(StandardOutput output, const std::string& path) {
    if (output == StandardOutput::FullDevice)
        return open("/dev/full", O_WRONLY);
    if (output == StandardOutput::Captured)
        return openForWriting(path);
    int ends[2];
    if (makePipe(ends) != 0)
        return -1;
    close(ends[0]);
    return ends[1];
}

} // namespace

RunResult run(const std::string& program, const std::vector<std::string>& arguments,
              StandardOutput output) {
    const TempFolder folder;
    const std::string out = folder.file("out");
    const std::string err = folder.file("err");
    RunResult result;
    std::fflush(nullptr);
    {
        const int outFile = openOutput(output, out);
        const int errFile = openForWriting(err);
        if (outFile < 0 || errFile < 0)
            throw std::runtime_error("no file for the output of " + program);
        const Redirected redirectedOut(1, outFile);
        const Redirected redirectedErr(2, errFile);
        result.code = start(program, arguments);
    }
    if (result.code == -1)
        throw std::runtime_error("cannot start " + program);
    if (output == StandardOutput::Captured)
        result.out = readFile(out);
    result.err = readFile(err);
    return result;
}

} // namespace toolTest
