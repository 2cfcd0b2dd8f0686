// Container files: the header, the allocation of blocks, the tables.

#include "libn/storage.h"

#include <bit>

#include "fileMapState.h"
#include "libn/FieldText.h"
#include "libn/TraceLine.h"
#include "libn/raiseText.h"

namespace libn::storage {

static_assert(std::endian::native == std::endian::little, "words are copied as they stand");

namespace {

constexpr std::uint64_t kTableMask = kTableWords - 1;
constexpr unsigned kTableBits = 14;
static_assert(kTableWords == std::uint64_t{1} << kTableBits);

[[noreturn]] void raiseForRecord(const char* place, std::uint64_t recNo) {
    FieldText text;
    text << place << ':' << "recNo<" << recNo << '>';
    raiseText(text);
}

std::uint64_t viewWord(const char* mapped) {
    return reinterpret_cast<const ViewWord*>(mapped)->value;
}

// As file.readWord, without a call for pages of late; a record takes some of them.
[[gnu::always_inline]] inline std::uint64_t wordAt(NewFileMap& file, std::uint64_t index) {
    return viewWord(stateOf(file).getPtr(kWordSize * index, kWordSize).pointer);
}

std::uint64_t nextFree(FileMap& file) {
    const std::uint64_t word = aux::withinReach("nextFree", aux::readWord(file, kNextFreeWord));
    return std::max(word, kHeaderWords);
}

std::uint64_t takeFree(FileMap& file, std::uint64_t words) {
    const std::uint64_t block = nextFree(file);
    aux::writeWord(file, kNextFreeWord, block + words);
    return block;
}

// Arenas end at multiples of the table's size, and a new one does not begin in the last three
// quarters of such a stretch.
std::uint64_t takeFromArena(FileMap& file, std::uint64_t arenaWord, std::uint64_t words) {
    constexpr std::uint64_t kLatestStart = 4096;
    const std::uint64_t next = aux::readWord(file, arenaWord);
    const std::uint64_t limit = aux::readWord(file, arenaWord + 1);
    if (limit != 0 && aux::withinReach("arena", next) + words <= limit) {
        aux::writeWord(file, arenaWord, next + words);
        return next;
    }
    std::uint64_t block = nextFree(file);
    if ((block & kTableMask) > kLatestStart)
        block = (block + kTableMask) & ~kTableMask;
    const std::uint64_t freshNext = block + words;
    const std::uint64_t freshLimit = (freshNext & ~kTableMask) + kTableWords;
    aux::writeWord(file, kNextFreeWord, freshLimit);
    aux::writeWord(file, arenaWord, freshNext);
    aux::writeWord(file, arenaWord + 1, freshLimit);
    return block;
}

// Deliberate: also for a reader.  A writer finds the tables that a look-up made and goes on with
// them.
[[gnu::noinline]] std::uint64_t makeTable(NewFileMap& file, std::uint64_t index) {
    const std::uint64_t table = aux::allocate(file, 0, kTableWords, true);
    aux::writeWord(file, index, table);
    return table;
}

// The table that the word at `index` names, made where there is none.
[[gnu::always_inline]] inline std::uint64_t tableAt(NewFileMap& file, std::uint64_t index,
                                                    const char* name) {
    const std::uint64_t table = aux::withinReach(name, wordAt(file, index));
    return table != 0 ? table : makeTable(file, index);
}

} // namespace

namespace aux {

void raiseBeyondReach(const char* name, std::uint64_t word) {
    FieldText text;
    text << "libn::storage word beyond reach" << ':' << name << '<' << word << '>';
    raiseText(text);
}

void initFile(FileMap& file, std::int32_t m0, std::int32_t m1, bool isNew, bool force) {
    std::int64_t m[2];
    file.read(0, kWordSize, 0, 2, m);
    const bool match = m[0] == m0 && m[1] == m1;
    if (!force && match)
        return;
    if (!isNew && !match)
        TraceLine("storage::aux::initFile wrongMagic", 0)
            << "m[0]<" << m[0] << '>' << "m[1]<" << m[1] << '>';
    // Deliberate: a foreign file is emptied and starts over.  Servers leave a file of another
    // version in place and expect it to be laid out by whoever opens it.
    file.clear();
    file.fill(0, kWordSize, 0, kHeaderWords, 0);
    const std::int64_t magic[2] = {m0, m1};
    file.write(0, kWordSize, 0, 2, magic);
}

std::uint64_t allocate(FileMap& file, std::uint64_t arenaWord, std::uint32_t words, bool zero) {
    const std::uint64_t block =
        arenaWord == 0 ? takeFree(file, words) : takeFromArena(file, arenaWord, words);
    if (words != 0 && zero)
        file.fill(0, kWordSize, block, words, 0);
    return block;
}

} // namespace aux

std::uint64_t RecNo::getPos(std::uint64_t recNo) {
    if (root == -1)
        root = static_cast<std::int64_t>(tableAt(*file, rootWord, "root"));
    const std::uint64_t high = recNo >> kTableBits;
    // Deliberate: the first-level table is made before this is looked at, so that a file holds one
    // after any look-up.
    if (high >= kTableWords)
        raiseForRecord("libn::storage::RecNo index overflow", recNo);
    return tableAt(*file, static_cast<std::uint64_t>(root) + high, "table") + (recNo & kTableMask);
}

std::uint64_t Array::getPos(std::uint64_t recNo) {
    const std::uint64_t head = wordAt(*records.file, records.getPos(recNo));
    if (head == 0)
        raiseForRecord("libn::storage::Array::getPos", recNo);
    return aux::withinReach("head", head);
}

RecordFile::RecordFile(const std::filesystem::path& path, std::int32_t magic,
                       std::uint64_t maxMemUsage)
    : records{{this, kRootWord}} {
    const bool isNew = open(path, maxMemUsage);
    aux::initFile(*this, magic, magic, isNew, false);
    count = readWord(kCountWord);
}

std::uint64_t RecordFile::findBody(std::uint64_t recNo, std::uint32_t& headField) {
    constexpr std::uint64_t kHeadSize = 3 * kWordSize;
    const std::uint64_t head = records.getPos(recNo);
    const std::uint64_t pos = kWordSize * head;
    std::uint64_t body = 0;
    if (pos % kPageUnit <= kPageUnit - kHeadSize) {
        const char* words = stateOf(*this).getPtr(pos, kHeadSize).pointer;
        headField = static_cast<std::uint32_t>(viewWord(words + 2 * kWordSize));
        body = viewWord(words);
    } else {
        headField = static_cast<std::uint32_t>(wordAt(*this, head + 2));
        body = wordAt(*this, head);
    }
    return aux::withinReach("body", body);
}

} // namespace libn::storage
