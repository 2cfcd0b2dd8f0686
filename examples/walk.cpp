// Reads the data files that an ini file names, from C++: the same walks as walk.c, with the
// descriptors read as structures and a failure caught as an exception.
//
//   walk_cpp FILE.ini [SECTION]
//   walk_cpp FOLDER              takes vdreader.ini of the folder

#include <cstdint>
#include <iomanip>
#include <iostream>
#include <string>

#include "vdreader/descriptors.hpp"
#include "vdreader/errors.hpp"
#include "vdreader/vdreader.h"

namespace {

// Callbacks get no argument of ours, so what they need between calls stands here.
int g_classes = 0;
int g_securities = 0;
double g_limitsTotal = 0;

// Text in a field of fixed size: a damaged file may lack the terminator.
template <std::size_t Size>
std::string text(const char (&field)[Size]) {
    std::size_t length = 0;
    while (length < Size && field[length])
        ++length;
    return {field, length};
}

std::int32_t onClass(sClassParUnitedDesc* classDesc) {
    // A parameter is a PARAMS_DESC and a security a SECURITY_DESC: C++ callers may read their
    // fields directly, or copy them to keep them beyond the next load.
    const PARAMS_DESC* first = get_sClassParUnitedDesc_par_desc(classDesc);
    if (first) {
        const bool isDouble = first->flags & 1;
        std::cout << "class " << ++g_classes << ": first parameter " << text(first->db_name)
                  << (isDouble ? ", a double" : ", an integer") << ", names in "
                  << first->names.size() << " languages\n";
    }
    return 1; // go on
}

std::int32_t onSecurity(sClassParUnitedDesc*, sSecurityDesc* security) {
    std::cout << "security " << text(security->sec_code) << ": " << text(security->ISIN) << ", lot "
              << security->lot_size << '\n';
    return ++g_securities < 5 ? 1 : 2; // 2: enough
}

std::int32_t onLimit(sFutLimit* limit) {
    // The record is valid only until this function returns.
    g_limitsTotal += get_sFutLimit_cbplimit(limit);
    return 1;
}

// The raising functions throw classes of errors.hpp, and so do other components of the family.
void require(bool done, const char* step) {
    if (!done)
        dwraise_ex(__FILE__, __LINE__, "%s: %s", step, get_vdreader_error());
}

void walk(const std::string& ini, const char* section) {
    // The classes come first: they hold the securities and the parameters.
    require(init_vdreader_classes(ini.c_str(), section), "classes");
    require(for_each_class(&onClass), "walk of the classes");

    // A walk that our own callback stopped returns 0 here and sets no error.
    require(for_each_security(&onSecurity) || g_securities == 5, "walk of the securities");

    require(init_vdreader_futlimits(ini.c_str(), section), "futures limits");
    require(for_each_futlimit(&onLimit), "walk of the futures limits");
    std::cout << "futures limits: " << std::fixed << std::setprecision(2) << g_limitsTotal
              << " in all\n";
}

} // namespace

int main(int argc, char** argv) {
    std::string ini = argc > 1 ? argv[1] : "";
    if (ini.empty()) {
        std::cerr << "usage: walk_cpp FILE.ini [SECTION] | FOLDER\n";
        return 2;
    }
    if (!ini.ends_with(".ini"))
        ini += "/vdreader.ini";
    try {
        walk(ini, argc > 2 ? argv[2] : "vdreader");
    } catch (const CError& error) {
        std::cerr << error.what() << " (" << error.file << ", line " << error.line << ")\n";
        return 1;
    }
    return 0;
}
