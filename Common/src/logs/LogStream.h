// The logger's output file: text that is appended, with the line ends of Windows on every system.
//
// What is put collects in memory until a flush appends it to the file by one call, so that other
// writers of the same file come in front of it or behind it.  One thread at a time.

#pragma once

#include <cstddef>
#include <string>

#include "libn/WinFile.h"

class LogStream {
  public:
    // Opens the file for writing alone, making it where there is none; others may read and write it
    // meanwhile.
    explicit LogStream(const char* path);

    bool isOpen() const { return m_file.isOpen(); }

    // A line feed becomes carriage return and line feed.
    void put(const char* text, std::size_t size);
    void put(const std::string& text) { put(text.data(), text.size()); }

    // Deliberate: after one failed append the stream takes nothing any more.  Operators find the
    // log ending where the disk was full, and no file with holes.
    void flush();

    // Drops what was put since the last flush.
    void discard() { m_pending.clear(); }

  private:
    libn::WinFile m_file;
    std::string m_pending;
    bool m_failed = false;
};
