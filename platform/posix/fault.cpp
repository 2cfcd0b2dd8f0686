// Translators and guarded blocks on Linux.
//
// Whichever was set last is asked first: a guarded block hides the translator that was there when
// it began, and a translator that is set inside it hides the block.

#include "faultState.h"

#include <unistd.h>

namespace platform {

constinit thread_local ThreadFaults threadFaults = {};

namespace {

// Of faults inside translators and filters so many are shown, then the thread is given up.
constexpr int kMostNested = 8;

// A block whose filter keeps faulting is left at the third fault.
constexpr int kMostFilterFaults = 2;

[[noreturn]] void leave(FaultGuard& guard) {
    threadFaults.depth = guard.outerDepth;
    siglongjmp(guard.leaving, 1);
}

void askFilter(FaultGuard& guard, sExceptionPointers& pointers) {
    if (guard.faults >= kMostFilterFaults)
        leave(guard);
    ++guard.faults;
    if (guard.filter(&pointers, guard.argument) == FilterAnswer::executeHandler)
        leave(guard);
    --guard.faults;
}

// Translators allocate, and would wait for their own thread's lock.
void sayThatTheHeapIsLocked() {
    constexpr char kText[] =
        "A fault inside the heap's functions: no report can be made, the process takes its end.\n";
    if (::write(STDERR_FILENO, kText, sizeof kText - 1) < 0)
        return; // there is nobody else to tell
}

// A fault that is being shown; an exception of the translator ends it.
struct Shown {
    Shown() { ++threadFaults.depth; }
    ~Shown() { --threadFaults.depth; }
    Shown(const Shown&) = delete;
    Shown& operator=(const Shown&) = delete;
};

} // namespace

void showFault(FaultFrame& frame) {
    const Shown shown;
    ThreadFaults& mine = threadFaults;
    if (mine.depth > kMostNested)
        return;
    sExceptionPointers pointers = {&frame.record, &frame.context};
    if (mine.translator != nullptr && mine.translatorGuard == mine.guard) {
        if (frame.insideHeap)
            sayThatTheHeapIsLocked();
        else
            mine.translator(frame.record.code, &pointers);
    }
    // An exception cannot leave a guarded block, so translators outside it are not asked.
    for (FaultGuard* guard = mine.guard; guard != nullptr; guard = guard->outer)
        askFilter(*guard, pointers);
}

sExceptionTranslator setTranslator(sExceptionTranslator translator) noexcept {
    ThreadFaults& mine = threadFaults;
    if (translator != nullptr) {
        prepareThread();
        installHandlers();
    }
    const sExceptionTranslator former = mine.translator;
    mine.translator = translator;
    mine.translatorGuard = mine.guard;
    return former;
}

bool runGuarded(void (*body)(void* argument), FaultFilter filter, void* argument) noexcept {
    prepareThread();
    installHandlers();
    ThreadFaults& mine = threadFaults;
    FaultGuard guard = {filter, argument, mine.guard, 0, mine.depth, {}};
    const sExceptionTranslator translator = mine.translator;
    FaultGuard* const translatorGuard = mine.translatorGuard;
    const bool ends = sigsetjmp(guard.leaving, 0) == 0;
    if (ends) {
        mine.guard = &guard;
        body(argument);
    }
    mine.guard = guard.outer;
    if (!ends) // whoever set a translator inside had no chance to take it back
        mine.translator = translator;
    if (!ends || mine.translatorGuard == &guard)
        mine.translatorGuard = ends ? guard.outer : translatorGuard;
    return ends;
}

} // namespace platform
