// Breaks no rule: words that only look like breaches stand in comments and texts, as in
// sprintf(buffer, "x") or #include <windows.h>.
#include <string>

// Deliberate: a quirk that its table explains.
std::string describe(int value) {
    const char quote = '"';
    return "strcpy(to, from) and NULL" + std::string(1, quote) + std::to_string(value) + "rand()";
}
