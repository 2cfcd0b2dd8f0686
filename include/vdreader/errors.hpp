// The exceptions that leave the library and the other components of the family.
//
// The classes live in this header alone and nothing of them is exported: host and library each hold
// their own copy and catch by type across the boundary.  Any thread may raise, copy and catch them;
// one object belongs to one thread at a time.  The branch below CEmptyError carries its
// text inline, so that raising works when the heap is exhausted.

#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>

namespace sarn {

// Root of the tree: a text that is shared, or owned and then duplicated by each copy.
class Exception : public std::exception {
  public:
    // What a copy says when its text could not be duplicated.
    static constexpr const char* kCopyFailed =
        "Memory allocation for exception description has been failed";

    Exception() noexcept = default;

    // `text` must outlive the exception, or with `owned` set come from malloc.
    explicit Exception(const char* text, bool owned = false) noexcept
        : description(text), ownsDescription(owned) {}

    Exception(const Exception& other) noexcept
        : std::exception(other),
          description(other.description),
          ownsDescription(other.ownsDescription) {
        if (ownsDescription)
            duplicate();
    }

    Exception& operator=(const Exception& other) noexcept {
        if (this != &other) {
            release();
            description = other.description;
            ownsDescription = other.ownsDescription;
            if (ownsDescription)
                duplicate();
        }
        return *this;
    }

    ~Exception() override { release(); }

    // The text, good as long as the object.
    const char* what() const noexcept override { return description; }

    const char* description = "";
    bool ownsDescription = false;

  private:
    void duplicate() noexcept {
        const std::size_t size = std::strlen(description) + 1;
        void* copy = std::malloc(size);
        // Deliberate: the flag stays set when the copy fails.  Handlers of the family test it to
        // tell a formatted text from a literal.
        description =
            copy ? static_cast<const char*>(std::memcpy(copy, description, size)) : kCopyFailed;
    }

    void release() noexcept {
        // By its characters: the object may have been copied by another module, with a literal of
        // its own.
        if (ownsDescription && std::strcmp(description, kCopyFailed) != 0)
            std::free(const_cast<char*>(description));
    }
};

} // namespace sarn

// A failure with its text inside the object.  `description` of the base stays empty.
class CEmptyError : public sarn::Exception {
  public:
    static constexpr std::size_t kTextSize = 4096;
    static constexpr std::size_t kTextLimit = 4095;

    CEmptyError() noexcept = default;
    CEmptyError(const CEmptyError& other) noexcept : sarn::Exception(other), code(other.code) {
        copyText(text, other.text, kTextLimit);
    }
    CEmptyError& operator=(const CEmptyError& other) noexcept {
        if (this != &other) {
            sarn::Exception::operator=(other);
            code = other.code;
            copyText(text, other.text, kTextLimit);
        }
        return *this;
    }
    ~CEmptyError() override = default;

    // The text, good as long as the object; at most 4095 characters.
    const char* what() const noexcept override { return text; }
    const char* GetErrorDesc() const noexcept { return text; }

    // 0 unless the raiser gave one.
    std::int32_t code = 0;
    char text[kTextSize] = {};

  protected:
    // Copies at most `limit` characters into an array of more than `limit`.
    static void copyText(char* to, const char* from, std::size_t limit) noexcept {
        const void* end = std::memchr(from, 0, limit);
        const std::size_t length = end ? static_cast<const char*>(end) - from : limit;
        std::memcpy(to, from, length);
        to[length] = '\0';
    }
};

// A failure that knows where in the source it was raised.
class CError : public CEmptyError {
  public:
    static constexpr std::size_t kFileSize = 512;
    static constexpr std::size_t kFileLimit = 511;

    CError() noexcept { file[0] = '\0'; }
    CError(const CError& other) noexcept : CEmptyError(other), line(other.line) {
        copyText(file, other.file, kFileLimit);
    }
    CError& operator=(const CError& other) noexcept {
        if (this != &other) {
            CEmptyError::operator=(other);
            line = other.line;
            copyText(file, other.file, kFileLimit);
        }
        return *this;
    }
    ~CError() override = default;

    // Source file name behind its last \ or :, at most 511 characters; not filled by the
    // constructor.
    char file[kFileSize];
    std::int32_t line = 0;
};

// A failed call of the operating system; the text tells the system's reason.
class COSError : public CError {};

// A failed call of the socket layer; the text tells the system's reason.
class CSocError : public CError {};

// A structured exception; `code` holds its number.
class CSEHError : public CError {};
