// Container files of numbered records: an array of little-endian 64-bit words over a FileMap.
//
// docs/formats/alert.md tells the layout.  All positions are word indexes.  Records are found
// through two tables; a table that a look-up misses is made by the look-up, and reading near the
// end makes the file grow, so that also readers write.  Nothing here locks: a writer completes a
// record before it raises the count in the header.
//
// A word that leads beyond 2^40 words raises "libn::storage word beyond reach:NAME<%d>" with NAME
// root, table, head, body, nextFree or arena, before anything was written.  Failures of the FileMap
// pass.

#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "libn/Noncopyable.h"
#include "libn/fileMap.h"
#include "libn/viewCopy.h"

namespace libn::storage {

inline constexpr std::uint64_t kWordSize = 8;
inline constexpr std::uint64_t kHeaderWords = 100;
inline constexpr std::uint64_t kTableWords = 16384;
// Words of the header behind the two magic numbers.
inline constexpr std::uint64_t kNextFreeWord = 2;
inline constexpr std::uint64_t kRootWord = 3;
inline constexpr std::uint64_t kCountWord = 4;
// The farthest word that a stored index may name.
inline constexpr std::uint64_t kFarthestWord = std::uint64_t{1} << 40;

namespace aux {

// Checks the magic numbers, and lays the file out anew where they differ or `force` is set: nothing
// but a header remains.  `isNew` says that the file was just made; else a wrong number is noted in
// the event log, "storage::aux::initFile wrongMagic:m[0]<%d>m[1]<%d>".
void initFile(FileMap& file, std::int32_t m0, std::int32_t m1, bool isNew, bool force);

// Takes `words` words off the free space, filled with zeroes if `zero` is set, and returns the
// index of the first.  `arenaWord` is 0, or the first of two header words of an arena of its own:
// its next free word and its limit.
std::uint64_t allocate(FileMap& file, std::uint64_t arenaWord, std::uint32_t words, bool zero);

inline std::uint64_t readWord(FileMap& file, std::uint64_t index) {
    std::uint64_t word;
    file.read(0, kWordSize, index, 1, &word);
    return word;
}

inline void writeWord(FileMap& file, std::uint64_t index, std::uint64_t value) {
    file.write(0, kWordSize, index, 1, &value);
}

[[noreturn]] void raiseBeyondReach(const char* name, std::uint64_t word);

// `word`, or the failure told above.
inline std::uint64_t withinReach(const char* name, std::uint64_t word) {
    if (word > kFarthestWord)
        raiseBeyondReach(name, word);
    return word;
}

} // namespace aux

// The tables that lead to records.
struct RecNo {
    // Where the record's head is named: a word of the table that its upper bits lead to.  Makes
    // what tables are missing.  From 268,435,456 on raises "libn::storage::RecNo index
    // overflow:recNo<%d>".
    std::uint64_t getPos(std::uint64_t recNo);

    NewFileMap* file;
    std::uint64_t rootWord; // names the upper table
    std::int64_t root = -1; // that word once it was read
};

struct Array {
    // The word index of the record's head.  Raises what RecNo does, and for a slot that holds 0
    // "libn::storage::Array::getPos:recNo<%d>".
    std::uint64_t getPos(std::uint64_t recNo);

    RecNo records;
};

struct InPlace {};

// Reads bytes through a buffer of whole words, at least N bytes of words of E bytes.  Every fill
// reads the whole buffer, beyond what is asked for and, at the end of the file, beyond that.
template <std::size_t N, std::size_t E>
class InputStream : public Noncopyable {
  public:
    static constexpr std::size_t kWords = (N + E - 1) / E;
    static constexpr std::size_t kSize = kWords * E;

    // Fills the buffer with the words from `firstWord` on, counted from byte `start`.
    InputStream(FileMap& map, std::uint64_t firstWord, std::uint64_t start = 0)
        : file(&map), base(start), index(firstWord) {
        fill();
    }
    // The same over a map that nothing else uses meanwhile: what one of its views holds is read
    // there and not copied into the buffer.
    InputStream(InPlace, NewFileMap& map, std::uint64_t firstWord)
        : file(&map), base(0), index(firstWord), inPlace(&map) {
        fill();
    }
    virtual ~InputStream() = default;

    void read(void* destination, std::size_t n) {
        auto* to = static_cast<char*>(destination);
        while (n != 0) {
            if (pos == kSize) {
                index += kWords;
                fill();
            }
            const std::size_t part = std::min(n, kSize - pos);
            viewCopy(to, bytes + pos, part);
            pos += part;
            to += part;
            n -= part;
        }
    }

    // One field of fixed size; as read.
    template <class Value>
    void get(Value& value) {
        static_assert(std::is_trivially_copyable_v<Value>);
        read(&value, sizeof(Value));
    }

    // What the buffer still holds.  A reader of many fields keeps its place in a variable of its
    // own, which the compiler holds in registers, and gives it back before any other read.
    class Ahead {
      public:
        std::size_t left() const { return m_left; }

        // A run of fields of `size` bytes together: calls fields(cursor).  The buffer must hold
        // them.
        template <class Fields>
        void run(std::size_t size, Fields fields) {
            fields(ViewCursor{m_at});
            skip(size);
        }
        // A read of n bytes, up to Size, where the buffer still holds Size and the destination has
        // room for them: what it gets behind n means nothing.  One copy of fixed size takes less
        // time than the way to the right one, which is another for each record.
        template <std::size_t Size>
        void readOf(void* destination, std::size_t n) {
            using Room = char[Size];
            viewGet(*static_cast<Room*>(destination), m_at);
            skip(n);
        }

      private:
        friend class InputStream;
        Ahead(const char* at, std::size_t left) : m_at(at), m_left(left) {}
        void skip(std::size_t n) {
            m_at += n;
            m_left -= n;
        }

        const char* m_at;
        std::size_t m_left;
    };
    Ahead ahead() const { return {bytes + pos, kSize - pos}; }
    void goOnAt(const Ahead& ahead) { pos = kSize - ahead.left(); }

  private:
    void fill() {
        if (inPlace != nullptr)
            bytes = inPlace->readInPlace(E * index, kSize, buffer);
        else
            file->read(base, E, index, kWords, buffer);
        pos = 0;
    }

    FileMap* file;
    char buffer[kSize];
    std::size_t pos; // bytes used
    std::uint64_t base;
    std::uint64_t index; // of the buffer's first word
    NewFileMap* inPlace = nullptr;
    const char* bytes = buffer;
};

// One open file of records.
class RecordFile : public NewFileMap {
  public:
    // Opens or makes the file, whose two magic numbers are `magic`.  A file with other numbers is
    // emptied; see aux::initFile.
    RecordFile(const std::filesystem::path& path, std::int32_t magic, std::uint64_t maxMemUsage);

    // Reads a record: `headField` from its head, then decode(stream) from its body.  Raises what
    // Array::getPos and the decoder do.
    template <class Decode>
    void readRecord(std::uint64_t recNo, std::uint32_t& headField, Decode decode) {
        InputStream<479, kWordSize> stream(InPlace(), *this, findBody(recNo, headField));
        decode(stream);
    }

    Array records;
    // Records at the time of the opening; never read anew.
    std::atomic<std::uint64_t> count = 0;

  private:
    std::uint64_t findBody(std::uint64_t recNo, std::uint32_t& headField);
};

} // namespace libn::storage
