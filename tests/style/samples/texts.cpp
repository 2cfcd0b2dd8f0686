// Texts, some of which docs explain.

void error(const char* format, ...);

namespace {
const char* const kLead = "Stopped in function ";
const char* const kTail = " of ";
} // namespace

void report(const char* file, int number) {
    error("Cannot read %s, tried %d times", file, number);
    error("Cannot read %s, tried %d times, and gave up", file, number);
    error("Cannot read it");
    error("%s%s%s%s", kLead, file, kTail, file);
}
