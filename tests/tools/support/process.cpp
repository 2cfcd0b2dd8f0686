// The child inherits standard output and standard error as they stand: both are turned to files,
// or to the wanted kind of trouble, around its start, and turned back behind it.

#include "support/process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <fcntl.h>

#ifdef _WIN32
#  include <io.h>
#  include <process.h>
#  include <windows.h>
#else
#  include <spawn.h>
#  include <sys/wait.h>
#  include <unistd.h>
#  include <csignal>
extern char** environ;
#endif

namespace toolTest {

namespace {

std::runtime_error cannotStart(const std::string& program, int error) {
    return std::runtime_error("cannot start " + program + ": error " + std::to_string(error));
}

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

std::intptr_t start(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<std::string> texts{quoted(program)};
    for (const std::string& argument : arguments)
        texts.push_back(quoted(argument));
    std::vector<const char*> list;
    for (const std::string& text : texts)
        list.push_back(text.c_str());
    list.push_back(nullptr);
    const std::intptr_t process = _spawnv(_P_NOWAIT, program.c_str(), list.data());
    if (process == -1)
        throw cannotStart(program, static_cast<int>(GetLastError()));
    return process;
}

bool hasEnded(std::intptr_t process, int& code, bool wait) {
    const HANDLE handle = reinterpret_cast<HANDLE>(process);
    DWORD result = 0;
    if (WaitForSingleObject(handle, wait ? INFINITE : 0) != WAIT_OBJECT_0)
        return false;
    GetExitCodeProcess(handle, &result);
    CloseHandle(handle);
    code = static_cast<int>(result);
    return true;
}

void endByForce(std::intptr_t process) {
    TerminateProcess(reinterpret_cast<HANDLE>(process), 99);
}

void sendSignal(std::intptr_t, int) {
    throw std::runtime_error("no signals here");
}
#else
constexpr int kBinary = 0;

int makePipe(int (&ends)[2]) {
    return pipe(ends);
}

std::intptr_t start(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<char*> list{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        list.push_back(const_cast<char*>(argument.c_str()));
    list.push_back(nullptr);
    pid_t child = 0;
    const int error = posix_spawn(&child, program.c_str(), nullptr, nullptr, list.data(), environ);
    if (error != 0)
        throw cannotStart(program, error);
    return child;
}

bool hasEnded(std::intptr_t process, int& code, bool wait) {
    int status = 0;
    if (waitpid(static_cast<pid_t>(process), &status, wait ? 0 : WNOHANG) <= 0)
        return false;
    code = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    return true;
}

void endByForce(std::intptr_t process) {
    kill(static_cast<pid_t>(process), SIGKILL);
}

void sendSignal(std::intptr_t process, int number) {
    kill(static_cast<pid_t>(process), number);
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

// `idle` gets the reading end that stays open.
int openOutput(StandardOutput output, const std::string& path, int& idle) {
    if (output == StandardOutput::FullDevice)
        return open("/dev/full", O_WRONLY);
    if (output == StandardOutput::Captured)
        return openForWriting(path);
    int ends[2];
    if (makePipe(ends) != 0)
        return -1;
    if (output == StandardOutput::IdleReader)
        idle = ends[0];
    else
        close(ends[0]);
    return ends[1];
}

std::intptr_t startRedirected(const std::string& program, const std::vector<std::string>& arguments,
                              StandardOutput output, const TempFolder& folder, int& idle) {
    std::fflush(nullptr);
    // The two numbers are the process's: one thread at a time turns them.
    static std::mutex turning;
    const std::lock_guard guard(turning);
    const int outFile = openOutput(output, folder.file("out"), idle);
    const int errFile = openForWriting(folder.file("err"));
    if (outFile < 0 || errFile < 0)
        throw std::runtime_error("no file for the output of " + program);
    const Redirected redirectedOut(1, outFile);
    const Redirected redirectedErr(2, errFile);
    return start(program, arguments);
}

} // namespace

RunResult run(const std::string& program, const std::vector<std::string>& arguments,
              StandardOutput output) {
    const TempFolder folder;
    RunResult result;
    int idle = -1;
    const std::intptr_t process = startRedirected(program, arguments, output, folder, idle);
    if (!hasEnded(process, result.code, true))
        throw std::runtime_error("cannot wait for " + program);
    if (output == StandardOutput::Captured)
        result.out = readFile(folder.path() / "out");
    result.err = readFile(folder.path() / "err");
    return result;
}

Child::Child(const std::string& program, const std::vector<std::string>& arguments,
             StandardOutput output)
    : m_process(startRedirected(program, arguments, output, m_folder, m_pipe)) {}

Child::~Child() {
    if (m_process != -1) {
        endByForce(m_process);
        hasEnded(m_process, m_code, true);
    }
    if (m_pipe != -1)
        close(m_pipe);
}

bool Child::waitUntil(const std::function<bool()>& holds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

void Child::signal(int number) {
    sendSignal(m_process, number);
}

int Child::endBy(int number) {
    waitUntil([this, number] {
        if (poll())
            return true;
        sendSignal(m_process, number);
        return false;
    });
    return wait();
}

bool Child::poll() {
    if (m_process != -1 && hasEnded(m_process, m_code, false))
        m_process = -1;
    return m_process == -1;
}

int Child::wait() {
    if (!waitUntil([this] { return poll(); }))
        throw std::runtime_error("the program does not end");
    return m_code;
}

} // namespace toolTest
