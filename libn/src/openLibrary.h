// How libn::Dll loads a library.
//
// Boost raises where it has none, on both systems; what would follow if it did not is seen by tests
// that stand in.

#pragma once

#include <boost/dll/shared_library.hpp>
#include <memory>
#include <string>

namespace libn {

// The library, or an object without one and the reason in errno; boost::system::system_error.
extern std::unique_ptr<boost::dll::shared_library> (*openLibrary)(const std::string& path);

} // namespace libn
