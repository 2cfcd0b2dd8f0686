// A C++ host in which both functions stand side by side; linked and run as linked_host.c is.

#include "vdreader/log.h"

#include <error.h>

#include <cerrno>
#include <cstring>

#include "capture.h"

int main(int argc, char** argv) {
    const bool standIn = argc > 1 && std::strcmp(argv[1], "--stand-in") == 0;
    const char* text = captured([] { error(0, 0, "host %d", 1); });
    CHECK(endsWith(text, ": host 1\n"), text);
    text = captured([] { error(0, ENOENT, "host %d", 2); });
    CHECK(endsWith(text, ": host 2: No such file or directory\n"), text);
    CHECK(error_message_count == 2, "");

    text = captured([] { error("host %d", 3); });
    CHECK(std::strcmp(text, standIn ? "verror: host 3" : "") == 0, text);
    text = captured([] { vdreader_error("host %d", 4); });
    CHECK(std::strcmp(text, standIn ? "verror: host 4" : "") == 0, text);
    CHECK(error_message_count == 2, "");
    return failures ? 1 : 0;
}
