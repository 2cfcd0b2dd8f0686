// The writing side of alert.vd: appends records while readers in other processes have the file
// mapped.
//
// Order that readers rely on, and that this writer keeps: a record's body, then its head, then the
// slot in the table, then the record count of the header, word 4.  What that count covers is whole.
//
// Readers write into the file as well: one that looks for a record whose table is absent makes the
// table, and one that reads close to the end makes the file grow.  So this writer remembers no word
// between two calls, takes new blocks by an atomic exchange of the next-free word, and goes on with
// the table of another where one has appeared meanwhile.  It cannot guard against a reader that
// takes a block at the same moment: a reader's own taking is not atomic.  Readers that stay below
// the record count take none.

#pragma once

#include <cstdint>
#include <string>

#include "live/sharedFile.h"
#include "sample/alertFile.h"

namespace live {

// One object belongs to one thread.  A file has one appending writer at a time.
class AlertWriter {
  public:
    // Opens a file that has been laid out.  Raises Error.
    explicit AlertWriter(const std::string& path);

    // The record count of the header, which is the number that the next record gets.
    std::uint64_t count();

    // Appends the record and gives its number.  Raises Error: CannotGrow, CannotOpen where the
    // system has no view for the larger file, Malformed where a word leads outside the file or no
    // table reaches the number.  The count is then as before.
    std::uint64_t append(const sample::Alert& alert);

  private:
    unsigned char* word(std::uint64_t index);
    void reach(std::uint64_t words);
    std::uint64_t takeBlock(std::uint64_t words);
    std::uint64_t tableAt(std::uint64_t linkWord);

    SharedFile m_file;
    View m_view; // the whole file, as large as it was when it was mapped
    std::uint64_t m_size = 0;
};

} // namespace live
