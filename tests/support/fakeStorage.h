// A storage in memory that notes what is asked of it, for tests of what stands above one.

#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "libn/MappableStorage.h"

// Views are blocks of their own: no two share bytes.
class FakeStorage : public MappableStorage {
  public:
    struct View {
        std::unique_ptr<char[]> bytes;
        std::uint64_t offset;
        std::uint64_t size;
    };

    bool allowsPageOverlap() const override { return overlap; }
    bool needsGrow(std::uint64_t end) const override { return end > fileSize; }
    bool createMapping(std::uint64_t end) override {
        calls.push_back("map " + std::to_string(end));
        fileSize = std::max(fileSize, end);
        return false;
    }
    void unmapPtr(void* view, std::uint64_t size) override {
        const auto found = views.find(view);
        calls.push_back("unmap " + (found == views.end() || found->second.size != size
                                        ? "?"
                                        : std::to_string(found->second.offset)));
        views.erase(view);
    }
    void* mapPtr(std::uint64_t offset, std::uint64_t n) override {
        calls.push_back("view " + std::to_string(offset) + " " + std::to_string(n));
        auto bytes = std::make_unique<char[]>(n);
        void* view = bytes.get();
        views[view] = {std::move(bytes), offset, n};
        return view;
    }
    bool open() override { return true; }
    void clear() override { calls.push_back("clear"); }
    void close() override { calls.push_back("close"); }
    const std::string& name() const override { return m_name; }
    std::uint64_t size() const override { return fileSize; }
    bool isMapped() const override { return true; }
    bool open(std::uint32_t, std::error_code&) override { return true; }
    bool read(void*, std::uint64_t, std::uint64_t, std::uint64_t*) override { return false; }

    // What was asked since the last time.
    std::vector<std::string> taken() { return std::exchange(calls, {}); }

    bool overlap = true;
    std::uint64_t fileSize = std::uint64_t{1} << 30;
    std::map<void*, View> views;
    std::vector<std::string> calls;

  private:
    std::string m_name = "fake";
};
