// Cores as debuggers read them: heads, notes, memory; Linux alone.

#ifndef _WIN32

#  include <elf.h>
#  include <link.h>
#  include <pthread.h>
#  include <signal.h>
#  include <sys/mman.h>
#  include <sys/procfs.h>
#  include <sys/stat.h>
#  include <sys/wait.h>
#  include <unistd.h>
#  include <algorithm>
#  include <atomic>
#  include <cerrno>
#  include <cstring>
#  include <filesystem>
#  include <fstream>
#  include <map>
#  include <string>
#  include <thread>
#  include <vector>

#  include <gtest/gtest.h>

#  include "../platform/posix/coreWork.h"
#  include "platform/dumpWriter.h"
#  include "platform/library.h"
#  include "platform/thread.h"
#  include "support/processUse.h"
#  include "support/tempFolder.h"

namespace {

struct Note {
    std::uint32_t type;
    std::string content;
};

// A core, taken apart.
struct Core {
    explicit Core(std::string all) : bytes(std::move(all)) {
        std::memcpy(&head, bytes.data(), sizeof head);
        for (int i = 0; i < head.e_phnum; ++i) {
            Elf64_Phdr part = {};
            std::memcpy(&part, bytes.data() + head.e_phoff + sizeof part * i, sizeof part);
            if (part.p_type == PT_NOTE)
                readNotes(part);
            else
                loads.push_back(part);
        }
    }

    void readNotes(const Elf64_Phdr& part) {
        for (std::uint64_t at = part.p_offset; at < part.p_offset + part.p_filesz;) {
            Elf64_Nhdr note = {};
            std::memcpy(&note, bytes.data() + at, sizeof note);
            EXPECT_STREQ(bytes.data() + at + sizeof note, "CORE");
            at += sizeof note + 8;
            notes.push_back({note.n_type, bytes.substr(at, note.n_descsz)});
            at += (note.n_descsz + 3) / 4 * 4;
        }
    }

    std::vector<elf_prstatus> threads() const {
        std::vector<elf_prstatus> found;
        for (const Note& note : notes)
            if (note.type == NT_PRSTATUS) {
                found.emplace_back();
                EXPECT_EQ(note.content.size(), sizeof(elf_prstatus));
                std::memcpy(&found.back(), note.content.data(), sizeof(elf_prstatus));
            }
        return found;
    }
    const Note* note(std::uint32_t type) const {
        for (const Note& note : notes)
            if (note.type == type)
                return &note;
        return nullptr;
    }
    // The bytes that were at an address, empty if the core does not have them.
    std::string memory(const void* address, std::size_t size) const {
        const auto begin = reinterpret_cast<std::uint64_t>(address);
        for (const Elf64_Phdr& load : loads)
            if (begin >= load.p_vaddr && begin + size <= load.p_vaddr + load.p_filesz)
                return bytes.substr(load.p_offset + begin - load.p_vaddr, size);
        return {};
    }

    std::string bytes;
    Elf64_Ehdr head = {};
    std::vector<Elf64_Phdr> loads;
    std::vector<Note> notes;
};

// Parameter: by the tracer, or by signals.
class CoreWriter : public testing::TestWithParam<bool> {
  protected:
    CoreWriter() {
        platform::core::mayTrace = GetParam();
        record.code = 0xC0000005;
        record.parameterCount = 2;
        record.parameters[1] = 0x1234;
        ::getcontext(&context);
        pointers = {&record, &context};
        exception = {platform::threadId(), &pointers, 1};
    }
    ~CoreWriter() { platform::core::mayTrace = true; }

    // Writes a dump on a thread of its own, as all are.
    std::int32_t write(std::uint32_t kind, const platform::DumpException* shown) {
        m_kind = kind;
        m_shown = shown;
        m_result = -1;
        m_waiting = platform::threadId();
        EXPECT_TRUE(platform::dumpCalls.runOnThread(
            [](void* self) { static_cast<CoreWriter*>(self)->writeHere(); }, this));
        return m_result;
    }
    void writeHere() {
        // The thread sanitizer puts off a signal that comes before the other thread waits.
        while (!isWaiting(m_waiting))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const auto writer = reinterpret_cast<platform::DumpWriter>(platform::libraryCalls.symbol(
            platform::libraryCalls.load("DBGHELP.DLL"), "MiniDumpWriteDump"));
        const std::string path = m_folder.name("x.dmp");
        const platform::SystemName name = platform::dumpCalls.systemName(path.c_str());
        const platform::DumpFile file = platform::dumpCalls.createFile(name);
        m_writerThread = platform::threadId();
        m_result = writer(platform::dumpCalls.currentProcess(), platform::processId(), file, m_kind,
                          m_shown, nullptr, nullptr);
        platform::dumpCalls.closeFile(file);
        platform::dumpCalls.freeSystemName(name);
    }
    Core core(std::uint32_t kind = 0) {
        EXPECT_EQ(write(kind, &exception), 1);
        return Core(m_folder.read("x.dmp"));
    }

    sExceptionRecord record = {};
    ucontext_t context = {};
    sExceptionPointers pointers = {};
    platform::DumpException exception = {};
    TempFolder m_folder;
    std::uint32_t m_writerThread = 0;

  private:
    std::uint32_t m_waiting = 0; // for the thread that writes
    std::uint32_t m_kind = 0;
    const platform::DumpException* m_shown = nullptr;
    std::int32_t m_result = 0;
};

// Threads in a wait, in a loop, and behind blocked signals.
class Others {
  public:
    Others() {
        std::size_t place = 0;
        for (void (*work)(Others&) : {waits, loops, blocks})
            m_threads.emplace_back([this, work, &id = ids[place++]] {
                id = platform::threadId();
                ++ready;
                work(*this);
            });
        while (ready != 3)
            std::this_thread::yield();
        // The last one waits in the kernel by then.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ~Others() {
        m_end = true;
        m_end.notify_all();
        for (std::thread& thread : m_threads)
            thread.join();
    }

    std::atomic<std::uint32_t> ids[3] = {};
    std::atomic<int> ready{0};
    std::atomic<long> rounds{0};

  private:
    static void waits(Others& self) {
        while (!self.m_end)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    static void loops(Others& self) {
        while (!self.m_end)
            ++self.rounds;
    }
    static void blocks(Others& self) {
        sigset_t all = {};
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
        self.m_end.wait(false); // in the kernel, without a break
    }

    std::atomic<bool> m_end{false};
    std::vector<std::thread> m_threads;
};

const char kConstant[] = "a constant of the program";

} // namespace

INSTANTIATE_TEST_SUITE_P(Ways, CoreWriter, testing::Values(true, false),
                         [](const auto& info) { return info.param ? "Tracer" : "Signals"; });

TEST_P(CoreWriter, HeadSaysCoreOfThisProcessor) {
    const Core found = core();
    EXPECT_EQ(found.bytes.substr(0, 4),
              "\x7f"
              "ELF");
    EXPECT_EQ(found.head.e_type, ET_CORE);
    EXPECT_EQ(found.head.e_machine, EM_X86_64);
    for (const Elf64_Phdr& load : found.loads) {
        EXPECT_EQ(load.p_offset % 4096, 0u);
        EXPECT_LE(load.p_offset + load.p_filesz, found.bytes.size());
    }
}

TEST_P(CoreWriter, FailingThreadComesFirstWithTheStateOfTheException) {
    context.uc_mcontext.gregs[REG_RIP] = 0x123456;
    context.uc_mcontext.gregs[REG_R15] = 0x15;
    context.uc_mcontext.gregs[REG_RDI] = 0x77;
    const Core found = core();
    const auto threads = found.threads();
    ASSERT_FALSE(threads.empty());
    user_regs_struct registers = {};
    std::memcpy(&registers, &threads[0].pr_reg, sizeof registers);
    EXPECT_EQ(threads[0].pr_pid, static_cast<pid_t>(platform::threadId()));
    EXPECT_EQ(registers.rip, 0x123456u);
    EXPECT_EQ(registers.r15, 0x15u);
    EXPECT_EQ(registers.rdi, 0x77u);
    EXPECT_EQ(registers.fs_base, reinterpret_cast<std::uint64_t>(__builtin_thread_pointer()));
}

TEST_P(CoreWriter, FailingThreadNeedNotBeTheMainOne) {
    std::uint32_t failing = 0;
    std::thread([this, &failing] {
        failing = exception.threadId = platform::threadId();
        EXPECT_EQ(write(0, &exception), 1);
    }).join();
    const auto threads = Core(m_folder.read("x.dmp")).threads();
    ASSERT_GE(threads.size(), 3u);
    EXPECT_EQ(threads[0].pr_pid, static_cast<pid_t>(failing));
    EXPECT_EQ(std::count_if(threads.begin(), threads.end(),
                            [](const elf_prstatus& one) { return one.pr_pid == ::getpid(); }),
              1);
}

TEST_P(CoreWriter, AllThreadsAreThere) {
    Others others;
    const auto threads = core().threads();
    std::map<pid_t, user_regs_struct> found;
    for (const elf_prstatus& thread : threads)
        std::memcpy(&found[thread.pr_pid], &thread.pr_reg, sizeof(user_regs_struct));
    EXPECT_EQ(found.size(), threads.size()) << "a thread stands there twice";
    for (const auto& id : others.ids) {
        ASSERT_TRUE(found.count(static_cast<pid_t>(id.load())));
        EXPECT_NE(found[static_cast<pid_t>(id.load())].rip, 0u);
        EXPECT_NE(found[static_cast<pid_t>(id.load())].rsp, 0u);
    }
    EXPECT_TRUE(found.count(static_cast<pid_t>(m_writerThread)));
}

TEST_P(CoreWriter, ThreadsGoOn) {
    Others others;
    core();
    const long before = others.rounds;
    while (others.rounds == before)
        std::this_thread::yield();
    core();
    const long again = others.rounds;
    while (others.rounds == again)
        std::this_thread::yield();
    SUCCEED();
}

TEST_P(CoreWriter, SignalIsThatOfTheException) {
    struct Row {
        std::uint32_t code;
        int signal;
    };
    for (const Row& row :
         {Row{0xC0000005, SIGSEGV}, Row{0xC00000FD, SIGSEGV}, Row{0xC0000006, SIGBUS},
          Row{0x80000002, SIGBUS}, Row{0xC0000094, SIGFPE}, Row{0xC000001D, SIGILL},
          Row{0x80000003, SIGTRAP}}) {
        record.code = row.code;
        record.address = &record;
        const Core found = core();
        const Note* note = found.note(NT_SIGINFO);
        ASSERT_NE(note, nullptr);
        siginfo_t info = {};
        ASSERT_EQ(note->content.size(), sizeof info);
        std::memcpy(&info, note->content.data(), sizeof info);
        EXPECT_EQ(info.si_signo, row.signal) << std::hex << row.code;
        const bool aboutMemory = row.signal == SIGSEGV || row.signal == SIGBUS;
        EXPECT_EQ(info.si_addr,
                  aboutMemory ? reinterpret_cast<void*>(0x1234) : static_cast<void*>(&record));
        for (const elf_prstatus& thread : found.threads())
            EXPECT_EQ(thread.pr_cursig, row.signal);
    }
}

TEST_P(CoreWriter, ExceptionWithoutASignalHasNone) {
    record.code = 0xE0000001;
    const Core found = core();
    EXPECT_EQ(found.note(NT_SIGINFO), nullptr);
    EXPECT_EQ(found.threads()[0].pr_cursig, 0);
}

TEST_P(CoreWriter, ListsForTheDebuggerAreThere) {
    const Core found = core();
    const Note* files = found.note(NT_FILE);
    ASSERT_NE(files, nullptr);
    std::uint64_t head[2] = {};
    std::memcpy(head, files->content.data(), sizeof head);
    EXPECT_GT(head[0], 3u);
    EXPECT_EQ(head[1], 4096u);
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    EXPECT_NE(files->content.find(self), std::string::npos);
    ASSERT_NE(found.note(NT_AUXV), nullptr);
    EXPECT_EQ(found.note(NT_AUXV)->content.size() % 16, 0u);
    ASSERT_NE(found.note(NT_PRPSINFO), nullptr);
    elf_prpsinfo process = {};
    std::memcpy(&process, found.note(NT_PRPSINFO)->content.data(), sizeof process);
    EXPECT_EQ(process.pr_pid, ::getpid());
    EXPECT_EQ(std::string(process.pr_fname),
              std::filesystem::path(self).filename().string().substr(0, 15));
}

TEST_P(CoreWriter, MiniDumpHasTheStackAndNoHeap) {
    const std::vector<char> heap(1 << 20, 'x');
    char local[] = "a text on the stack";
    ::getcontext(&context);
    const Core found = core();
#  ifndef VDREADER_SANITIZED // which keeps variables elsewhere
    EXPECT_EQ(found.memory(local, sizeof local), std::string(local, sizeof local));
#  endif
    EXPECT_EQ(found.memory(heap.data() + 500000, 100), "");
    // What leads a debugger to the loaded objects.
    EXPECT_EQ(found.memory(&_r_debug, sizeof _r_debug).size(), sizeof _r_debug);
    for (const link_map* object = _r_debug.r_map; object != nullptr; object = object->l_next) {
        EXPECT_EQ(found.memory(object, sizeof *object).size(), sizeof *object);
        EXPECT_EQ(found.memory(object->l_name, std::strlen(object->l_name) + 1),
                  std::string(object->l_name, std::strlen(object->l_name) + 1));
    }
    EXPECT_LT(found.bytes.size(), 8u << 20);
}

TEST_P(CoreWriter, FullDumpHasAllMemory) {
#  ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "the shadow of a sanitizer makes it terabytes large";
#  endif
    std::vector<char> heap(1 << 20, 'x');
    heap[500000] = 'y';
    const Core found = core(2);
    EXPECT_EQ(found.memory(heap.data() + 499999, 3), "xyx");
    EXPECT_EQ(found.memory(kConstant, sizeof kConstant), std::string(kConstant, sizeof kConstant));
}

TEST_P(CoreWriter, UntouchedPagesAreHoles) {
#  ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "the shadow of a sanitizer makes it terabytes large";
#  endif
    constexpr std::size_t kSize = std::size_t{1} << 30;
    void* block = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(block, MAP_FAILED);
    ASSERT_EQ(write(2, &exception), 1);
    struct stat state = {};
    ASSERT_EQ(::stat(m_folder.name("x.dmp").c_str(), &state), 0);
    EXPECT_GT(static_cast<std::size_t>(state.st_size), kSize);
    EXPECT_LT(static_cast<std::size_t>(state.st_blocks) * 512, kSize / 2);
    ::munmap(block, kSize);
}

TEST_P(CoreWriter, PagesBehindTheEndOfAFileAreSkipped) {
#  ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "the shadow of a sanitizer makes it terabytes large";
#  endif
    m_folder.write("short", std::string(100, 'z'));
    std::FILE* file = std::fopen(m_folder.name("short").c_str(), "rb");
    ASSERT_NE(file, nullptr);
    void* view = ::mmap(nullptr, 64 * 4096, PROT_READ, MAP_SHARED, ::fileno(file), 0);
    std::fclose(file);
    ASSERT_NE(view, MAP_FAILED);
    const Core found = core(2);
    EXPECT_EQ(found.memory(view, 100), std::string(100, 'z'));
    ::munmap(view, 64 * 4096);
}

TEST_P(CoreWriter, ExceptionMayBeMissingOrBad) {
    EXPECT_EQ(write(0, nullptr), 1);
    auto* bad = reinterpret_cast<sExceptionPointers*>(16);
    const platform::DumpException unreadable = {platform::threadId(), bad, 1};
    EXPECT_EQ(write(0, &unreadable), 1);
    sExceptionPointers none = {nullptr, nullptr};
    const platform::DumpException empty = {platform::threadId(), &none, 1};
    EXPECT_EQ(write(0, &empty), 1);
    const auto threads = Core(m_folder.read("x.dmp")).threads();
    EXPECT_EQ(threads[0].pr_pid, static_cast<pid_t>(platform::threadId()));
}

TEST_P(CoreWriter, HundredDumpsLeaveNothingBehind) {
    const auto count = [](const char* folder) {
        return std::distance(std::filesystem::directory_iterator(folder),
                             std::filesystem::directory_iterator());
    };
    const auto pages = [] {
        long size = 0;
        std::ifstream("/proc/self/statm") >> size;
        return size;
    };
    Others others;
    EXPECT_EQ(write(0, &exception), 1); // what the C library keeps comes with the first
    const auto files = count("/proc/self/fd");
    const auto tasks = runningThreads();
    const long before = pages();
    const int dumps = GetParam() ? 100 : 10; // each waits half a second for the blocked thread
    for (int i = 0; i < dumps; ++i)
        ASSERT_EQ(write(0, &exception), 1);
    EXPECT_EQ(count("/proc/self/fd"), files);
    EXPECT_EQ(runningThreads(), tasks);
    EXPECT_LT(pages(), before + 4096) << "16 MiB";
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG | __WALL), -1) << "a tracer is left";
}

TEST_P(CoreWriter, FullDiskIsAFailure) {
    if (!std::filesystem::exists("/dev/full"))
        GTEST_SKIP() << "there is no /dev/full";
    std::FILE* full = std::fopen("/dev/full", "wb");
    ASSERT_NE(full, nullptr);
    const auto writer = reinterpret_cast<platform::DumpWriter>(platform::libraryCalls.symbol(
        platform::libraryCalls.load("DBGHELP.DLL"), "MiniDumpWriteDump"));
    const auto file = reinterpret_cast<platform::DumpFile>(std::intptr_t{::fileno(full)} + 1);
    EXPECT_EQ(writer(nullptr, 0, file, 0, &exception, nullptr, nullptr), 0);
    std::fclose(full);
}

// Signals that reach a thread while it is stopped, or stop it themselves, are delivered when it
// goes on.  Real-time signals are queued, so each counts.
TEST_P(CoreWriter, SignalsAreNotLost) {
#  ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "the checker of threads puts signals off and makes one of several";
#  endif
    static std::atomic<int> taken;
    taken = 0;
    const int signal = SIGRTMIN + 1;
    struct sigaction action = {};
    action.sa_handler = [](int) { ++taken; };
    ::sigaction(signal, &action, nullptr);
    std::atomic<bool> end{false};
    std::thread victim([&end] {
        while (!end)
            std::this_thread::yield();
    });
    std::atomic<int> sent{0};
    std::thread sender([&] {
        for (; sent < 20000; ++sent)
            while (::pthread_kill(victim.native_handle(), signal) != 0)
                std::this_thread::yield(); // the queue is full
    });
    int dumps = 0;
    for (; sent < 20000 || dumps < 20; ++dumps)
        EXPECT_EQ(write(0, &exception), 1);
    sender.join();
    for (int wait = 0; taken < sent && wait < 5000; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(taken, sent);
    end = true;
    victim.join();
}

#endif
