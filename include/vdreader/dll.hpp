// Libraries that are loaded by name, and what is raised where one is not there.
//
// Hosts use the error classes: SendSvctlError and seh_translator let a LoadError pass.  They live
// in this header alone, as the classes of errors.hpp do.  No member function of Dll itself is
// exported.

#pragma once

#include <memory>
#include <string>

#include "vdreader/errors.hpp"

namespace boost::dll {
class shared_library;
}

namespace libn {

// A loaded library, unloaded at the end of the object.  An object belongs to one thread at a time.
class Dll {
  public:
    // What is raised.  The text, good as long as the object, tells all; where no memory is left for
    // it, it is "Memory allocation for exception description has been failed".
    class Error : public sarn::Exception {
      public:
        // Keeps a copy of the text.
        explicit Error(const std::string& text) noexcept : sarn::Exception(copyOf(text), true) {}
        ~Error() override = default;

      private:
        static const char* copyOf(const std::string& text) noexcept {
            void* copy = std::malloc(text.size() + 1);
            // The base class knows these words by their characters and does not free them.
            return copy != nullptr
                       ? static_cast<const char*>(std::memcpy(copy, text.c_str(), text.size() + 1))
                       : kCopyFailed;
        }
    };

    // The library was not loaded:
    // "Failed to load DLL file "PATH" (CODE). TEXT", with the code and the text of the system.
    class LoadError : public Error {
      public:
        using Error::Error;
        ~LoadError() override = default;
    };

    // The library has no such function:
    // "Failed to find function "NAME" in DLL "PATH" (CODE). TEXT".
    class FuncNotFoundError : public Error {
      public:
        using Error::Error;
        ~FuncNotFoundError() override = default;
    };

    // Loads the library.  A name without a folder is looked for where the system looks for
    // libraries.  LoadError where it is not found or cannot be loaded.
    explicit Dll(std::string path);
    ~Dll();
    Dll(const Dll&) = delete;
    Dll& operator=(const Dll&) = delete;

    // The address of an exported function, null if no library is loaded, good as long as the
    // object.  FuncNotFoundError where the library has none of that name.
    void* getFunction(const char* name) const;

  private:
    std::string path;
    std::unique_ptr<boost::dll::shared_library> library;
};

} // namespace libn
