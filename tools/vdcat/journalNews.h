// What is new in the journal of data.vd from one walk to the next.

#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace vdcat {

// Follows a journal whose numbers ascend.  Every walk begins at the first record and reads a page
// as a copy; what the server puts behind that copy before it opens the next page is left out by
// this walk and comes with the next one.  So behind a jump of the numbers that the walk before did
// not meet, records are held back: the next walk fills the jump or meets it again.
class JournalNews {
  public:
    void beginWalk();

    // Takes the walk's next record; whether to show it now.
    bool take(std::int32_t number);

    // Makes everything that the walk met known, what it held back and left out included.
    void skipWalk();

    // Whether the walk met records that wait for the next one.
    bool heldBack() const { return m_held; }

  private:
    using Jump = std::pair<std::int32_t, std::int32_t>;

    std::optional<std::int32_t> m_known;   // highest number that earlier walks gave out
    std::optional<std::int32_t> m_given;   // the same with this walk
    std::optional<std::int32_t> m_highest; // of this walk
    std::optional<std::int32_t> m_before;  // the record before
    std::vector<Jump> m_jumps;
    std::vector<Jump> m_formerJumps; // sorted
    bool m_held = false;
};

} // namespace vdcat
