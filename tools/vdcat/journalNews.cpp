// A walk's jumps are compared with those of the walk before.

#include "vdcat/journalNews.h"

#include <algorithm>

namespace vdcat {

void JournalNews::beginWalk() {
    m_known = m_given;
    m_highest.reset();
    m_before.reset();
    m_formerJumps.swap(m_jumps);
    std::sort(m_formerJumps.begin(), m_formerJumps.end());
    m_jumps.clear();
    m_held = false;
}

bool JournalNews::take(std::int32_t number) {
    if (m_before && std::int64_t{*m_before} + 1 < number) {
        m_jumps.emplace_back(*m_before, number);
        if (!std::binary_search(m_formerJumps.begin(), m_formerJumps.end(), m_jumps.back()))
            m_held = true;
    }
    m_before = number;
    m_highest = std::max(m_highest.value_or(number), number);
    if (m_held || (m_known && number <= *m_known))
        return false;
    m_given = std::max(m_given.value_or(number), number);
    return true;
}

void JournalNews::skipWalk() {
    if (m_highest)
        m_given = std::max(m_given.value_or(*m_highest), *m_highest);
    m_held = false;
}

} // namespace vdcat
