// Opening of logs and the threads' hold on them.

#include "logs/Events.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <string>
#include <utility>

#include "diagnostics/createFile.h"
#include "diagnostics/rotation.h"
#include "dw_util/cutCopy.h"
#include "platform/renaming.h"
#include "vdreader/log.h"

namespace {

bool isSameName(const char* a, const char* b) {
    const auto folded = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    for (; folded(*a) == folded(*b); ++a, ++b)
        if (*a == '\0')
            return true;
    return false;
}

// What a log's own opening reports about it, kept until the file is there to take it.
class HeldLines : public IStreamProvider {
  public:
    bool isGood() const override { return true; }
    bool write(const void* data, std::uint64_t size) override {
        m_text.append(static_cast<const char*>(data), size);
        return true;
    }
    const std::string& text() const { return m_text; }

  private:
    std::string m_text;
};

// While it lives, the log is the thread's own of its kind, and takes lines into memory.  Afterwards
// the thread has none.
class OpeningScope {
  public:
    OpeningScope(std::shared_ptr<EVENTS>& field, const std::shared_ptr<EVENTS>& entry)
        : m_field(field), m_entry(entry) {
        auto held = std::make_unique<HeldLines>();
        m_held = held.get();
        m_entry->provider = std::move(held);
        m_field = m_entry;
    }
    ~OpeningScope() {
        m_field.reset();
        if (m_held != nullptr)
            m_entry->provider.reset();
    }
    OpeningScope(const OpeningScope&) = delete;
    OpeningScope& operator=(const OpeningScope&) = delete;

    void replaceBy(std::unique_ptr<IStreamProvider> provider) {
        const std::string text = m_held->text();
        m_held = nullptr;
        m_entry->provider = std::move(provider);
        m_entry->provider->write(text.data(), text.size());
    }

  private:
    std::shared_ptr<EVENTS>& m_field;
    std::shared_ptr<EVENTS> m_entry;
    HeldLines* m_held;
};

void releaseFiles(void* block) {
    auto& state = *static_cast<ThreadLogState*>(block);
    state.netEventsFile.reset();
    state.errorsFile.reset();
    state.eventsFile.reset();
}

} // namespace

template <class Tag>
std::atomic<Events<Tag>*>& Events<Tag>::made() {
    static constinit std::atomic<Events*> events{nullptr};
    return events;
}

template <class Tag>
Events<Tag>& Events<Tag>::instance() {
    // Never destroyed: other threads may still log when the files are closed.
    static Events* const events = [] {
        auto* fresh = new Events;
        made() = fresh;
        return fresh;
    }();
    return *events;
}

template <class Tag>
void Events<Tag>::closeFiles() {
    Events* const events = made();
    if (events == nullptr)
        return;
    // The end of a process stops threads anywhere, also with a lock in their hands.
    const std::unique_lock guard(events->m_lock, std::try_to_lock);
    if (!guard)
        return;
    for (const std::shared_ptr<EVENTS>& slot : events->m_slots) {
        if (slot == nullptr)
            break;
        if (const std::unique_lock use(slot->lock, std::try_to_lock); use)
            slot->provider.reset();
    }
}

template <class Tag>
void Events<Tag>::setThreadFile(const char* name, const char* rotationPath) {
    char cut[EVENTS::kNameSize];
    copyCut(cut, name);
    const std::lock_guard guard(m_lock);
    std::shared_ptr<EVENTS>& field = Tag::field(threadLogState());
    if (field != nullptr) {
        if (name != nullptr && isSameName(field->fileName, cut))
            return;
        field.reset();
    }
    if (name == nullptr)
        return;
    std::shared_ptr<EVENTS> file = findFile(cut);
    if (file == nullptr)
        file = openFile(cut, rotationPath);
    if (file == nullptr)
        return;
    field = std::move(file);
    platform::callAtThreadEnd(releaseFiles);
}

template <class Tag>
std::shared_ptr<EVENTS> Events<Tag>::findFile(const char* name) const {
    for (const std::shared_ptr<EVENTS>& slot : m_slots)
        if (slot != nullptr && isSameName(slot->fileName, name))
            return slot;
    return nullptr;
}

template <class Tag>
std::shared_ptr<EVENTS> Events<Tag>::openFile(const char* name, const char* rotationPath) {
    auto slot = m_slots.begin();
    while (slot != m_slots.end() && *slot != nullptr)
        ++slot;
    if (slot == m_slots.end())
        return nullptr;
    auto entry = std::make_shared<EVENTS>();
    copyCut(entry->fileName, name);
    // Deliberate: a file that does not open keeps its slot.  Whoever names it again gets a log that
    // drops its lines, instead of waiting for the rotation of a file that others hold.
    *slot = entry;
    OpeningScope opening(Tag::field(threadLogState()), entry);
    const bool rotated = rotateOnOpen(*entry, rotationPath);
    auto provider = std::make_unique<FileStreamProvider>();
    create_file(provider->file(), entry->fileName, entry->isRotate);
    if (!provider->isGood()) {
        error("Failed to create file %s.", entry->fileName);
        return nullptr;
    }
    if (rotated)
        platform::renewCreationTime(entry->fileName);
    opening.replaceBy(std::move(provider));
    return entry;
}

template <class Tag>
void Events<Tag>::linkStream(std::ostream& stream) {
    char name[EVENTS::kNameSize];
    std::snprintf(name, sizeof name, "%016llX",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(&stream)));
    const std::lock_guard guard(m_lock);
    if (m_defaultFile != nullptr && isSameName(m_defaultFile->fileName, name))
        return;
    auto entry = std::make_shared<EVENTS>();
    copyCut(entry->fileName, name);
    auto provider = std::make_unique<LinkedStreamProvider>(stream);
    if (provider->isGood())
        entry->provider = std::move(provider);
    const std::lock_guard link(m_linkLock);
    m_defaultFile = std::move(entry);
    m_linked = true;
}

template <class Tag>
std::shared_ptr<EVENTS> Events<Tag>::defaultFile() const {
    if (!m_linked)
        return nullptr;
    const std::lock_guard guard(m_linkLock);
    return m_defaultFile;
}

template <class Tag>
std::shared_ptr<EVENTS> Events<Tag>::linkOfLines() {
    const Events* const events = made();
    return events != nullptr ? events->defaultFile() : nullptr;
}

template class Events<EventsTlsPtr>;
template class Events<ErrorsTlsPtr>;
template class Events<NetEventsTlsPtr>;

namespace {

struct Closing {
    ~Closing() {
        Events<EventsTlsPtr>::closeFiles();
        Events<ErrorsTlsPtr>::closeFiles();
        Events<NetEventsTlsPtr>::closeFiles();
    }
};
const Closing atTheEnd;

} // namespace
