// NewFileMap: its operations over the page cache.

#include "libn/fileMap.h"

#include <exception>

#include "fileMapState.h"
#include "libn/Assert.h"
#include "libn/viewCopy.h"
#include "platform/pathText.h"

namespace libn {

NewFileMap::NewFileMap() : m_state(new FileMapState) {}

NewFileMap::~NewFileMap() {
    try {
        NewFileMap::close();
    } catch (...) {
        // Deliberate: the process ends.  A view that cannot be taken away would go on holding a
        // file that a server is about to replace.
        reportUnhandled("libn::NewFileMap::~NewFileMap", "libn/src/fileMap", __LINE__);
        std::terminate();
    }
    delete m_state;
}

bool NewFileMap::open(const std::filesystem::path& path, std::uint64_t maxMemUsage) {
    FileMapState& state = *m_state;
    state.m_storage.reset();
    state.m_maxMemUsage = maxMemUsage;
    state.m_name = platform::narrowName(path.filename());
    state.m_storage = std::make_unique<WinMappableStorageFile>(platform::narrowName(path).c_str());
    state.m_awe = false;
    state.m_storage->open();
    return state.m_storage->createMapping(1);
}

void NewFileMap::close() {
    if (m_state->m_storage == nullptr)
        return;
    m_state->clearPages();
    m_state->m_storage->close();
}

bool NewFileMap::isOpen() const {
    // Deliberate: true after close as well, since the storage stays.  Callers ask whether there is
    // something to clear or to close again.
    return m_state->m_storage != nullptr;
}

void NewFileMap::clear() {
    m_state->clearPages();
    m_state->m_storage->clear();
    m_state->m_storage->createMapping(1);
}

void NewFileMap::write(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index,
                       std::uint64_t count, const void* source) {
    auto* from = static_cast<const char*>(source);
    m_state->forEachPiece(base + elemSize * index, elemSize * count,
                          [&](char* piece, std::uint64_t size) {
                              viewCopy(piece, from, size);
                              from += size;
                          });
}

void NewFileMap::read(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index,
                      std::uint64_t count, void* destination) {
    readPieces(base + elemSize * index, elemSize * count, static_cast<char*>(destination));
}

void NewFileMap::readPieces(std::uint64_t pos, std::uint64_t size, char* to) {
    m_state->forEachPiece(pos, size, [&](const char* piece, std::uint64_t part) {
        viewCopy(to, piece, part);
        to += part;
    });
}

std::uint64_t NewFileMap::readWord(std::uint64_t index) {
    const FileMapState::Place place = m_state->getPtr(8 * index, sizeof(ViewWord));
    return reinterpret_cast<const ViewWord*>(place.pointer)->value;
}

const char* NewFileMap::readInPlace(std::uint64_t pos, std::uint64_t size, char* buffer) {
    const FileMapState::Place first = m_state->getPtr(pos, size);
    if (first.available == size)
        return first.pointer;
    viewCopy(buffer, first.pointer, first.available);
    readPieces(pos + first.available, size - first.available, buffer + first.available);
    return buffer;
}

void NewFileMap::readBytes(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index,
                           std::uint64_t byteOffset, std::uint64_t byteCount, void* destination) {
    auto* to = static_cast<char*>(destination);
    std::uint64_t skip = byteOffset % elemSize;
    std::uint64_t wanted = byteCount;
    // Deliberate: the skipped bytes do not count, and the last ones may not come.  Components that
    // call this ask for whole elements and rely on how much is mapped for them.
    const std::uint64_t elements = byteCount / elemSize + (byteCount % elemSize != 0 ? 1 : 0);
    m_state->forEachPiece(base + elemSize * (index + byteOffset / elemSize), elemSize * elements,
                          [&](const char* piece, std::uint64_t size) {
                              const std::uint64_t before = std::min(skip, size);
                              skip -= before;
                              const std::uint64_t part = std::min(size - before, wanted);
                              viewCopy(to, piece + before, part);
                              to += part;
                              wanted -= part;
                          });
}

void NewFileMap::fill(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index,
                      std::uint64_t count, std::uint8_t value) {
    m_state->forEachPiece(base + elemSize * index, elemSize * count,
                          [&](char* piece, std::uint64_t size) { viewFill(piece, value, size); });
}

} // namespace libn
