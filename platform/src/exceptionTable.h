// The table (LSDA) that g++ leaves beside a function with cleanups or handlers: from which of its
// instructions an exception may come.
//
// Faults come from instructions that the compiler took for harmless.  Where the table is silent of
// one, the C++ run-time ends the process, so an exception has to start further out.

#pragma once

#include <cstdint>

namespace platform {

enum class TableAnswer {
    silent,  // an exception from here ends in std::terminate
    passes,  // it goes on to the caller, behind cleanups at most
    catches, // a handler stands around the instruction, or the function lets nothing out on purpose
};

// What `table` says of the instruction `offset` bytes behind the start of its function.  Null, a
// function without a table, passes.
TableAnswer exceptionTableAnswer(const void* table, std::uint64_t offset) noexcept;

} // namespace platform
