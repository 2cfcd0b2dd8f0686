// A lock that is had by opening a file for reading, and that waits until this succeeds.
//
// The file is opened with a sharing that keeps nobody out: what makes a caller wait is another
// process that lets no reader in while it writes (on Windows; Linux knows no such sharing), or a
// file that is not there yet.  One thread at a time.

#pragma once

#include <cstdint>
#include <memory>

#include "libn/Exclusive.h"
#include "libn/Noncopyable.h"

namespace libn {

struct ReadRecord;

class FReadLock : public Exclusive, public Noncopyable {
  public:
    // Keeps the name and opens nothing.  A null name counts as an empty one.
    explicit FReadLock(const char* fileName);
    // Closes the file.
    ~FReadLock() override;

    // Opens the file in at most `attempts` attempts, readWithAttempts in CommonRoutines.h.  Nothing
    // is raised about a file that stays closed: isLocked tells.  A lock that is held is not taken
    // again: each attempt fails, and the file stays open.
    void lock() override;
    // Closes the file.
    void unlock() override;
    virtual bool isLocked() const;

  private:
    std::unique_ptr<ReadRecord> m_record;

  public:
    std::int32_t attempts = 10;
    std::int32_t waitMs = 1000;
};

} // namespace libn
