// Names of locales by the language identifiers of Windows.
//
// The table is filled while the library loads and goes at the end of the process.  It is not
// changed in between: any number of threads may look.

#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

// From an identifier, of a bare language (9) or of language and country (1033), to a name.
using LocaleTable = std::unordered_map<std::uint32_t, std::string>;

const LocaleTable& localeTable();
