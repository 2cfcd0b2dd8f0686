// How the logger starts its worker.

#include <gtest/gtest.h>

#ifndef _WIN32
#  include <signal.h>
#  include <unistd.h>
#endif

#include <chrono>
#include <string>
#include <thread>

#include "logs/SysLogger.h"
#include "platform/thread.h"
#include "support/tempFolder.h"
#include "support/testLogger.h"

namespace {

class SysLoggerStart : public testing::Test {
  protected:
    std::string path() const { return m_folder.name("x.log"); }
    std::string file() const { return m_folder.read("x.log"); }

    TempFolder m_folder;
};

} // namespace

TEST_F(SysLoggerStart, OwnStartOfTheWorkerWorksToo) {
    SysLogger logger(path(), 1);
    logger.post(infoRecord("one\n"));
    while (file() != "one\r\n")
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

#ifndef _WIN32
// A host that waits for its signals must be the one that gets them.
TEST_F(SysLoggerStart, WorkerTakesNoSignalsButThoseOfFaults) {
    static sigset_t worker;
    SysLogger(path(), 1, [](SysLogger&) {
        const platform::SignalsKeptOff keptOff;
        return std::thread([] { pthread_sigmask(SIG_SETMASK, nullptr, &worker); });
    });
    for (const int kept : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGUSR1})
        EXPECT_EQ(sigismember(&worker, kept), 1) << kept;
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP})
        EXPECT_EQ(sigismember(&worker, fault), 0) << fault;
    sigset_t mine;
    pthread_sigmask(SIG_SETMASK, nullptr, &mine);
    EXPECT_EQ(sigismember(&mine, SIGTERM), 0) << "the host's own thread is as it was";

    // The logger's own start does so too.
    SysLogger logger(path(), 1);
    sigset_t wanted;
    sigemptyset(&wanted);
    sigaddset(&wanted, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &wanted, nullptr);
    kill(getpid(), SIGUSR2);
    int got = 0;
    EXPECT_EQ(sigwait(&wanted, &got), 0);
    EXPECT_EQ(got, SIGUSR2);
}
#endif
