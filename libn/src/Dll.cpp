// Libraries by name, over Boost.DLL, and the texts of their failures.

#include "vdreader/dll.hpp"

#include <boost/system/system_error.hpp>
#include <cerrno>
#include <sstream>
#include <utility>

#include "openLibrary.h"

namespace libn {

namespace {

std::string reasonText(int code, const char* text) {
    std::ostringstream out;
    out << "\" (" << code << "). " << text;
    return out.str();
}

std::unique_ptr<boost::dll::shared_library> openOverBoost(const std::string& path) {
    return std::make_unique<boost::dll::shared_library>(
        path, boost::dll::load_mode::search_system_folders);
}

Dll::LoadError loadError(const std::string& path, int code, const char* text) {
    return Dll::LoadError("Failed to load DLL file \"" + path + reasonText(code, text));
}

} // namespace

std::unique_ptr<boost::dll::shared_library> (*openLibrary)(const std::string& path) = openOverBoost;

Dll::Dll(std::string from) : path(std::move(from)) {
    try {
        library = openLibrary(path);
    } catch (const boost::system::system_error& failure) {
        throw loadError(path, failure.code().value(), failure.what());
    }
    if (!library->is_loaded())
        throw loadError(path, errno, "");
}

Dll::~Dll() = default;

void* Dll::getFunction(const char* name) const {
    if (library == nullptr || !library->is_loaded())
        return nullptr;
    try {
        return reinterpret_cast<void*>(&library->get<void()>(name));
    } catch (const boost::system::system_error& failure) {
        throw FuncNotFoundError("Failed to find function \"" + std::string(name) + "\" in DLL \"" +
                                path + reasonText(failure.code().value(), failure.what()));
    }
}

} // namespace libn
